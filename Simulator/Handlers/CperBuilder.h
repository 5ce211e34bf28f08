/** @file
  The simulator's side of the CPER record builder (VornCperBuilderLib, which
  the QEMU platform's error injection uses too): C++ record specs with
  optional fields, records as byte vectors, and their placement in SMRAM.
**/
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include <Uefi.h>
#include <Guid/Cper.h>
#include <Library/VornCperBuilderLib.h>
#include <Protocol/VornApeiLoggingSmm.h>

namespace Cper {

enum class SectionKind : UINT32 {
  Memory            = VornCperMemory,
  Pcie              = VornCperPcie,
  CxlProtocol       = VornCperCxlProtocol,
  CxlComponent      = VornCperCxlComponent,
  ProcessorGeneric  = VornCperProcessorGeneric,
  ProcessorSpecific = VornCperProcessorSpecific,
  PciComponent      = VornCperPciComponent,
};

//
// CXL component event records, in the order of their identifiers.
//
enum class CxlEvent : UINT32 {
  GeneralMedia    = VornCxlGeneralMedia,
  Dram            = VornCxlDram,
  MemoryModule    = VornCxlMemoryModule,
  MemorySparing   = VornCxlMemorySparing,
  PhysicalSwitch  = VornCxlPhysicalSwitch,
  VirtualSwitch   = VornCxlVirtualSwitch,
  MldPort         = VornCxlMldPort,
  DynamicCapacity = VornCxlDynamicCapacity,
};

using Bytes16 = std::array<UINT8, 16>;

//
// Section-type values as they sit in a descriptor.
//
Bytes16 SectionTypeBytes (SectionKind Kind, CxlEvent Event = CxlEvent::GeneralMedia);

//
// A CXL component event identifier as 16 raw bytes in UUID text order (what
// a CXL event record carries), and the same UUID laid out as an EFI GUID.
//
Bytes16 CxlEventIdentifier (CxlEvent Event);
Bytes16 CxlEventIdentifierAsEfiGuid (CxlEvent Event);

//
// The section type a platform error handler writes for a CXL component
// event: the raw identifier as specified, the EFI GUID on a platform with
// the cxl-guid switch on.
//
Bytes16 CxlEventSectionType (CxlEvent Event);

//
// The VMware page-retire section type (EFI GUID byte order).
//
Bytes16 VmwarePageRetireSectionType ();

//
// The builder's defaults (VornCperDefaultSpec).
//
const VORN_CPER_RECORD_SPEC &DefaultSpec ();

struct RecordSpec {
  SectionKind                Kind            = SectionKind::Memory;
  CxlEvent                   Event           = CxlEvent::GeneralMedia;
  UINT32                     HeaderSeverity  = DefaultSpec ().HeaderSeverity;
  UINT32                     SectionSeverity = DefaultSpec ().SectionSeverity;
  UINT64                     PhysicalAddress = DefaultSpec ().PhysicalAddress; // memory sections
  UINT64                     RecordId        = DefaultSpec ().RecordId;
  UINT32                     SectionFlags    = DefaultSpec ().SectionFlags;
  EFI_ERROR_TIME_STAMP       TimeStamp       = DefaultSpec ().TimeStamp;
  std::optional<Bytes16>     FruId           = std::nullopt; // sets SecValidMask bit 0
  std::optional<std::string> FruText         = std::nullopt; // sets SecValidMask bit 1 (at most 20 bytes kept)
  std::optional<Bytes16>     SectionType     = std::nullopt; // replaces the kind's section type
  std::optional<UINT32>      BodyLength      = std::nullopt; // pads (with a counting pattern) or cuts the body
  UINT32                     SectionOffset   = DefaultSpec ().SectionOffset;
};

//
// Natural body length of each kind.
//
UINT32 SectionBodyLength (SectionKind Kind);

//
// The whole record as bytes: header, descriptor, body.
//
std::vector<UINT8> BuildRecord (const RecordSpec &Spec);

//
// Copies a record into SMRAM, where error handlers keep theirs, and returns
// it at its fixed physical address.
//
CPER_RECORD *PlaceInSmram (const std::vector<UINT8> &Record);

} // namespace Cper

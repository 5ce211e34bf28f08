/** @file
  Builds single-section CPER records the way the platform's error handlers
  hand them to the logging protocol: the 128-byte record header, one 72-byte
  section descriptor, and the section body at byte 200.

  The section-type values here are written out independently of the module's
  own tables, so that a record built here checks the module's recognition.
**/
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include <Uefi.h>
#include <Guid/Cper.h>
#include <Protocol/VornApeiLoggingSmm.h>

namespace Cper {

enum class SectionKind {
  Memory,
  Pcie,
  CxlProtocol,
  CxlComponent,
  ProcessorGeneric,
  ProcessorSpecific,
  PciComponent,
};

//
// CXL component event records, in the order of their identifiers.
//
enum class CxlEvent {
  GeneralMedia,
  Dram,
  MemoryModule,
  MemorySparing,
  PhysicalSwitch,
  VirtualSwitch,
  MldPort,
  DynamicCapacity,
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

struct RecordSpec {
  SectionKind                Kind            = SectionKind::Memory;
  CxlEvent                   Event           = CxlEvent::GeneralMedia;
  UINT32                     HeaderSeverity  = EFI_GENERIC_ERROR_CORRECTED;
  UINT32                     SectionSeverity = EFI_GENERIC_ERROR_CORRECTED;
  UINT64                     PhysicalAddress = 0x0000000123456780ULL; // memory sections
  UINT64                     RecordId        = 0x0000000100000001ULL;
  UINT32                     SectionFlags    = EFI_ERROR_SECTION_FLAGS_PRIMARY;
  EFI_ERROR_TIME_STAMP       TimeStamp       = {0x56, 0x34, 0x12, 0x01, 0x17, 0x05, 0x24, 0x20};
  std::optional<Bytes16>     FruId           = std::nullopt; // sets SecValidMask bit 0
  std::optional<std::string> FruText         = std::nullopt; // sets SecValidMask bit 1 (at most 20 bytes kept)
  std::optional<Bytes16>     SectionType     = std::nullopt; // replaces the kind's section type
  std::optional<UINT32>      BodyLength      = std::nullopt; // pads (with a counting pattern) or cuts the body
  UINT32 SectionOffset = sizeof (EFI_COMMON_ERROR_RECORD_HEADER) + sizeof (EFI_ERROR_SECTION_DESCRIPTOR);
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

/** @file
  Builds the single-section CPER records that platform error handlers hand to
  the logging protocol: the 128-byte record header, one 72-byte section
  descriptor and the section body at byte 200, with plausible field values
  for each section kind. The simulator's error handlers and the QEMU
  platform's error injection both build their records here.

  The section-type values are written out here independently of the
  module's own tables, so that a record built here checks the module's
  recognition.
**/
#pragma once

#include <Uefi.h>
#include <Guid/Cper.h>
#include <Protocol/VornApeiLoggingSmm.h>

typedef enum {
  VornCperMemory,
  VornCperPcie,
  VornCperCxlProtocol,
  VornCperCxlComponent,
  VornCperProcessorGeneric,
  VornCperProcessorSpecific,
  VornCperPciComponent,
  VornCperSectionKindCount
} VORN_CPER_SECTION_KIND;

//
// CXL component event records, in the order of their identifiers.
//
typedef enum {
  VornCxlGeneralMedia,
  VornCxlDram,
  VornCxlMemoryModule,
  VornCxlMemorySparing,
  VornCxlPhysicalSwitch,
  VornCxlVirtualSwitch,
  VornCxlMldPort,
  VornCxlDynamicCapacity,
  VornCxlEventCount
} VORN_CXL_EVENT;

//
// BodyLength value that keeps the kind's own body length.
//
#define VORN_CPER_NATURAL_BODY_LENGTH MAX_UINT32

#define VORN_CPER_FRU_TEXT_LENGTH 20

typedef struct {
  VORN_CPER_SECTION_KIND Kind;
  VORN_CXL_EVENT         Event;
  UINT32                 HeaderSeverity;
  UINT32                 SectionSeverity;
  UINT64                 PhysicalAddress; // memory sections
  UINT64                 RecordId;
  UINT32                 SectionFlags;
  EFI_ERROR_TIME_STAMP   TimeStamp;
  CONST UINT8           *FruId;         // 16 bytes, sets SecValidMask bit 0; NULL for none
  CONST CHAR8           *FruText;       // sets SecValidMask bit 1; NULL for none
  UINTN                  FruTextLength; // at most VORN_CPER_FRU_TEXT_LENGTH bytes are kept
  CONST UINT8           *SectionType;   // 16 bytes replacing the kind's section type; NULL for the kind's
  UINT32                 BodyLength;    // cuts the body, or pads it with a counting pattern
  UINT32                 SectionOffset;
} VORN_CPER_RECORD_SPEC;

//
// A spec for Kind with the values handlers usually report: corrected
// severity, primary section, the kind's own body.
//
VOID VornCperDefaultSpec (OUT VORN_CPER_RECORD_SPEC *Spec, IN VORN_CPER_SECTION_KIND Kind);

//
// Natural body length of a kind, and the length of the record a spec builds.
//
UINT32 VornCperSectionBodyLength (IN VORN_CPER_SECTION_KIND Kind);
UINT32 VornCperRecordLength (IN CONST VORN_CPER_RECORD_SPEC *Spec);

//
// Writes the record into Buffer; EFI_BUFFER_TOO_SMALL when it does not fit.
//
EFI_STATUS VornCperBuildRecord (IN CONST VORN_CPER_RECORD_SPEC *Spec, OUT UINT8 *Buffer, IN UINTN BufferSize);

//
// Section-type values as they sit in a descriptor (16 bytes each). A CXL
// component event identifier is 16 raw bytes in UUID text order, as a CXL
// event record carries it; VornCperCxlEventGuid gives the same UUID laid out
// as an EFI GUID.
//
VOID VornCperSectionType (IN VORN_CPER_SECTION_KIND Kind, IN VORN_CXL_EVENT Event, OUT UINT8 *Type);
VOID VornCperCxlEventIdentifier (IN VORN_CXL_EVENT Event, OUT UINT8 *Identifier);
VOID VornCperCxlEventGuid (IN VORN_CXL_EVENT Event, OUT UINT8 *Guid);

//
// The section type a handler writes for a CXL component event: the raw
// identifier as specified, the EFI GUID on a platform with the CXL GUID
// switch (PcdVornFixCxlGuid) on.
//
VOID VornCperCxlEventSectionType (IN VORN_CXL_EVENT Event, OUT UINT8 *Type);
VOID VornCperVmwarePageRetireSectionType (OUT UINT8 *Type);

//
// The signal a handler raises after recording Record with ErrorSeverity:
// TRUE for the NMI (fatal errors; recoverable PCIe, CXL protocol and CXL
// component errors), FALSE for the SCI.
//
BOOLEAN VornCperSignalsNmi (IN CONST CPER_RECORD *Record, IN UINT32 ErrorSeverity);

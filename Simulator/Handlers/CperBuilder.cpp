/** @file
  Single-section CPER records through the package's builder library.
**/
#include "Handlers/CperBuilder.h"

#include <cstring>
#include <stdexcept>

#include <Host.h>

namespace Cper {

namespace {

VORN_CPER_SECTION_KIND LibraryKind (SectionKind Kind) {
  return static_cast<VORN_CPER_SECTION_KIND> (Kind);
}

VORN_CXL_EVENT LibraryEvent (CxlEvent Event) {
  return static_cast<VORN_CXL_EVENT> (Event);
}

} // namespace

const VORN_CPER_RECORD_SPEC &DefaultSpec () {
  static const VORN_CPER_RECORD_SPEC Defaults = [] {
    VORN_CPER_RECORD_SPEC Spec;
    VornCperDefaultSpec (&Spec, VornCperMemory);
    return Spec;
  }();
  return Defaults;
}

Bytes16 CxlEventIdentifier (CxlEvent Event) {
  Bytes16 Out{};
  VornCperCxlEventIdentifier (LibraryEvent (Event), Out.data ());
  return Out;
}

Bytes16 CxlEventIdentifierAsEfiGuid (CxlEvent Event) {
  Bytes16 Out{};
  VornCperCxlEventGuid (LibraryEvent (Event), Out.data ());
  return Out;
}

Bytes16 CxlEventSectionType (CxlEvent Event) {
  Bytes16 Out{};
  VornCperCxlEventSectionType (LibraryEvent (Event), Out.data ());
  return Out;
}

Bytes16 VmwarePageRetireSectionType () {
  Bytes16 Out{};
  VornCperVmwarePageRetireSectionType (Out.data ());
  return Out;
}

Bytes16 SectionTypeBytes (SectionKind Kind, CxlEvent Event) {
  Bytes16 Out{};
  VornCperSectionType (LibraryKind (Kind), LibraryEvent (Event), Out.data ());
  return Out;
}

UINT32
SectionBodyLength (SectionKind Kind) {
  return VornCperSectionBodyLength (LibraryKind (Kind));
}

std::vector<UINT8> BuildRecord (const RecordSpec &Spec) {
  VORN_CPER_RECORD_SPEC Library;
  VornCperDefaultSpec (&Library, LibraryKind (Spec.Kind));
  Library.Event           = LibraryEvent (Spec.Event);
  Library.HeaderSeverity  = Spec.HeaderSeverity;
  Library.SectionSeverity = Spec.SectionSeverity;
  Library.PhysicalAddress = Spec.PhysicalAddress;
  Library.RecordId        = Spec.RecordId;
  Library.SectionFlags    = Spec.SectionFlags;
  Library.TimeStamp       = Spec.TimeStamp;
  Library.FruId           = Spec.FruId ? Spec.FruId->data () : nullptr;
  Library.FruText         = Spec.FruText ? Spec.FruText->data () : nullptr;
  Library.FruTextLength   = Spec.FruText ? Spec.FruText->size () : 0;
  Library.SectionType     = Spec.SectionType ? Spec.SectionType->data () : nullptr;
  Library.BodyLength      = Spec.BodyLength.value_or (VORN_CPER_NATURAL_BODY_LENGTH);
  Library.SectionOffset   = Spec.SectionOffset;

  std::vector<UINT8> Record (VornCperRecordLength (&Library));
  if (EFI_ERROR (VornCperBuildRecord (&Library, Record.data (), Record.size ()))) {
    throw std::invalid_argument ("CPER builder: the record spec names no section kind or CXL event");
  }
  return Record;
}

CPER_RECORD *PlaceInSmram (const std::vector<UINT8> &Record) {
  const UINT64 Address = Host::AllocateSmram (Record.size ());
  std::memcpy (Host::At<void> (Address), Record.data (), Record.size ());
  return Host::At<CPER_RECORD> (Address);
}

} // namespace Cper

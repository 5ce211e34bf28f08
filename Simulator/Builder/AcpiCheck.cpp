/** @file
  HEST and ERST validation.
**/
#include "Builder/AcpiCheck.h"

#include <cstring>

#include "Builder/AcpiErst.h"
#include "Builder/AcpiHeader.h"
#include "Builder/AcpiHest.h"
#include "Common/TextFormat.h"

namespace Sim {

namespace {

using Ghes = EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE;

template <typename T> T ReadAt (std::span<const UINT8> Bytes, size_t Offset) {
  T Value;
  std::memcpy (&Value, Bytes.data () + Offset, sizeof (Value));
  return Value;
}

//
// Structure sizes by error source type: a fixed part, and for the machine
// check types a count of 28-byte bank records at BankCountOffset.
//
struct HestLayout {
  UINT16 Type;
  UINT32 FixedLength;
  UINT32 BankCountOffset; // 0: no banks
};

constexpr UINT32 kBankLength = 28;

constexpr HestLayout kHestLayouts[] = {
    {0, 40, 32}, // IA-32 machine check exception
    {1, 48, 44}, // IA-32 corrected machine check
    {2, 20, 0},  // IA-32 NMI
    {6, 48, 0},  // PCIe root port AER
    {7, 44, 0},  // PCIe device AER
    {8, 56, 0},  // PCIe bridge AER
    {EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR, sizeof (Ghes), 0},
    {kGhesV2Type, 92, 0},
    {11, 48, 44}, // IA-32 deferred machine check
};

const HestLayout *FindLayout (UINT16 Type) {
  for (const HestLayout &Layout : kHestLayouts) {
    if (Layout.Type == Type) {
      return &Layout;
    }
  }
  return nullptr;
}

} // namespace

void CheckAcpiTable (std::span<const UINT8>    Bytes,
                     UINT32                    Signature,
                     size_t                    MinimumLength,
                     std::vector<std::string> &Warnings) {
  const std::string Expected = AcpiSignatureText (Signature);
  if (Bytes.size () < sizeof (EFI_ACPI_DESCRIPTION_HEADER)) {
    throw AcpiTableError (Format ("%s table truncated: 0x%zX bytes, less than an ACPI table header (0x%zX)",
                                  Expected.c_str (), Bytes.size (), sizeof (EFI_ACPI_DESCRIPTION_HEADER)));
  }
  const auto Header = ReadAt<EFI_ACPI_DESCRIPTION_HEADER> (Bytes, 0);
  if (Header.Signature != Signature) {
    throw AcpiTableError (
        Format ("signature is '%s', expected '%s'", AcpiSignatureText (Header.Signature).c_str (), Expected.c_str ()));
  }
  if (Header.Length != Bytes.size ()) {
    throw AcpiTableError (Format ("%s Length 0x%X does not match the 0x%zX bytes of the file", Expected.c_str (),
                                  Header.Length, Bytes.size ()));
  }
  if (Bytes.size () < MinimumLength) {
    throw AcpiTableError (Format ("%s table truncated: 0x%zX bytes, less than its 0x%zX-byte header", Expected.c_str (),
                                  Bytes.size (), MinimumLength));
  }
  const UINT8 Sum = AcpiByteSum (Bytes);
  if (Sum != 0) {
    Warnings.push_back (Format ("%s checksum 0x%02X is wrong (0x%02X is right); the placed table gets a recomputed "
                                "checksum",
                                Expected.c_str (), Header.Checksum, static_cast<UINT8> (Header.Checksum - Sum)));
  }
}

UINT32
HestStructureLength (std::span<const UINT8> Bytes, size_t Offset) {
  const HestLayout *Layout = FindLayout (ReadAt<UINT16> (Bytes, Offset));
  if (Layout == nullptr) {
    return 0;
  }
  UINT32 Length = Layout->FixedLength;
  if (Layout->BankCountOffset != 0 && Offset + Layout->BankCountOffset < Bytes.size ()) {
    Length += kBankLength * ReadAt<UINT8> (Bytes, Offset + Layout->BankCountOffset);
  }
  return Length;
}

HestWalk WalkHest (std::span<const UINT8> Bytes) {
  const auto   Header = ReadAt<EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_HEADER> (Bytes, 0);
  const size_t End    = Bytes.size ();

  HestWalk Walk;
  size_t   Offset = sizeof (Header);
  for (UINT32 Index = 0; Index < Header.ErrorSourceCount; Index++) {
    // Type and Source Id lead every structure.
    if (Offset + 2 * sizeof (UINT16) > End) {
      Walk.Stopped = HestStop::Overflow;
      Walk.Problem = Format ("HEST lists %u error sources but the table ends after %u", Header.ErrorSourceCount, Index);
      return Walk;
    }
    const UINT16 Type     = ReadAt<UINT16> (Bytes, Offset);
    const UINT16 SourceId = ReadAt<UINT16> (Bytes, Offset + sizeof (UINT16));
    const UINT32 Length   = HestStructureLength (Bytes, Offset);
    Walk.StopType         = Type;
    Walk.StopSourceId     = SourceId;
    if (Length == 0) {
      Walk.Stopped = HestStop::UnknownType;
      Walk.Problem = Format ("HEST error source %u at offset 0x%zX has type %u, which has no defined length; the "
                             "%u structures from there on cannot be walked",
                             Index, Offset, Type, Header.ErrorSourceCount - Index);
      return Walk;
    }
    if (Offset + Length > End) {
      Walk.Stopped = HestStop::Overflow;
      Walk.Problem = Format ("HEST error source %u (type %u) at offset 0x%zX needs 0x%X bytes and runs past the table "
                             "end (0x%zX)",
                             Index, Type, Offset, Length, End);
      return Walk;
    }
    Walk.Sources.push_back ({Index, static_cast<UINT32> (Offset), Type, Length, SourceId});
    Offset += Length;
  }
  if (Offset != End) {
    Walk.Problem = Format ("HEST has 0x%zX bytes after its %u error sources", End - Offset, Header.ErrorSourceCount);
  }
  return Walk;
}

void CheckErst (std::span<const UINT8> Bytes, std::vector<std::string> &Warnings) {
  using Entry           = EFI_ACPI_6_3_ERST_SERIALIZATION_INSTRUCTION_ENTRY;
  const auto   Header   = ReadAt<EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_HEADER> (Bytes, 0);
  const UINT64 Expected = kErstSerializationHeaderSize + UINT64{sizeof (Entry)} * Header.InstructionEntryCount;
  if (Header.Header.Length != Expected) {
    throw AcpiTableError (Format ("ERST Length 0x%X does not match %u + %zu x %u entries (0x%llX)",
                                  Header.Header.Length, kErstSerializationHeaderSize, sizeof (Entry),
                                  Header.InstructionEntryCount, static_cast<unsigned long long> (Expected)));
  }
  if (Header.InstructionEntryCount != kErstEntryCount) {
    Warnings.push_back (Format ("ERST has %u instruction entries; the module patches %u as if in action order",
                                Header.InstructionEntryCount, kErstEntryCount));
    return;
  }
  for (UINT32 Index = 0; Index < kErstEntryCount; Index++) {
    const auto Instruction = ReadAt<Entry> (Bytes, kErstSerializationHeaderSize + sizeof (Entry) * Index);
    if (Instruction.SerializationAction != Index) {
      Warnings.push_back (Format ("ERST entry %u holds action 0x%X; the module patches it as action 0x%X", Index,
                                  Instruction.SerializationAction, Index));
    }
  }
}

} // namespace Sim

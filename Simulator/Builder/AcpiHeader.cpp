/** @file
  ACPI table header, identity and checksum helpers.
**/
#include "Builder/AcpiHeader.h"

#include <cstring>

namespace Sim {

UINT8
AcpiByteSum (std::span<const UINT8> Bytes) {
  UINT8 Sum = 0;
  for (UINT8 Byte : Bytes) {
    Sum = static_cast<UINT8> (Sum + Byte);
  }
  return Sum;
}

UINT8
AcpiChecksum (std::span<const UINT8> Bytes) {
  return static_cast<UINT8> (0 - AcpiByteSum (Bytes));
}

std::span<UINT8> AcpiTableBytes (EFI_ACPI_DESCRIPTION_HEADER *Table) {
  return {reinterpret_cast<UINT8 *> (Table), Table->Length};
}

void AcpiUpdateChecksum (EFI_ACPI_DESCRIPTION_HEADER *Table) {
  Table->Checksum = 0;
  Table->Checksum = AcpiChecksum (AcpiTableBytes (Table));
}

void AcpiFillHeader (EFI_ACPI_DESCRIPTION_HEADER *Table, UINT32 Signature, UINT32 Length, UINT8 Revision) {
  Table->Signature = Signature;
  Table->Length    = Length;
  Table->Revision  = Revision;
  Table->Checksum  = 0;
  std::memcpy (Table->OemId, kAcpiOemId, sizeof (Table->OemId));
  std::memcpy (&Table->OemTableId, kAcpiOemTableId, sizeof (Table->OemTableId));
  Table->OemRevision = kAcpiOemRevision;
  std::memcpy (&Table->CreatorId, kAcpiCreatorId, sizeof (Table->CreatorId));
  Table->CreatorRevision = kAcpiCreatorRevision;
}

std::string AcpiSignatureText (UINT32 Signature) {
  std::string Text;
  for (int Shift = 0; Shift < 32; Shift += 8) {
    char Character = static_cast<char> ((Signature >> Shift) & 0xFF);
    Text += (Character >= 0x20 && Character < 0x7F) ? Character : '?';
  }
  return Text;
}

} // namespace Sim

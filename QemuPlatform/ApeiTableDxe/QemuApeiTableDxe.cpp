/** @file
  Installs the platform's APEI tables (HEST, ERST, and an SSDT with the WHEA
  _OSC hand-shake) beside QEMU's own tables, then announces them so that the
  SMM side of the platform, and through it the APEI logging module, starts.

  The status blocks and their address registers are reserved memory, which
  the OS keeps out of its own use.
**/
#include "QemuApeiTables.h"

#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>
#include <Library/DxeServicesLib.h>
#include <Library/MemoryAllocationLib.h>
#include <Library/UefiBootServicesTableLib.h>
#include <Protocol/AcpiTable.h>

#define QEMU_APEI_STATUS_BLOCK_PAGES 2

STATIC CONST CHAR8 mOemId[6]      = {'V', 'O', 'R', 'N', ' ', ' '};
STATIC CONST CHAR8 mOemTableId[8] = {'V', 'O', 'R', 'N', 'Q', 'E', 'M', 'U'};

VOID QemuApeiFillHeader (OUT EFI_ACPI_DESCRIPTION_HEADER *Header,
                         IN UINT32                        Signature,
                         IN UINT32                        Length,
                         IN UINT8                         Revision) {
  Header->Signature = Signature;
  Header->Length    = Length;
  Header->Revision  = Revision;
  CopyMem (Header->OemId, mOemId, sizeof (Header->OemId));
  CopyMem (&Header->OemTableId, mOemTableId, sizeof (Header->OemTableId));
  Header->OemRevision     = 1;
  Header->CreatorId       = SIGNATURE_32 ('V', 'O', 'R', 'N');
  Header->CreatorRevision = 1;
}

/**
  Allocates the status blocks and the registers that hold their addresses,
  all reserved memory and zeroed; StatusRegisters receives the registers'
  addresses.
**/
STATIC EFI_STATUS QemuApeiAllocateStatusBlocks (OUT UINT64 StatusRegisters[QEMU_APEI_GHES_COUNT]) {
  UINT64 *Registers;
  UINT8  *Block;

  Registers = (UINT64 *)AllocateReservedZeroPool (QEMU_APEI_GHES_COUNT * sizeof (UINT64));
  if (Registers == NULL) {
    return EFI_OUT_OF_RESOURCES;
  }

  for (UINTN Index = 0; Index < QEMU_APEI_GHES_COUNT; Index++) {
    Block = (UINT8 *)AllocateReservedPages (QEMU_APEI_STATUS_BLOCK_PAGES);
    if (Block == NULL) {
      return EFI_OUT_OF_RESOURCES;
    }

    ZeroMem (Block, EFI_PAGES_TO_SIZE (QEMU_APEI_STATUS_BLOCK_PAGES));
    Registers[Index]       = (UINTN)Block;
    StatusRegisters[Index] = (UINTN)&Registers[Index];
  }

  return EFI_SUCCESS;
}

/**
  Installs one table; the protocol keeps its own copy.
**/
STATIC EFI_STATUS QemuApeiInstall (IN EFI_ACPI_TABLE_PROTOCOL *AcpiTable, IN VOID *Table, IN UINTN Length) {
  UINTN      TableKey;
  EFI_STATUS Status;

  Status = AcpiTable->InstallAcpiTable (AcpiTable, Table, Length, &TableKey);
  DEBUG ((EFI_ERROR (Status) ? DEBUG_ERROR : DEBUG_INFO, "%a: %.4a: %r\n", __func__, (CHAR8 *)Table, Status));
  return Status;
}

EFI_STATUS
EFIAPI
QemuApeiTableDxeEntry (IN EFI_HANDLE ImageHandle, IN EFI_SYSTEM_TABLE *SystemTable) {
  EFI_STATUS               Status;
  EFI_ACPI_TABLE_PROTOCOL *AcpiTable;
  UINT64                   StatusRegisters[QEMU_APEI_GHES_COUNT];
  QEMU_APEI_HEST           Hest;
  QEMU_APEI_ERST           Erst;
  VOID                    *Ssdt;
  UINTN                    SsdtSize;
  EFI_HANDLE               Handle;

  (VOID) SystemTable;

  Status = gBS->LocateProtocol (&gEfiAcpiTableProtocolGuid, NULL, (VOID **)&AcpiTable);
  if (EFI_ERROR (Status)) {
    return Status;
  }

  Status = QemuApeiAllocateStatusBlocks (StatusRegisters);
  if (EFI_ERROR (Status)) {
    return Status;
  }

  QemuApeiBuildHest (&Hest, StatusRegisters);
  QemuApeiBuildErst (&Erst);

  //
  // The SSDT is this driver's own ASL, compiled into a raw section of its
  // file.
  //
  Status = GetSectionFromFv (&gEfiCallerIdGuid, EFI_SECTION_RAW, 0, &Ssdt, &SsdtSize);
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r reading the _OSC SSDT\n", __func__, Status));
    return Status;
  }

  Status = QemuApeiInstall (AcpiTable, &Hest, sizeof (Hest));
  if (!EFI_ERROR (Status)) {
    Status = QemuApeiInstall (AcpiTable, &Erst, sizeof (Erst));
  }

  if (!EFI_ERROR (Status)) {
    Status = QemuApeiInstall (AcpiTable, Ssdt, SsdtSize);
  }

  FreePool (Ssdt);
  if (EFI_ERROR (Status)) {
    return Status;
  }

  Handle = ImageHandle;
  return gBS->InstallProtocolInterface (&Handle, &gVornQemuApeiTablesReadyProtocolGuid, EFI_NATIVE_INTERFACE, NULL);
}

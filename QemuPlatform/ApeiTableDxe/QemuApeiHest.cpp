/** @file
  The HEST: generic hardware error sources 7 (NMI), 8 (polled) and 0xFFFE
  (the page-retire source, SCI). q35 has no software SCI, so source 8, the
  APEI logging module's SCI source, is declared polled: the module finds its
  blocks by source id, not by notification type.
**/
#include "QemuApeiTables.h"

#include <Library/BaseMemoryLib.h>

#define QEMU_APEI_POLL_INTERVAL_MS 1000

typedef struct {
  UINT16 SourceId;
  UINT8  NotificationType;
  UINT32 PollInterval;
} QEMU_APEI_SOURCE;

STATIC CONST QEMU_APEI_SOURCE mSources[QEMU_APEI_GHES_COUNT] = {
    {VORN_APEI_GHESS_SOURCE_ID_NMI, EFI_ACPI_6_3_HARDWARE_ERROR_NOTIFICATION_NMI, 0},
    {VORN_APEI_GHESS_SOURCE_ID_SCI, EFI_ACPI_6_3_HARDWARE_ERROR_NOTIFICATION_POLLED, QEMU_APEI_POLL_INTERVAL_MS},
    {VORN_APEI_GHESS_SOURCE_ID_SCI_VMWARE_PAGE_RETIRE, EFI_ACPI_6_3_HARDWARE_ERROR_NOTIFICATION_SCI, 0},
};

VOID QemuApeiBuildHest (OUT QEMU_APEI_HEST *Hest, IN CONST UINT64 StatusRegisters[QEMU_APEI_GHES_COUNT]) {
  EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE *Source;

  ZeroMem (Hest, sizeof (*Hest));
  QemuApeiFillHeader (&Hest->Header.Header, EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_SIGNATURE, sizeof (*Hest),
                      EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_REVISION);
  Hest->Header.ErrorSourceCount = QEMU_APEI_GHES_COUNT;

  for (UINTN Index = 0; Index < QEMU_APEI_GHES_COUNT; Index++) {
    Source = &Hest->Source[Index];
    VornApeiFillGhes (Source, mSources[Index].SourceId, mSources[Index].NotificationType);
    Source->ErrorStatusAddress.Address         = StatusRegisters[Index];
    Source->NotificationStructure.PollInterval = mSources[Index].PollInterval;
  }
}

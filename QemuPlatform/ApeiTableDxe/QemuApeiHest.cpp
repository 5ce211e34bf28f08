/** @file
  The HEST: generic hardware error sources 7 (NMI), 8 (polled) and 0xFFFE
  (the page-retire source, SCI). q35 has no software SCI, so source 8, the
  APEI logging module's SCI source, is declared polled: the module finds its
  blocks by source id, not by notification type.
**/
#include "QemuApeiTables.h"

#include <Library/BaseMemoryLib.h>

#define QEMU_APEI_NO_RELATED_SOURCE   0xFFFF
#define QEMU_APEI_STATUS_BLOCK_LENGTH 0x2000
#define QEMU_APEI_MAX_SECTIONS        5
#define QEMU_APEI_POLL_INTERVAL_MS    1000

typedef struct {
  UINT16 SourceId;
  UINT8  NotificationType;
  UINT32 PollInterval;
} QEMU_APEI_SOURCE;

STATIC CONST QEMU_APEI_SOURCE mSources[QEMU_APEI_GHES_COUNT] = {
    {0x0007, EFI_ACPI_6_3_HARDWARE_ERROR_NOTIFICATION_NMI, 0},
    {0x0008, EFI_ACPI_6_3_HARDWARE_ERROR_NOTIFICATION_POLLED, QEMU_APEI_POLL_INTERVAL_MS},
    {0xFFFE, EFI_ACPI_6_3_HARDWARE_ERROR_NOTIFICATION_SCI, 0},
};

VOID QemuApeiBuildHest (OUT QEMU_APEI_HEST *Hest, IN CONST UINT64 StatusRegisters[QEMU_APEI_GHES_COUNT]) {
  EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE *Source;

  ZeroMem (Hest, sizeof (*Hest));
  QemuApeiFillHeader (&Hest->Header.Header, EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_SIGNATURE, sizeof (*Hest),
                      EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_REVISION);
  Hest->Header.ErrorSourceCount = QEMU_APEI_GHES_COUNT;

  for (UINTN Index = 0; Index < QEMU_APEI_GHES_COUNT; Index++) {
    Source                                      = &Hest->Source[Index];
    Source->Type                                = EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR;
    Source->SourceId                            = mSources[Index].SourceId;
    Source->RelatedSourceId                     = QEMU_APEI_NO_RELATED_SOURCE;
    Source->Enabled                             = 1;
    Source->NumberOfRecordsToPreAllocate        = 1;
    Source->MaxSectionsPerRecord                = QEMU_APEI_MAX_SECTIONS;
    Source->ErrorStatusAddress.AddressSpaceId   = EFI_ACPI_6_3_SYSTEM_MEMORY;
    Source->ErrorStatusAddress.RegisterBitWidth = 64;
    Source->ErrorStatusAddress.AccessSize       = EFI_ACPI_6_3_QWORD;
    Source->ErrorStatusAddress.Address          = StatusRegisters[Index];
    Source->NotificationStructure.Type          = mSources[Index].NotificationType;
    Source->NotificationStructure.Length        = sizeof (Source->NotificationStructure);
    Source->NotificationStructure.PollInterval  = mSources[Index].PollInterval;
    Source->ErrorStatusBlockLength              = QEMU_APEI_STATUS_BLOCK_LENGTH;
  }
}

/** @file
  The ERST: the instruction entries the APEI logging module expects, with
  EXECUTE_OPERATION on q35's SMI command port.
**/
#include "QemuApeiTables.h"

#include <IndustryStandard/Q35MchIch9.h>
#include <Library/BaseMemoryLib.h>

VOID QemuApeiBuildErst (OUT QEMU_APEI_ERST *Erst) {
  ZeroMem (Erst, sizeof (*Erst));
  QemuApeiFillHeader (&Erst->Header.Header, EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_SIGNATURE, sizeof (*Erst),
                      EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_REVISION);
  Erst->Header.SerializationHeaderSize = sizeof (Erst->Header);
  Erst->Header.InstructionEntryCount   = QEMU_APEI_ERST_ENTRY_COUNT;

  for (UINTN Index = 0; Index < QEMU_APEI_ERST_ENTRY_COUNT; Index++) {
    VornApeiFillErstEntry (&Erst->Entry[Index], Index, ICH9_APM_CNT);
  }
}

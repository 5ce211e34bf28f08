/** @file
  The APEI tables of QEMU's q35 as this platform lays them out: a HEST with
  the three generic hardware error sources the APEI logging module fills,
  and an ERST whose 16 instruction entries the module points at its
  parameter region.
**/
#pragma once

#include <Uefi.h>

#include <IndustryStandard/Acpi63.h>
#include <VornApeiPlatform.h>

#define QEMU_APEI_GHES_COUNT       3
#define QEMU_APEI_ERST_ENTRY_COUNT VORN_ERST_INSTRUCTION_COUNT

#pragma pack(1)
typedef struct {
  EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_HEADER      Header;
  EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE Source[QEMU_APEI_GHES_COUNT];
} QEMU_APEI_HEST;

typedef struct {
  EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_HEADER Header;
  EFI_ACPI_6_3_ERST_SERIALIZATION_INSTRUCTION_ENTRY    Entry[QEMU_APEI_ERST_ENTRY_COUNT];
} QEMU_APEI_ERST;
#pragma pack()

static_assert (sizeof (EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE) == 64, "GHES size");
static_assert (sizeof (QEMU_APEI_HEST) == 40 + 3 * 64, "HEST size");
static_assert (OFFSET_OF (QEMU_APEI_HEST, Source) == 40, "HEST sources offset");
static_assert (OFFSET_OF (EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE, ErrorStatusAddress) == 20,
               "GHES error status address offset");
static_assert (OFFSET_OF (EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE, NotificationStructure) == 32,
               "GHES notification offset");
static_assert (sizeof (EFI_ACPI_6_3_ERST_SERIALIZATION_INSTRUCTION_ENTRY) == 32, "ERST entry size");
static_assert (sizeof (QEMU_APEI_ERST) == 48 + 16 * 32, "ERST size");
static_assert (OFFSET_OF (QEMU_APEI_ERST, Entry) == 48, "ERST entries offset");

//
// Fills Hest; StatusRegisters[i] is the address of source i's error status
// address register.
//
VOID QemuApeiBuildHest (OUT QEMU_APEI_HEST *Hest, IN CONST UINT64 StatusRegisters[QEMU_APEI_GHES_COUNT]);

//
// Fills Erst. Its memory registers stay 0 until the APEI logging module
// points them at its parameter region; an OS that finds them 0 refuses the
// table.
//
VOID QemuApeiBuildErst (OUT QEMU_APEI_ERST *Erst);

//
// Gives an ACPI header this platform's identification.
//
VOID QemuApeiFillHeader (OUT EFI_ACPI_DESCRIPTION_HEADER *Header,
                         IN UINT32                        Signature,
                         IN UINT32                        Length,
                         IN UINT8                         Revision);

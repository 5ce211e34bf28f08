/** @file
  EFI_VORN_APEI_LOGGING_SMM_PROTOCOL: the SMM interface through which the
  platform's error handlers hand single-section CPER records to the APEI
  generic error status blocks and raise the SCI or NMI that makes the OS read
  them.
**/
#pragma once

#include <Uefi.h>
#include <Guid/Cper.h>
#include <IndustryStandard/Acpi.h>

extern EFI_GUID gEfiVornApeiLoggingSmmProtocolGuid;

typedef EFI_ACPI_6_3_GENERIC_ERROR_STATUS_STRUCTURE     GENERIC_ERROR_STATUS;
typedef EFI_ACPI_6_3_GENERIC_ERROR_DATA_ENTRY_STRUCTURE GENERIC_ERROR_DATA_ENTRY;

//
// The record exchanged with error handlers: header, exactly one section
// descriptor, then the section body at byte 200.
//
#pragma pack(1)
typedef struct {
  EFI_COMMON_ERROR_RECORD_HEADER Header;
  EFI_ERROR_SECTION_DESCRIPTOR   Descriptor;
  UINT8                          Section[];
} CPER_RECORD;
#pragma pack()

static_assert (OFFSET_OF (CPER_RECORD, Descriptor) == 128, "CPER descriptor offset");
static_assert (OFFSET_OF (CPER_RECORD, Section) == 200, "CPER section offset");

typedef struct _EFI_VORN_APEI_LOGGING_SMM_PROTOCOL EFI_VORN_APEI_LOGGING_SMM_PROTOCOL;

typedef EFI_STATUS (EFIAPI *VORN_ELOG_IS_APEI_OS_LOADED) (OUT BOOLEAN *pIsApeiOsLoaded);
typedef EFI_STATUS (EFIAPI *VORN_ELOG_CLEAR) (IN EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *pThis,
                                              IN GENERIC_ERROR_STATUS               *pGesb,
                                              IN UINTN                               GesbLength);
typedef EFI_STATUS (EFIAPI *VORN_ELOG_CLEAR_ALL) (IN EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *pThis);
typedef EFI_STATUS (EFIAPI *VORN_ELOG_RECORD) (IN EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *pThis,
                                               IN CPER_RECORD                        *pCper,
                                               IN UINT32                              ErrorSeverity);
typedef EFI_STATUS (EFIAPI *VORN_ELOG_RECORD_MEMORY_PAGE_RETIRE) (IN EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *pThis,
                                                                  IN VOID                               *Reserved,
                                                                  IN CHAR8                              *pFruText,
                                                                  IN UINT64 PhysicalAddress,
                                                                  IN UINT64 ErrorStatusCount);
typedef EFI_STATUS (EFIAPI *VORN_ELOG_SIGNAL_SCI) (IN EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *pThis, IN UINT32 SciCause);
typedef EFI_STATUS (EFIAPI *VORN_ELOG_SIGNAL_NMI) (IN EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *pThis);

//
// Seven operations in this order; the first takes no pThis.
//
struct _EFI_VORN_APEI_LOGGING_SMM_PROTOCOL {
  VORN_ELOG_IS_APEI_OS_LOADED         ElogIsApeiOsLoaded;
  VORN_ELOG_CLEAR                     ElogClear;
  VORN_ELOG_CLEAR_ALL                 ElogClearAll;
  VORN_ELOG_RECORD                    ElogRecord;
  VORN_ELOG_RECORD_MEMORY_PAGE_RETIRE ElogRecordMemoryPageRetire;
  VORN_ELOG_SIGNAL_SCI                ElogSignalSci;
  VORN_ELOG_SIGNAL_NMI                ElogSignalNmi;
};

static_assert (sizeof (EFI_VORN_APEI_LOGGING_SMM_PROTOCOL) == 56, "seven slots");

/** @file
  Appending one CPER section to a generic error status block as a generic
  error data entry (GEDE) followed by its section data (GED).
**/
#include "VornApeiLoggingSmm.h"
#include "ElogStatusBlock.h"

#include <Guid/Cper.h>
#include <CperSections.h>
#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>
#include <Library/ElogBaseLib.h>
#include <Library/ElogCperDump.h>
#include <Library/PcdLib.h>

//
// Buffers for naming a CXL component event identifier: the record name and
// the 36-character UUID text with its terminator.
//
#define VORN_APEI_CXL_EVENT_NAME_SIZE 100
#define VORN_APEI_UUID_TEXT_SIZE      37

//
// The standard section types a block accepts, in the order they are tested,
// each with its detection message.
//
typedef struct {
  CONST EFI_GUID *pSectionType;
  CONST CHAR8    *pDetectedMessage;
} VORN_APEI_GHESS_SECTION_TYPE;

STATIC CONST VORN_APEI_GHESS_SECTION_TYPE mGhessSectionTypes[] = {
    {&gEfiProcessorGenericErrorSectionGuid, "%a: UEFI CPER Section Type %g (Processor Generic) detected\n"},
    {&gEfiProcessorSpecificErrorSectionGuid, "%a: UEFI CPER Section Type %g (Processor Specific) detected\n"},
    {&gEfiPlatformMemoryErrorSectionGuid, "%a: UEFI CPER Section Type %g (Memory) detected\n"},
    {&gEfiPcieErrorSectionGuid, "%a: UEFI CPER Section Type %g (PCIe) detected\n"},
    {&gEfiPciDevErrorSectionGuid, "%a: UEFI CPER Section Type %g (PCI Dev/Component) detected\n"},
    {&gEfiCxlProtocolErrorSectionGuid, "%a: UEFI CPER Section Type %g (CXL Protocol) detected\n"},
};

/**
  TRUE when the unit-test switch asks for a recoverable severity to be
  raised to fatal, so that the OS serialises the error through the ERST.
  The switch is never set by the module itself.
**/
STATIC
BOOLEAN
VornApeiLoggingElogSeverityOverridden (IN UINT32 Severity) {
  return mPrivateDataVornApeiLogging.ErstUnitTestSeverityOverride &&
         (mPrivateDataVornApeiLogging.RasErrorLoggingMode == RasDiagnosticMode) &&
         (Severity == EFI_ACPI_6_3_ERROR_SEVERITY_RECOVERABLE);
}

/**
  Appends the record's section to the block at pGesb: checks the section
  type, keeps the block within the fixed region and entry limits, updates
  BlockStatus, DataLength and the entry count, then writes the data entry and
  copies the section body. A refused record leaves the block untouched.
**/
EFI_STATUS
VornApeiLoggingElogPopulateGhess (IN EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *pThis,
                                  IN CPER_RECORD                        *pCper,
                                  IN GENERIC_ERROR_STATUS               *pGesb,
                                  IN UINT64                              GesbLength) {
  EFI_STATUS                    Status;
  EFI_ERROR_SECTION_DESCRIPTOR *pDescriptor;
  EFI_GUID                      SectionType;
  EFI_GUID                      FruId;
  UINTN                         Index;
  BOOLEAN                       Recognized;
  CHAR8                         EventName[VORN_APEI_CXL_EVENT_NAME_SIZE];
  CHAR8                         UuidText[VORN_APEI_UUID_TEXT_SIZE];
  UINT8                         Identifier[sizeof (EFI_GUID)];
  GENERIC_ERROR_STATUS          Gesb;
  GENERIC_ERROR_DATA_ENTRY     *pGede;
  UINT8                        *pGed;
  UINT32                        SectionLength;
  UINT32                        NewLength;
  UINT32                        EntryCount;
  UINT32                        Severity;

  if (pThis == NULL) {
    DEBUG (
        (DEBUG_ERROR, "%a: ERROR pThis *EFI_VORN_APEI_LOGGING_SMM_PROTOCOL is null on entry, aborting...\n", __func__));
    return EFI_INVALID_PARAMETER;
  }

  if (pCper == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pCper is null on entry, aborting...\n", __func__));
    return EFI_INVALID_PARAMETER;
  }

  if (pGesb == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pGesb is null on entry, aborting...\n", __func__));
    return EFI_INVALID_PARAMETER;
  }

  if (GesbLength == 0) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR GesbLength == 0, aborting...\n", __func__));
    return EFI_INVALID_PARAMETER;
  }

  //
  // Kept as a second line of defence should the checks above ever change.
  //
  if ((pCper == NULL) || (pGesb == NULL)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR one or more input parameters are null, aborting...\n", __func__));
    return EFI_INVALID_PARAMETER;
  }

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed, "%a: Entering\n", __func__));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed, "%a: pCper                   0x%016lx\n", __func__,
          (UINT64)(UINTN)pCper));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed, "%a: &pCper->Header          0x%016lx\n", __func__,
          (UINT64)(UINTN)&pCper->Header));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed, "%a: &pCper->Descriptor      0x%016lx\n", __func__,
          (UINT64)(UINTN)&pCper->Descriptor));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed, "%a: &pCper->Section         0x%016lx\n", __func__,
          (UINT64)(UINTN)pCper->Section));

  //
  // Only the first descriptor counts, and its body is always the one at
  // byte 200, whatever SectionCount and SectionOffset say.
  //
  pDescriptor   = &pCper->Descriptor;
  SectionType   = pDescriptor->SectionType;
  SectionLength = pDescriptor->SectionLength;

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: Determining CPER section type\n", __func__));
  Recognized = FALSE;
  for (Index = 0; Index < ARRAY_SIZE (mGhessSectionTypes); Index++) {
    if (CompareGuid (&SectionType, mGhessSectionTypes[Index].pSectionType)) {
      DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, mGhessSectionTypes[Index].pDetectedMessage, __func__,
              &SectionType));
      Recognized = TRUE;
      break;
    }
  }

  if (!Recognized) {
    //
    // CXL component events carry their identifier in the big-endian byte
    // order of the CXL event record, so they are matched as raw bytes (with
    // the switch, after reading the section type as an EFI GUID).
    //
    ZeroMem (EventName, sizeof (EventName));
    ZeroMem (UuidText, sizeof (UuidText));
    VornElogCxlSectionTypeToIdentifier ((UINT8 *)&SectionType, Identifier);
    Status = VornElogCxlConvertComponentEventRecordIdentiferUuidToString (Identifier, EventName, sizeof (EventName));
    if (EFI_ERROR (Status)) {
      DEBUG ((DEBUG_ERROR, "%a: ERROR CPER Descriptor->SectionType GUID %g not recognized type, aborting...\n",
              __func__, &SectionType));
      return EFI_UNSUPPORTED;
    }

    VornElogConvertUuidToAsciiString (Identifier, UuidText);
    DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: UEFI CPER Section Type %a (CXL Component UUID %a)\n",
            __func__, EventName, UuidText));
  }

  //
  // The block lies wherever the Error Status Address register pointed. The
  // header fields decided on, BlockStatus to DataLength, are read once
  // through the checked copy (the severity behind them is only written);
  // the entry's first access is the checked copy of its section type.
  //
  CopyMem (&Gesb, pGesb, OFFSET_OF (GENERIC_ERROR_STATUS, ErrorSeverity));
  pGede = (GENERIC_ERROR_DATA_ENTRY *)((UINT8 *)pGesb + sizeof (GENERIC_ERROR_STATUS) + Gesb.DataLength);
  pGed  = (UINT8 *)pGede + sizeof (GENERIC_ERROR_DATA_ENTRY);
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed,
          "%a: pGesb @ 0x%016lx size GENERIC_ERROR_STATUS 0x%08x (%d) pGesb->DataLength 0x%08x (%d)\n", __func__,
          (UINT64)(UINTN)pGesb, (UINT32)sizeof (GENERIC_ERROR_STATUS), (UINT32)sizeof (GENERIC_ERROR_STATUS),
          Gesb.DataLength, Gesb.DataLength));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed, "%a: pGede @ 0x%016lx size 0x%08x (%d)\n", __func__,
          (UINT64)(UINTN)pGede, (UINT32)sizeof (GENERIC_ERROR_DATA_ENTRY), (UINT32)sizeof (GENERIC_ERROR_DATA_ENTRY)));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed, "%a: pGedCperSectionData @ 0x%016lx\n", __func__,
          (UINT64)(UINTN)pGed));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed,
          "%a: Max     GESB/GEDE/GED Max Length        = 0x%08x (%d)\n", __func__, VORN_APEI_GESB_MAX_REGION_LENGTH,
          VORN_APEI_GESB_MAX_REGION_LENGTH));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed,
          "%a: sizeof  GENERIC_ERROR_STATUS            = 0x%08x (%d)\n", __func__,
          (UINT32)sizeof (GENERIC_ERROR_STATUS), (UINT32)sizeof (GENERIC_ERROR_STATUS)));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed,
          "%a: Current pGesb->DataLength               = 0x%08x (%d)\n", __func__, Gesb.DataLength, Gesb.DataLength));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed,
          "%a: sizeof  GENERIC_ERROR_DATA_ENTRY        = 0x%08x (%d)\n", __func__,
          (UINT32)sizeof (GENERIC_ERROR_DATA_ENTRY), (UINT32)sizeof (GENERIC_ERROR_DATA_ENTRY)));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed,
          "%a: New     GED CPER Section Length         = 0x%08x (%d)\n", __func__, SectionLength, SectionLength));

  //
  // The limit is the fixed region, never the HEST block length: the length
  // is only required to be non-zero. The sum wraps in 32 bits.
  //
  NewLength = (UINT32)sizeof (GENERIC_ERROR_STATUS) + Gesb.DataLength + (UINT32)sizeof (GENERIC_ERROR_DATA_ENTRY) +
              SectionLength;
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: New GESB/GEDE/GED Region Length = 0x%08x (%d)\n", __func__,
          NewLength, NewLength));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel,
          "%a: Checking for GHESS Error Status Data Block GESB/GEDE/GED region buffer overrun\n", __func__));
  if (NewLength > VORN_APEI_GESB_MAX_REGION_LENGTH) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR new GESB/GEDE/GED Region Length %d > Max Length %d, aborting...\n", __func__,
            NewLength, VORN_APEI_GESB_MAX_REGION_LENGTH));
    return EFI_BUFFER_TOO_SMALL;
  }

  //
  // The OS reads no further than the length the HEST declares for the block.
  //
  if (FeaturePcdGet (PcdVornFixHestLength) &&
      ((UINT64)sizeof (GENERIC_ERROR_STATUS) + Gesb.DataLength + sizeof (GENERIC_ERROR_DATA_ENTRY) + SectionLength >
       GesbLength)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR new GESB/GEDE/GED Region Length 0x%lx > GHESS block length 0x%lx, aborting...\n",
            __func__,
            (UINT64)sizeof (GENERIC_ERROR_STATUS) + Gesb.DataLength + sizeof (GENERIC_ERROR_DATA_ENTRY) + SectionLength,
            GesbLength));
    return EFI_BUFFER_TOO_SMALL;
  }

  //
  // The section body is taken from byte 200 whatever the record says; with
  // the switch it must also lie inside the record.
  //
  if (FeaturePcdGet (PcdVornFixCperBounds) &&
      ((UINT64)OFFSET_OF (CPER_RECORD, Section) + SectionLength > pCper->Header.RecordLength)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR section of %d bytes at offset %d runs past RecordLength %d, aborting...\n",
            __func__, SectionLength, (UINT32)OFFSET_OF (CPER_RECORD, Section), pCper->Header.RecordLength));
    return EFI_INVALID_PARAMETER;
  }

  EntryCount = Gesb.BlockStatus.ErrorDataEntryCount;
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel,
          "%a: Checking for GHESS Error Status Data Block GESB/GEDE/GED region max error sections\n", __func__));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: Max     ErrorDataEntryCount = %d\n", __func__,
          VORN_APEI_GESB_MAX_ERROR_DATA_ENTRY_COUNT));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: Current ErrorDataEntryCount = %d\n", __func__, EntryCount));
  if (EntryCount >= VORN_APEI_GESB_MAX_ERROR_DATA_ENTRY_COUNT) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR Already reached max ErrorDataEntryCount limit %d, aborting...\n", __func__,
            VORN_APEI_GESB_MAX_ERROR_DATA_ENTRY_COUNT));
    return EFI_BUFFER_TOO_SMALL;
  }

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: Populating APEI data structures\n", __func__));
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: Updating Generic Error Status Block %d bytes @ 0x%016lx\n",
          __func__, (UINT32)sizeof (GENERIC_ERROR_STATUS), (UINT64)(UINTN)pGesb));

  Gesb.ErrorSeverity = pCper->Header.ErrorSeverity;
  if (VornApeiLoggingElogSeverityOverridden (Gesb.ErrorSeverity)) {
    DEBUG (
        (mPrivateDataVornApeiLogging.SerDbgLevel,
         "%a: RAS diagnostic mode - Override GESB Severity Recoverable %d to Fatal %d for unit testing ERST support\n",
         __func__, Gesb.ErrorSeverity, EFI_ACPI_6_3_ERROR_SEVERITY_FATAL));
    Gesb.ErrorSeverity = EFI_ACPI_6_3_ERROR_SEVERITY_FATAL;
  }

  //
  // The section's own severity drives the valid bits. A recoverable error is
  // both uncorrected and, once recovered, corrected: it marks both halves.
  //
  Severity = pDescriptor->Severity;
  if ((Severity == EFI_GENERIC_ERROR_FATAL) || (Severity == EFI_GENERIC_ERROR_RECOVERABLE)) {
    if (Gesb.BlockStatus.UncorrectableErrorValid) {
      DEBUG (
          (mPrivateDataVornApeiLogging.SerDbgLevel,
           "%a: GESB BlockStatus.UncorrectableErrorValid bit set on entry, setting MultipleUncorrectableErrors bit\n",
           __func__));
      Gesb.BlockStatus.MultipleUncorrectableErrors = 1;
    } else {
      Gesb.BlockStatus.UncorrectableErrorValid = 1;
    }
  }

  if ((Severity == EFI_GENERIC_ERROR_CORRECTED) || (Severity == EFI_GENERIC_ERROR_RECOVERABLE)) {
    if (Gesb.BlockStatus.CorrectableErrorValid) {
      DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel,
              "%a: GESB BlockStatus.CorrectableErrorValid bit set on entry, setting MultipleCorrectableErrors bit\n",
              __func__));
      Gesb.BlockStatus.MultipleCorrectableErrors = 1;
    } else {
      Gesb.BlockStatus.CorrectableErrorValid = 1;
    }
  }

  Gesb.DataLength += SectionLength + (UINT32)sizeof (GENERIC_ERROR_DATA_ENTRY);
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: New     pGesb->DataLength               = 0x%08x (%d)\n",
          __func__, Gesb.DataLength, Gesb.DataLength));

  Gesb.BlockStatus.ErrorDataEntryCount++;
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: New     ErrorDataEntryCount = %d\n", __func__,
          (UINT32)Gesb.BlockStatus.ErrorDataEntryCount));

  *pGesb = Gesb; // where the checked copy read it
  DEBUG_CODE (DisplayWheaGenericErrorStatusBlock (mPrivateDataVornApeiLogging.SerDbgLevel, pGesb););
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: Updating Generic Error Data Entry %d bytes @ 0x%016lx\n",
          __func__, (UINT32)sizeof (GENERIC_ERROR_DATA_ENTRY), (UINT64)(UINTN)pGede));

  CopyMem (pGede->SectionType, &SectionType, sizeof (pGede->SectionType));
  pGede->ErrorSeverity = Severity;
  if (VornApeiLoggingElogSeverityOverridden (pGede->ErrorSeverity)) {
    DEBUG (
        (mPrivateDataVornApeiLogging.SerDbgLevel,
         "%a: RAS diagnostic mode - Override GEDE Severity Recoverable %d to Fatal %d for unit testing ERST support\n",
         __func__, pGede->ErrorSeverity, EFI_ACPI_6_3_ERROR_SEVERITY_FATAL));
    pGede->ErrorSeverity = EFI_ACPI_6_3_ERROR_SEVERITY_FATAL;
  }

  pGede->Revision        = EFI_ACPI_6_3_GENERIC_ERROR_DATA_ENTRY_REVISION;
  pGede->Flags           = (UINT8)pDescriptor->SectionFlags;
  pGede->ErrorDataLength = SectionLength;
  CopyMem (pGede->Timestamp, &pCper->Header.TimeStamp, sizeof (pGede->Timestamp));

  //
  // The timestamp is filled but its validation bit stays clear; FRU fields
  // that the record does not vouch for keep what the block held.
  //
  if ((pDescriptor->SecValidMask & EFI_ERROR_SECTION_FRU_ID_VALID) != 0) {
    pGede->ValidationBits |= EFI_ERROR_SECTION_FRU_ID_VALID;
    FruId = pDescriptor->FruId;
    CopyMem (pGede->FruId, &FruId, sizeof (pGede->FruId));
  }

  if ((pDescriptor->SecValidMask & EFI_ERROR_SECTION_FRU_STRING_VALID) != 0) {
    pGede->ValidationBits |= EFI_ERROR_SECTION_FRU_STRING_VALID;
    CopyMem (pGede->FruText, pDescriptor->FruString, sizeof (pGede->FruText));
  }

  DEBUG_CODE (DisplayWheaGenericErrorDataEntryv63 (mPrivateDataVornApeiLogging.SerDbgLevel, pGede););
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel,
          "%a: Copying UEFI CPER error section %d bytes from src (CPER) 0x%016lx to dst (GHESS GED) 0x%016lx\n",
          __func__, SectionLength, (UINT64)(UINTN)pCper->Section, (UINT64)(UINTN)pGed));
  CopyMem (pGed, pCper->Section, SectionLength);

  //
  // The section type the entry was written from, not a second read of the
  // block.
  //
  DEBUG_CODE (DisplayWheaGenericErrorDataOfLength (mPrivateDataVornApeiLogging.SerDbgLevel, &SectionType, pGed,
                                                   SectionLength););
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed, "%a: Exiting\n", __func__));
  return EFI_SUCCESS;
}

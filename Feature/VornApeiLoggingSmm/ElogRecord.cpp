/** @file
  Recording of a CPER section into the NMI or SCI generic error status block.
**/
#include "VornApeiLoggingSmm.h"

#include <Guid/Cper.h>
#include <CperSections.h>
#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>
#include <Library/ElogBaseLib.h>
#include <Library/ElogCperDump.h>

//
// Holds the longest severity name ("Recoverable") with room to spare.
//
#define VORN_APEI_SEVERITY_NAME_SIZE 25

/**
  Chooses the block for a record and appends its section to it. Fatal errors,
  and recoverable PCIe and CXL errors, go to the NMI block; everything else to
  the SCI block. A record lost to a full block still reports success, so that
  the caller's error flow goes on.
**/
EFI_STATUS
EFIAPI
VornApeiLoggingElogRecord (IN EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *pThis,
                           IN CPER_RECORD                        *pCper,
                           IN UINT32                              ErrorSeverity) {
  EFI_STATUS            Status;
  EFI_GUID              SectionType;
  BOOLEAN               IsPcie;
  BOOLEAN               IsCxlProtocol;
  BOOLEAN               IsCxlComponent;
  BOOLEAN               UseNmi;
  BOOLEAN               Printed;
  CHAR8                 SeverityName[VORN_APEI_SEVERITY_NAME_SIZE];
  GENERIC_ERROR_STATUS *pGesb;
  GENERIC_ERROR_STATUS  Gesb;
  UINT64                GesbLength;

  if (pThis == NULL) {
    DEBUG (
        (DEBUG_ERROR, "%a: ERROR pThis *EFI_VORN_APEI_LOGGING_SMM_PROTOCOL is null on entry, aborting...\n", __func__));
    return EFI_INVALID_PARAMETER;
  }

  if (pCper == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pCper is null on entry, aborting...\n", __func__));
    return EFI_INVALID_PARAMETER;
  }

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed, "%a: Entering\n", __func__));

  if (!mPrivateDataVornApeiLogging.IsApeiOsLoaded) {
    DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: ERROR APEI O/S not present, aborting...\n", __func__));
    return EFI_NOT_READY;
  }

  SectionType   = pCper->Descriptor.SectionType;
  IsPcie        = CompareGuid (&SectionType, &gEfiPcieErrorSectionGuid);
  IsCxlProtocol = CompareGuid (&SectionType, &gEfiCxlProtocolErrorSectionGuid);
  IsCxlComponent =
      VornElogCxlCheckComponentEventSectionType (mPrivateDataVornApeiLogging.SerDbgLevel, (UINT8 *)&SectionType);

  //
  // The name is wanted only when the line prints; the converter also runs
  // for the error line it logs for an unknown severity.
  //
  Printed = DebugPrintEnabled () && DebugPrintLevelEnabled (mPrivateDataVornApeiLogging.SerDbgLevelDetailed);
  if (Printed || !CperSeverityIsKnown (ErrorSeverity)) {
    ZeroMem (SeverityName, sizeof (SeverityName));
    ConvertCperSeverityToString (ErrorSeverity, SeverityName, Printed ? sizeof (SeverityName) : 1);
  }
  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed,
          "%a: Error Severity %d (%a) IsPcie %d IsCxlProtocol %d IsCxlComponent %d\n", __func__, ErrorSeverity,
          SeverityName, IsPcie, IsCxlProtocol, IsCxlComponent));

  //
  // The caller's severity decides, not the severities inside the record.
  //
  UseNmi = (ErrorSeverity == EFI_GENERIC_ERROR_FATAL) ||
           ((ErrorSeverity == EFI_GENERIC_ERROR_RECOVERABLE) && (IsPcie || IsCxlProtocol || IsCxlComponent));
  if (UseNmi) {
    DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: Find GHESS (NMI notification) Error Status Data Block\n",
            __func__));
    pGesb      = (GENERIC_ERROR_STATUS *)(UINTN)mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlkNmi;
    GesbLength = mPrivateDataVornApeiLogging.ApeiHestGhessErrStsDataBlkLengthNmi;
  } else {
    DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: Find GHESS (SCI notification) Error Status Data Block\n",
            __func__));
    pGesb      = (GENERIC_ERROR_STATUS *)(UINTN)mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlkSci;
    GesbLength = mPrivateDataVornApeiLogging.ApeiHestGhessErrStsDataBlkLengthSci;
  }

  if (pGesb == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pointer to GHESS Error Status Data Block is null, aborting...\n", __func__));
    return EFI_NOT_FOUND;
  }

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel, "%a: GHESS Error Status Data Block @ 0x%016lx\n", __func__,
          (UINT64)(UINTN)pGesb));
  //
  // The block's header is read through the checked copy, and only for the
  // line; populating it takes its own copy.
  //
  if (Printed) {
    CopyMem (&Gesb, pGesb, sizeof (Gesb));
    DEBUG ((
        mPrivateDataVornApeiLogging.SerDbgLevelDetailed,
        "%a: EFI_ACPI_6_3_GENERIC_ERROR_STATUS_STRUCTURE Length 0x%016lx [GESB/GEDE/GED]DataLength 0x%016lx RawDataLength 0x%016lx RawDataOffset 0x%016lx\n",
        __func__, (UINT64)sizeof (GENERIC_ERROR_STATUS), (UINT64)Gesb.DataLength, (UINT64)Gesb.RawDataLength,
        (UINT64)Gesb.RawDataOffset));
  }

  Status = VornApeiLoggingElogPopulateGhess (pThis, pCper, pGesb, GesbLength);
  if (EFI_ERROR (Status)) {
    DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed, "%a: Error %r populating GHESS Error Status Data Block\n",
            __func__, Status));
    if (Status == EFI_UNSUPPORTED) {
      DEBUG ((DEBUG_ERROR, "%a: UEFI CPER error record type GUID not recognized\n", __func__));
    } else if (Status == EFI_BUFFER_TOO_SMALL) {
      DEBUG ((DEBUG_ERROR, "%a: Error record buffer overflow, ignoring error and continuing...\n", __func__));
      Status = EFI_SUCCESS;
    } else if (Status == EFI_NOT_FOUND) {
      DEBUG ((DEBUG_ERROR, "%a: Unable to dereference GESB/GEDE/GED regions\n", __func__));
    } else if (Status == EFI_ALREADY_STARTED) {
      DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevel,
              "%a: Error overflow before O/S processed HEST, continue execution\n", __func__));
    }
  }

  DEBUG ((mPrivateDataVornApeiLogging.SerDbgLevelDetailed, "%a: Exiting\n", __func__));
  return Status;
}

/** @file
  The error-log protocol instance the module installs, and its query of
  whether an APEI-aware OS has taken over the status blocks.
**/
#include "VornApeiLoggingSmm.h"

#include <Library/DebugLib.h>

//
// Filled at build time so that the table is valid before start-up runs.
//
EFI_VORN_APEI_LOGGING_SMM_PROTOCOL mVornApeiLoggingSmmProtocol = {
    VornApeiLoggingElogIsApeiOsLoaded,
    VornApeiLoggingElogClear,
    VornApeiLoggingElogClearAll,
    VornApeiLoggingElogRecord,
    VornApeiLoggingElogRecordMemoryPageRetire,
    VornApeiLoggingElogSignalSci,
    VornApeiLoggingElogSignalNmi,
};

/**
  Reports whether the OS has enabled APEI through its software SMI.
**/
EFI_STATUS
EFIAPI
VornApeiLoggingElogIsApeiOsLoaded (OUT BOOLEAN *pIsApeiOsLoaded) {
  if (pIsApeiOsLoaded == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pIsApeiOsLoaded is null on entry, aborting...\n", __func__));
    return EFI_INVALID_PARAMETER;
  }

  *pIsApeiOsLoaded = mPrivateDataVornApeiLogging.IsApeiOsLoaded;
  return EFI_SUCCESS;
}

/** @file
  Retiring the older copies of an identifier once a newer copy is stored,
  so that an identifier names one live record.
**/
#include "VornApeiLoggingSmm.h"
#include "ErstRecordOps.h"
#include "ErstRecordScan.h"

#include <Library/DebugLib.h>

/**
  Marks every record before NewHeaderAddress that carries RecordId and that
  the OS has not cleared as cleared by the OS. Called only once the new copy
  is on flash: a power cut in between leaves both copies, never neither.
  When the OS's record cursor named the identifier it restarts at the first
  live record, since the old copy's place in the chain is gone.
**/
VOID VornApeiLoggingErstSupersedeRecord (IN UINT64 RecordId, IN UINT64 NewHeaderAddress) {
  ERST_RECORD_SCAN Scan;
  UINT64           Level;
  BOOLEAN          Superseded;

  Level      = mPrivateDataVornApeiLogging.SerDbgLevel;
  Superseded = FALSE;
  VornApeiLoggingErstScanBegin (&Scan);
  while ((Scan.HeaderAddress != NewHeaderAddress) &&
         !EFI_ERROR (VornApeiLoggingErstScanRead (__func__, Level, &Scan)) &&
         VornApeiLoggingErstScanHoldsRecord (&Scan)) {
    if ((Scan.pData->Header.OsRecordID == RecordId) && (Scan.pData->Flags.RecordClearPerOspm == 0xFF)) {
      DEBUG ((Level, "%a: Record %d => RecordID 0x%016lx superseded by the copy @ 0x%016lx\n", __func__,
              Scan.RecordIndex, RecordId, NewHeaderAddress));
      Superseded |= !EFI_ERROR (VornApeiLoggingErstSetRecordClearPerOspm (Scan.pData->Header.OsRecordFlagsAddress));
    }

    if (!VornApeiLoggingErstScanAdvance (&Scan)) {
      break;
    }
  }

  if (Superseded && (mPrivateDataVornApeiLogging.pErstParameterBlock->CurRecordID == RecordId)) {
    VornApeiLoggingGetFirstOsRecordId (&mPrivateDataVornApeiLogging.pErstParameterBlock->CurRecordID);
  }
}

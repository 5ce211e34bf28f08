/** @file
  The bench's ERST software SMI.
**/
#include "ErstSmi.h"
#include "Measure.h"

#include <Host.h>
#include <Library/IoLib.h>
#include <VornApeiLoggingSmm.h>

namespace Bench {

void ErstPrepare (UINT64 Command, UINT64 RecordId) {
  VORN_ERST_PARAMETER_REGION *Region = mPrivateDataVornApeiLogging.pErstParameterBlock;
  Region->Command                    = Command;
  Region->RecordID                   = RecordId;
  Region->LogOffset                  = 0;
}

UINT64 ErstRaise () {
  IoWrite8 (Host::kSmiCommandPort, VORN_APEI_ERST_SW_SMI_VALUE);
  return mPrivateDataVornApeiLogging.pErstParameterBlock->Status;
}

UINT64 ErstCurrentRecordId () {
  return mPrivateDataVornApeiLogging.pErstParameterBlock->CurRecordID;
}

void ErstEnumerate (UINT64 Records) {
  UINT64 Steps = 0;
  for (UINT64 Id = ErstCurrentRecordId (); Id != kNoRecord && Steps <= Records; Id = ErstCurrentRecordId ()) {
    ErstPrepare (1, Id);
    ErstRaise ();
    Steps++;
  }
  Require (Steps == Records, "the enumeration did not list every record once");
}

} // namespace Bench

/** @file
  Assertion report: one prefixed line, then a breakpoint or a dead loop as
  the platform's debug properties ask.
**/
#include "VornMultiThreadedDebugLibInternal.h"

#include <Library/BaseLib.h>
#include <Library/DebugLib.h>
#include <Library/PcdLib.h>
#include <Library/PrintLib.h>

/**
  Reports a failed assertion and stops the processor if so configured.
**/
VOID DebugAssert (IN CONST CHAR8 *FileName, IN UINTN LineNumber, IN CONST CHAR8 *Description) {
  CHAR8 Prefix[VORN_MT_DEBUG_MESSAGE_LENGTH];
  CHAR8 Message[VORN_MT_DEBUG_MESSAGE_LENGTH];
  UINT8 Properties;

  VornMtDebugBuildPrefix (Prefix, sizeof (Prefix));
  AsciiSPrint (Message, sizeof (Message), "ASSERT [%a] %a(%d): %a\n", VORN_MT_DEBUG_CALLER_BASE_NAME, FileName,
               (INT32)LineNumber, Description);
  VornMtDebugWrite (Prefix, Message);

  Properties = PcdGet8 (PcdDebugPropertyMask);
  if ((Properties & DEBUG_PROPERTY_ASSERT_BREAKPOINT_ENABLED) != 0) {
    CpuBreakpoint ();
  } else if ((Properties & DEBUG_PROPERTY_ASSERT_DEADLOOP_ENABLED) != 0) {
    CpuDeadLoop ();
  }
}

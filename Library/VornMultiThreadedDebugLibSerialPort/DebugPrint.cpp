/** @file
  DebugPrint and DebugVPrint: level filter, processor prefix, one locked
  write per message.
**/
#include "VornMultiThreadedDebugLibInternal.h"

#include <Library/DebugLib.h>
#include <Library/DebugPrintErrorLevelLib.h>
#include <Library/PrintLib.h>

MODULE_DATA UINT32  mVornMtDebugPrintErrorLevel;
MODULE_DATA BOOLEAN mVornMtDebugPrintErrorLevelCached;
MODULE_DATA UINT32  mVornMtDebugPrintLevelGate = MAX_UINT32;

/**
  The platform's run-time print level, read once. Processors may race on the
  first read; they all store the same value.
**/
UINT32 VornMtDebugFetchRunTimeLevel (VOID) {
  UINT32 Level;

  Level = GetDebugPrintErrorLevel ();
  __atomic_store_n (&mVornMtDebugPrintErrorLevel, Level, __ATOMIC_RELAXED);
  __atomic_store_n (&mVornMtDebugPrintLevelGate, Level, __ATOMIC_RELAXED);
  __atomic_store_n (&mVornMtDebugPrintErrorLevelCached, TRUE, __ATOMIC_RELEASE);
  return Level;
}

/**
  Prints a message from a variable argument list if ErrorLevel passes the
  run-time filter.
**/
VOID DebugVPrint (IN UINTN ErrorLevel, IN CONST CHAR8 *Format, IN VA_LIST VaListMarker) {
  CHAR8 Prefix[VORN_MT_DEBUG_MESSAGE_LENGTH];
  CHAR8 Message[VORN_MT_DEBUG_MESSAGE_LENGTH];

  if (Format == NULL) {
    if (DebugAssertEnabled ()) {
      DebugAssert (VORN_MT_DEBUG_SOURCE_NAME, VORN_MT_DEBUG_FORMAT_ASSERT_LINE, "Format != ((void *) 0)");
    }

    return;
  }

  if ((ErrorLevel & VornMtDebugRunTimeLevel ()) == 0) {
    return;
  }

  VornMtDebugBuildPrefix (Prefix, sizeof (Prefix));
  AsciiVSPrint (Message, sizeof (Message), Format, VaListMarker);
  if (Message[0] != 0) {
    VornMtDebugWrite (Prefix, Message);
  }
}

/**
  Prints a formatted message if ErrorLevel passes the run-time filter. A
  filtered message returns before its arguments are touched.
**/
VOID DebugPrint (IN UINTN ErrorLevel, IN CONST CHAR8 *Format, ...) {
  VA_LIST Marker;

  if ((Format != NULL) && ((ErrorLevel & VornMtDebugRunTimeLevel ()) == 0)) {
    return;
  }

  VA_START (Marker, Format);
  DebugVPrint (ErrorLevel, Format, Marker);
  VA_END (Marker);
}

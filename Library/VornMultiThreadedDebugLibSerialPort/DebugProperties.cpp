/** @file
  What the platform's debug settings enable.
**/
#include "VornMultiThreadedDebugLibInternal.h"

#include <Library/DebugLib.h>
#include <Library/PcdLib.h>

/**
  TRUE when any of Bits is set in the property mask.
**/
STATIC BOOLEAN DebugPropertyEnabled (IN UINT8 Bits) {
  return (BOOLEAN)((PcdGet8 (PcdDebugPropertyMask) & Bits) != 0);
}

/**
  TRUE when assertions are checked.
**/
BOOLEAN
DebugAssertEnabled (VOID) {
  return DebugPropertyEnabled (DEBUG_PROPERTY_DEBUG_ASSERT_ENABLED);
}

/**
  TRUE when DEBUG messages are printed.
**/
BOOLEAN
DebugPrintEnabled (VOID) {
  return DebugPropertyEnabled (DEBUG_PROPERTY_DEBUG_PRINT_ENABLED);
}

/**
  TRUE when debug-only code runs.
**/
BOOLEAN
DebugCodeEnabled (VOID) {
  return DebugPropertyEnabled (DEBUG_PROPERTY_DEBUG_CODE_ENABLED);
}

/**
  TRUE when ErrorLevel passes the build-time level mask and, once it is
  known, the run-time level. Testing the run-time level here, before
  DebugPrint is called, makes a filtered line cost no argument set-up;
  DebugPrint filters the same way, so what prints does not change. The
  constructor settles the gate before any processor prints, so a plain load
  reads it, and a run of filtered lines tests one register.
**/
BOOLEAN
DebugPrintLevelEnabled (IN CONST UINTN ErrorLevel) {
  return (BOOLEAN)((ErrorLevel & PcdGet32 (PcdFixedDebugPrintErrorLevel) & mVornMtDebugPrintLevelGate) != 0);
}

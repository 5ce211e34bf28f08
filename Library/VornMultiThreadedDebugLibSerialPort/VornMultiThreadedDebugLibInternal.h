/** @file
  State and helpers shared by the files of the multi-processor debug sink.
**/
#pragma once

#include <Uefi.h>
#include <Library/VornMultiThreadedDebugLib.h>
#include <Protocol/SmmBase2.h>
#include <Protocol/SmmCpuService.h>

//
// Size of the prefix and message buffers, terminator included.
//
#define VORN_MT_DEBUG_MESSAGE_LENGTH 256

//
// Module name printed in assertion lines.
//
#define VORN_MT_DEBUG_CALLER_BASE_NAME "VornApeiLoggingSmm"

//
// Where a NULL format is reported from.
//
#define VORN_MT_DEBUG_SOURCE_NAME        "VornMultiThreadedDebugLib"
#define VORN_MT_DEBUG_FORMAT_ASSERT_LINE 437

//
// Services located by the constructor, cached for the life of the module.
//
extern EFI_SMM_BASE2_PROTOCOL       *mVornMtDebugSmmBase2;
extern EFI_SMM_SYSTEM_TABLE2        *mVornMtDebugSmst;
extern EFI_SMM_CPU_SERVICE_PROTOCOL *mVornMtDebugSmmCpuService;

//
// The record shared by every SMM module using this library; NULL outside SMM
// (or before the constructor ran), where messages carry no prefix and take no
// lock: only the boot processor runs then.
//
extern VORN_MT_DEBUG_SHARED_DATA *mVornMtDebugSharedData;

//
// Run-time print level, read from the platform on the first message.
//
extern UINT32  mVornMtDebugPrintErrorLevel;
extern BOOLEAN mVornMtDebugPrintErrorLevelCached;

//
// What DebugPrintLevelEnabled lets through: every level until the run-time
// level is known (DebugPrint then decides), that level afterwards. One load
// and one test, so that a filtered line costs no more.
//
extern UINT32 mVornMtDebugPrintLevelGate;

/**
  Reads the platform's run-time print level and caches it.
**/
UINT32 VornMtDebugFetchRunTimeLevel (VOID);

/**
  The run-time print level: a load once it is cached.
**/
STATIC inline UINT32 VornMtDebugRunTimeLevel (VOID) {
  if (__atomic_load_n (&mVornMtDebugPrintErrorLevelCached, __ATOMIC_ACQUIRE)) {
    return __atomic_load_n (&mVornMtDebugPrintErrorLevel, __ATOMIC_RELAXED);
  }

  return VornMtDebugFetchRunTimeLevel ();
}

/**
  Formats the calling processor's prefix into Prefix, or an empty string when
  the processor cannot be identified.
**/
VOID VornMtDebugBuildPrefix (OUT CHAR8 *Prefix, IN UINTN PrefixSize);

/**
  Writes prefix and message to the serial port as one unit.
**/
VOID VornMtDebugWrite (IN CONST CHAR8 *Prefix, IN CONST CHAR8 *Message);

/** @file
  Base library: strings, processor control and jump buffers.
**/
#pragma once

#include <csetjmp>
#include <Uefi.h>

UINTN         AsciiStrLen (IN CONST CHAR8 *String);
UINTN         AsciiStrnLenS (IN CONST CHAR8 *String, IN UINTN MaxSize);
RETURN_STATUS AsciiStrCpyS (OUT CHAR8 *Destination, IN UINTN DestMax, IN CONST CHAR8 *Source);
RETURN_STATUS AsciiStrnCpyS (OUT CHAR8 *Destination, IN UINTN DestMax, IN CONST CHAR8 *Source, IN UINTN Length);
RETURN_STATUS AsciiStrCatS (IN OUT CHAR8 *Destination, IN UINTN DestMax, IN CONST CHAR8 *Source);
RETURN_STATUS AsciiStrnCatS (IN OUT CHAR8 *Destination, IN UINTN DestMax, IN CONST CHAR8 *Source, IN UINTN Length);
UINTN         StrLen (IN CONST CHAR16 *String);
UINTN         StrSize (IN CONST CHAR16 *String);
INTN          StrCmp (IN CONST CHAR16 *FirstString, IN CONST CHAR16 *SecondString);

VOID   CpuBreakpoint (VOID);
VOID   CpuDeadLoop (VOID);
VOID   CpuPause (VOID);
UINT64 AsmReadMsr64 (IN UINT32 Index);

typedef struct {
  std::jmp_buf Buffer;
} BASE_LIBRARY_JUMP_BUFFER;

//
// setjmp must run in the frame that later receives the jump, so SetJump is a
// macro rather than a function.
//
#define SetJump(JumpBuffer) ((UINTN)setjmp ((JumpBuffer)->Buffer))
[[noreturn]] VOID LongJump (IN BASE_LIBRARY_JUMP_BUFFER *JumpBuffer, IN UINTN Value);

/** @file
  Debug output and assertions.
**/
#pragma once

#include <Uefi.h>
#include <Library/PrintLib.h>

#define DEBUG_INIT    0x00000001
#define DEBUG_WARN    0x00000002
#define DEBUG_LOAD    0x00000004
#define DEBUG_FS      0x00000008
#define DEBUG_POOL    0x00000010
#define DEBUG_PAGE    0x00000020
#define DEBUG_INFO    0x00000040
#define DEBUG_VERBOSE 0x00400000
#define DEBUG_ERROR   0x80000000

#define DEBUG_PROPERTY_DEBUG_ASSERT_ENABLED      0x01
#define DEBUG_PROPERTY_DEBUG_PRINT_ENABLED       0x02
#define DEBUG_PROPERTY_DEBUG_CODE_ENABLED        0x04
#define DEBUG_PROPERTY_CLEAR_MEMORY_ENABLED      0x08
#define DEBUG_PROPERTY_ASSERT_BREAKPOINT_ENABLED 0x10
#define DEBUG_PROPERTY_ASSERT_DEADLOOP_ENABLED   0x20

VOID    DebugPrint (IN UINTN ErrorLevel, IN CONST CHAR8 *Format, ...);
VOID    DebugVPrint (IN UINTN ErrorLevel, IN CONST CHAR8 *Format, IN VA_LIST VaListMarker);
VOID    DebugAssert (IN CONST CHAR8 *FileName, IN UINTN LineNumber, IN CONST CHAR8 *Description);
BOOLEAN DebugAssertEnabled (VOID);
BOOLEAN DebugPrintEnabled (VOID);
BOOLEAN DebugCodeEnabled (VOID);
BOOLEAN DebugPrintLevelEnabled (IN CONST UINTN ErrorLevel);

#define _DEBUG_PRINT(PrintLevel, ...)          \
  do {                                         \
    if (DebugPrintLevelEnabled (PrintLevel)) { \
      DebugPrint (PrintLevel, ##__VA_ARGS__);  \
    }                                          \
  } while (FALSE)

#define DEBUG(Expression)       \
  do {                          \
    if (DebugPrintEnabled ()) { \
      _DEBUG_PRINT Expression;  \
    }                           \
  } while (FALSE)

#define _ASSERT(Expression) DebugAssert (__FILE_NAME__, __LINE__, #Expression)

//
// The extra level lets the expression's macros (NULL, TRUE) expand before it
// is turned into the assertion text.
//
#define _ASSERT_EXPANDED(Expression) _ASSERT (Expression)

#define ASSERT(Expression)             \
  do {                                 \
    if (DebugAssertEnabled ()) {       \
      if (!(Expression)) {             \
        _ASSERT_EXPANDED (Expression); \
      }                                \
    }                                  \
  } while (FALSE)

#define ASSERT_EFI_ERROR(StatusParameter)                                                \
  do {                                                                                   \
    if (DebugAssertEnabled ()) {                                                         \
      if (EFI_ERROR (StatusParameter)) {                                                 \
        DEBUG ((DEBUG_ERROR, "\nASSERT_EFI_ERROR (Status = %r)\n", StatusParameter));    \
        DebugAssert (__FILE_NAME__, __LINE__, "!(((INTN)(RETURN_STATUS)(Status)) < 0)"); \
      }                                                                                  \
    }                                                                                    \
  } while (FALSE)

#define DEBUG_CODE_BEGIN()     \
  do {                         \
    if (DebugCodeEnabled ()) { \
    UINT8 __DebugCodeLocal
#define DEBUG_CODE_END() \
  __DebugCodeLocal = 0;  \
  __DebugCodeLocal++;    \
  }                      \
  }                      \
  while (FALSE)
#define DEBUG_CODE(Expression) \
  DEBUG_CODE_BEGIN ();         \
  Expression DEBUG_CODE_END ()

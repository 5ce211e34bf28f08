/** @file
  Formatted printing into ASCII buffers, with the platform's conversions
  (%a %s %g %r and the rest) and "\n" written as CR LF.
**/
#pragma once

#include <cstdarg>
#include <Uefi.h>

typedef va_list VA_LIST;
#define VA_START(Marker, Parameter) va_start (Marker, Parameter)
#define VA_END(Marker)              va_end (Marker)
#define VA_COPY(Dest, Start)        va_copy (Dest, Start)

UINTN AsciiSPrint (OUT CHAR8 *StartOfBuffer, IN UINTN BufferSize, IN CONST CHAR8 *FormatString, ...);
UINTN AsciiVSPrint (OUT CHAR8 *StartOfBuffer, IN UINTN BufferSize, IN CONST CHAR8 *FormatString, IN VA_LIST Marker);

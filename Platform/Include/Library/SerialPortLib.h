/** @file
  The platform's serial port layer (both legacy UARTs written in parallel).
**/
#pragma once

#include <Uefi.h>

RETURN_STATUS SerialPortInitialize (VOID);
UINTN         SerialPortWrite (IN UINT8 *Buffer, IN UINTN NumberOfBytes);

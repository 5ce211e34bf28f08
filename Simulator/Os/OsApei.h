/** @file
  The APEI hand-over: the platform's WHEA _OSC method, which the OS
  evaluates to ask for APEI, tells the firmware that the OS takes over (or
  gives up) the error sources by writing a software-SMI value to the SMI
  command port. Linux itself raises no such SMI; it only evaluates _OSC.
**/
#pragma once

#include <Uefi.h>

namespace Sim {

inline constexpr UINT8 kApeiEnableSwSmi  = 0x9E;
inline constexpr UINT8 kApeiDisableSwSmi = 0x9D;

//
// Writes 0x9E (enable) or 0x9D (disable) to the SMI command port from
// processor Cpu; the firmware's handler runs before this returns.
//
void OsEnableApei (UINTN Cpu = 0);
void OsDisableApei (UINTN Cpu = 0);

} // namespace Sim

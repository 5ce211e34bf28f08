/** @file
  Firmware build only: the C++ build rule includes this ahead of every C++
  source of the package.

  The base packages' library interfaces are C. They are seen here first,
  inside extern "C", so every later include of them is a no-op that keeps
  that linkage.
**/
#pragma once

//
// The simulator places module data at a fixed address so that logged
// addresses repeat from run to run; firmware leaves placement to the image
// loader.
//
#define MODULE_DATA

extern "C" {
//
// BASE modules start from Base.h alone; the interfaces below need UEFI's
// and PI's types.
//
#include <PiDxe.h>
#include <Library/BaseLib.h>
#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>
#include <Library/DebugPrintErrorLevelLib.h>
#include <Library/DxeServicesLib.h>
#include <Library/IoLib.h>
#include <Library/MemoryAllocationLib.h>
#include <Library/PcdLib.h>
#include <Library/PciExpressLib.h>
#include <Library/PciSegmentInfoLib.h>
#include <Library/PrintLib.h>
#include <Library/SerialPortLib.h>
#include <Library/SmmMemLib.h>
#include <Library/SmmServicesTableLib.h>
#include <Library/SynchronizationLib.h>
#include <Library/UefiBootServicesTableLib.h>
#include <Library/UefiLib.h>

//
// Interfaces of packages that not every module lists.
//
#if __has_include(<Library/LocalApicLib.h>)
#include <Library/LocalApicLib.h>
#endif
}

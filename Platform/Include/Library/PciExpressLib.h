/** @file
  PCI configuration access through the PCI Express memory-mapped
  configuration space at PcdPciExpressBaseAddress.
**/
#pragma once

#include <Uefi.h>

#define PCI_EXPRESS_LIB_ADDRESS(Bus, Device, Function, Register) \
  ((((UINTN)(Bus)) << 20) | (((UINTN)(Device)) << 15) | (((UINTN)(Function)) << 12) | ((UINTN)(Register)))

UINT32 PciExpressRead32 (IN UINTN Address);
UINT32 PciExpressWrite32 (IN UINTN Address, IN UINT32 Value);

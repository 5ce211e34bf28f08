/** @file
  ERST register checks and accesses.
**/
#include "Os/ErstRegister.h"

#include <cstring>

#include <Host.h>
#include <Library/IoLib.h>

#include "Common/TextFormat.h"

namespace Sim {

namespace {

struct MemoryRange {
  UINT64 Base;
  UINT64 Size;
};

// What an OS may map: everything but SMRAM.
constexpr MemoryRange kOsMemory[] = {
    {Host::kAcpiBase, Host::kAcpiSize},
    {Host::kReservedBase, Host::kReservedSize},
    {Host::kBootServicesBase, Host::kBootServicesSize},
};

constexpr UINT32 kPortWidth = 8;

UINT32 AccessBytes (const ErstGas &Register) {
  return ErstAccessWidth (Register) / 8;
}

} // namespace

UINT32
ErstAccessWidth (const ErstGas &Register) {
  if ((Register.AccessSize < EFI_ACPI_6_3_BYTE) || (Register.AccessSize > EFI_ACPI_6_3_QWORD)) {
    return 0;
  }

  const UINT32 Width   = 8u << (Register.AccessSize - 1);
  const UINT32 Natural = Register.RegisterBitWidth;
  if (((Natural == 32) || (Natural == 64)) && (Register.RegisterBitOffset == 0) &&
      ((Register.Address % (Natural / 8)) == 0) && (Width < Natural)) {
    return Natural;
  }

  return Width;
}

bool ErstOsMemory (UINT64 Address, UINT64 Length) {
  for (const MemoryRange &Range : kOsMemory) {
    if ((Address >= Range.Base) && (Length <= Range.Size) && (Address - Range.Base <= Range.Size - Length)) {
      return true;
    }
  }

  return false;
}

std::string ErstRegisterProblem (const ErstGas &Register) {
  const UINT32 Width = ErstAccessWidth (Register);

  if (Register.Address == 0) {
    return "register address is 0";
  }

  if (Width == 0) {
    return Format ("access size %u is not 1 (byte) to 4 (qword)", Register.AccessSize);
  }

  if (UINT32{Register.RegisterBitWidth} + Register.RegisterBitOffset > Width) {
    return Format ("bit offset %u + bit width %u do not fit a %u-bit access", Register.RegisterBitOffset,
                   Register.RegisterBitWidth, Width);
  }

  if (Register.AddressSpaceId == EFI_ACPI_6_3_SYSTEM_IO) {
    if (Width > kPortWidth) {
      return Format ("system I/O register 0x%llx needs %u-bit accesses; the platform's ports are 8 bits wide",
                     static_cast<unsigned long long> (Register.Address), Width);
    }

    return "";
  }

  if (Register.AddressSpaceId != EFI_ACPI_6_3_SYSTEM_MEMORY) {
    return Format ("address space %u is neither system memory (0) nor system I/O (1)", Register.AddressSpaceId);
  }

  if (!ErstOsMemory (Register.Address, AccessBytes (Register))) {
    return Format ("system memory register 0x%llx lies outside the memory the OS can map",
                   static_cast<unsigned long long> (Register.Address));
  }

  return "";
}

UINT64
ErstRegisterRead (const ErstGas &Register) {
  if (Register.AddressSpaceId == EFI_ACPI_6_3_SYSTEM_IO) {
    return IoRead8 (static_cast<UINTN> (Register.Address));
  }

  UINT64 Value = 0;
  std::memcpy (&Value, reinterpret_cast<const void *> (Register.Address), AccessBytes (Register));
  return Value;
}

void ErstRegisterWrite (const ErstGas &Register, UINT64 Value) {
  if (Register.AddressSpaceId == EFI_ACPI_6_3_SYSTEM_IO) {
    IoWrite8 (static_cast<UINTN> (Register.Address), static_cast<UINT8> (Value));
    return;
  }

  std::memcpy (reinterpret_cast<void *> (Register.Address), &Value, AccessBytes (Register));
}

} // namespace Sim

/** @file
  Image entry of the SMM driver: library constructors, the module entry
  point through an exit routine, and the result.

  Simulator only: in the firmware build AutoGen and the driver entry-point
  library do this, and the module's .inf leaves the file out.
**/
#include "ModuleEntryPoint.h"

#include <Library/DebugLib.h>
#include <Library/UefiBootServicesTableLib.h>
#include <Library/SmmServicesTableLib.h>
#include <Library/SmmMemLib.h>
#include <Library/VornPciSegmentInfoLib.h>
#include <Library/ElogBaseLib.h>
#include <Library/WheaSignalLib.h>
#include <Library/VornMultiThreadedDebugLib.h>

#include "VornApeiLoggingSmm.h"

MODULE_DATA EFI_STATUS               mDriverEntryPointStatus;
MODULE_DATA BASE_LIBRARY_JUMP_BUFFER mDriverJumpContext;

/**
  Runs the library constructors in their fixed order. The sink comes first so
  every later line carries the processor prefix; the service tables precede
  every library that uses them; the PCI segment table precedes the error-log
  base library, which displays it; the WHEA signal library copies the debug
  levels the error-log base library decides. A failing constructor asserts
  and the list goes on.
**/
static VOID ProcessLibraryConstructorList (IN EFI_HANDLE ImageHandle, IN EFI_SYSTEM_TABLE *SystemTable) {
  EFI_STATUS Status;

  Status = VornMultiThreadedDebugLibConstructor (ImageHandle, SystemTable);
  ASSERT_EFI_ERROR (Status);

  Status = UefiBootServicesTableLibConstructor (ImageHandle, SystemTable);
  ASSERT_EFI_ERROR (Status);

  Status = SmmServicesTableLibConstructor (ImageHandle, SystemTable);
  ASSERT_EFI_ERROR (Status);

  Status = PciSegmentInfoLibConstructor (ImageHandle, SystemTable);
  ASSERT_EFI_ERROR (Status);

  Status = VornElogBaseLibConstructor (ImageHandle, SystemTable);
  ASSERT_EFI_ERROR (Status);

  Status = SmmMemLibConstructor (ImageHandle, SystemTable);
  ASSERT_EFI_ERROR (Status);

  Status = WheaSignalLibConstructor (ImageHandle, SystemTable);
  ASSERT_EFI_ERROR (Status);
}

/**
  Records the module entry's status and returns to the image entry. A
  success, or any status while the stored one is an error, replaces the
  stored result.
**/
[[noreturn]] static VOID ExitDriver (IN EFI_STATUS Status) {
  if (!EFI_ERROR (Status) || EFI_ERROR (mDriverEntryPointStatus)) {
    mDriverEntryPointStatus = Status;
  }

  LongJump (&mDriverJumpContext, (UINTN)-1);
}

/**
  Image entry. No minimum UEFI revision is demanded and no unload handler is
  registered.
**/
EFI_STATUS
EFIAPI
_ModuleEntryPoint (IN EFI_HANDLE ImageHandle, IN EFI_SYSTEM_TABLE *SystemTable) {
  ProcessLibraryConstructorList (ImageHandle, SystemTable);

  mDriverEntryPointStatus = EFI_LOAD_ERROR;
  if (SetJump (&mDriverJumpContext) == 0) {
    ExitDriver (VornApeiLoggingSmmConstructor (ImageHandle, SystemTable));
  }

  //
  // On an error the library destructors would run here. None of the
  // libraries linked into this module has a destructor in this
  // configuration, so the list is empty.
  //
  return mDriverEntryPointStatus;
}

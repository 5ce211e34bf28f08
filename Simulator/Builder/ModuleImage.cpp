/** @file
  Loading the module image: zeroes the data of the module and its libraries.

  Every component that keeps state adds its globals here, so that a reboot in
  the same process (and every test) starts from the image as loaded; the few
  with an initial value get it back.
**/
#include "Builder/ModuleImage.h"

#include <cstring>

#include <VornApeiLoggingSmm.h>
#include <ErstRecordOps.h>
#include <ErstStoreMaintenance.h>
#include <ErstRecordScan.h>
#include <ModuleEntryPoint.h>
#include <Library/ElogBaseLib.h>
#include <Library/VornPciSegmentInfoLib.h>
#include <Library/WheaSignalLib.h>
#include "../../Library/VornMultiThreadedDebugLibSerialPort/VornMultiThreadedDebugLibInternal.h"
#include <ErstStoreScanBuffers.h>
#include <Library/SmmServicesTableLib.h>
#include <Library/UefiBootServicesTableLib.h>

template <typename T> static void Zero (T &Object) {
  std::memset (static_cast<void *> (&Object), 0, sizeof (Object));
}

//
// The linker's bounds of the module's data section (MODULE_DATA).
//
extern "C" UINT8 __start_vorn_module_data[];
extern "C" UINT8 __stop_vorn_module_data[];

void ModuleImageLoad () {
  std::memset (__start_vorn_module_data, 0, static_cast<size_t> (__stop_vorn_module_data - __start_vorn_module_data));
  Zero (mPrivateDataVornApeiLogging);
  Zero (mDriverEntryPointStatus);
  Zero (mDriverJumpContext);
  Zero (mPciSegmentInfo);
  Zero (mPciSegmentInfoCount);
  Zero (mPrivateDataVornElogBase);
  Zero (mPrivateDataWheaSignalLib);
  Zero (mErstErrorRecordHeader);
  Zero (mErstMaintenanceFvHeader);
  Zero (mErstMaintenanceFvExtHeader);
  Zero (mErstMaintenanceStoreHeader);
  Zero (mErstDefragmentPersistentStatus);
  Zero (mErstRecordScanData);
  Zero (mErstFlagsRevision);
  Zero (mErstClearFlagValue);
  Zero (mErstDumpStoreHeader);
  Zero (mVornMtDebugSmmBase2);
  Zero (mVornMtDebugSmst);
  Zero (mVornMtDebugSmmCpuService);
  Zero (mVornMtDebugSharedData);
  Zero (mVornMtDebugPrintErrorLevel);
  Zero (mVornMtDebugPrintErrorLevelCached);
  mVornMtDebugPrintLevelGate = MAX_UINT32;
  Zero (mErstDiscoveryFvHeader);
  Zero (mErstDiscoveryFvExtHeader);
  Zero (mErstDiscoveryStoreHeader);
  Zero (mErstDiscoveryRecordData);
  Zero (mErstSearchRecordData);
  Zero (gImageHandle);
  Zero (gST);
  Zero (gBS);
  Zero (gSmst);
}

std::span<UINT8> ModuleImageData () {
  return {__start_vorn_module_data, __stop_vorn_module_data};
}

/** @file
  Buffers that store discovery and the record walks read flash into. The log
  prints their addresses, so they are module data (fixed addresses), never
  stack locals.
**/
#pragma once

#include <Uefi.h>
#include <Pi/PiFirmwareVolume.h>
#include <VornApeiErst.h>

#include "ErstRecordScan.h"

//
// Store discovery.
//
extern EFI_FIRMWARE_VOLUME_HEADER     mErstDiscoveryFvHeader;
extern EFI_FIRMWARE_VOLUME_EXT_HEADER mErstDiscoveryFvExtHeader;
extern ERST_STORE_HEADER              mErstDiscoveryStoreHeader;
extern ERST_RECORD_HEADER_AND_FLAGS   mErstDiscoveryRecordData;

//
// Record search and enumeration.
//
extern ERST_RECORD_HEADER_AND_FLAGS mErstSearchRecordData;

/** @file
  Processor information record shared by the MP and SMM CPU services.
**/
#pragma once

#include <Uefi.h>

typedef struct {
  UINT32 Package;
  UINT32 Core;
  UINT32 Thread;
} EFI_CPU_PHYSICAL_LOCATION;

typedef struct {
  UINT32 Package;
  UINT32 Module;
  UINT32 Tile;
  UINT32 Die;
  UINT32 Core;
  UINT32 Thread;
} EFI_CPU_PHYSICAL_LOCATION2;

typedef union {
  EFI_CPU_PHYSICAL_LOCATION2 Location2;
} EXTENDED_PROCESSOR_INFORMATION;

#define PROCESSOR_AS_BSP_BIT        0x00000001
#define PROCESSOR_ENABLED_BIT       0x00000002
#define PROCESSOR_HEALTH_STATUS_BIT 0x00000004

typedef struct {
  UINT64                         ProcessorId;
  UINT32                         StatusFlag;
  EFI_CPU_PHYSICAL_LOCATION      Location;
  EXTENDED_PROCESSOR_INFORMATION ExtendedInformation;
} EFI_PROCESSOR_INFORMATION;

static_assert (sizeof (EFI_PROCESSOR_INFORMATION) == 48, "processor information size");
static_assert (offsetof (EFI_PROCESSOR_INFORMATION, Location) == 12, "Location offset");

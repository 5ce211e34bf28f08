/** @file
  PCI segment information: the ECAM base and bus range of every PCI segment,
  derived from the processor's MMIO configuration base address register.
**/
#pragma once

#include <Uefi.h>

typedef struct {
  UINT16 SegmentNumber;
  UINT64 BaseAddress;
  UINT8  StartBusNumber;
  UINT8  EndBusNumber;
} PCI_SEGMENT_INFO;

static_assert (sizeof (PCI_SEGMENT_INFO) == 24, "PCI_SEGMENT_INFO size");
static_assert (offsetof (PCI_SEGMENT_INFO, BaseAddress) == 8, "PCI_SEGMENT_INFO BaseAddress");
static_assert (offsetof (PCI_SEGMENT_INFO, StartBusNumber) == 16, "PCI_SEGMENT_INFO StartBusNumber");
static_assert (offsetof (PCI_SEGMENT_INFO, EndBusNumber) == 17, "PCI_SEGMENT_INFO EndBusNumber");

#define PCI_SEGMENT_INFO_MAX_SEGMENTS 128

//
// The segment table and the number of valid entries (0: not built yet).
//
extern PCI_SEGMENT_INFO mPciSegmentInfo[PCI_SEGMENT_INFO_MAX_SEGMENTS];
extern UINTN            mPciSegmentInfoCount;

EFI_STATUS EFIAPI PciSegmentInfoLibConstructor (IN EFI_HANDLE ImageHandle, IN EFI_SYSTEM_TABLE *SystemTable);
EFI_STATUS        PciSegmentInfoLibGetSegmentData (VOID);
PCI_SEGMENT_INFO *GetPciSegmentInfo (OUT UINTN *Count);

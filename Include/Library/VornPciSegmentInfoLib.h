/** @file
  The package's PCI segment information instances: the segment table behind
  GetPciSegmentInfo, the constructor that builds it, and the routine each
  instance provides to fill it (from the processor's MMIO configuration base
  address register, or from the PCI Express base address PCDs).
**/
#pragma once

#include <Uefi.h>
#include <Library/PciSegmentInfoLib.h>

static_assert (sizeof (PCI_SEGMENT_INFO) == 24, "PCI_SEGMENT_INFO size");
static_assert (OFFSET_OF (PCI_SEGMENT_INFO, BaseAddress) == 8, "PCI_SEGMENT_INFO BaseAddress");
static_assert (OFFSET_OF (PCI_SEGMENT_INFO, StartBusNumber) == 16, "PCI_SEGMENT_INFO StartBusNumber");
static_assert (OFFSET_OF (PCI_SEGMENT_INFO, EndBusNumber) == 17, "PCI_SEGMENT_INFO EndBusNumber");

#define PCI_SEGMENT_INFO_MAX_SEGMENTS 128

//
// ECAM space of one bus.
//
#define PCI_SEGMENT_BUS_ECAM_SIZE 0x100000

//
// The segment table and the number of valid entries (0: not built yet).
//
extern PCI_SEGMENT_INFO mPciSegmentInfo[PCI_SEGMENT_INFO_MAX_SEGMENTS];
extern UINTN            mPciSegmentInfoCount;

extern "C" EFI_STATUS EFIAPI PciSegmentInfoLibConstructor (IN EFI_HANDLE ImageHandle, IN EFI_SYSTEM_TABLE *SystemTable);

EFI_STATUS PciSegmentInfoLibGetSegmentData (VOID);

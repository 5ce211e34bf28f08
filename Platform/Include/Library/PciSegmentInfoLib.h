/** @file
  PCI segment information: the ECAM base and bus range of each PCI segment.
**/
#pragma once

#include <Uefi.h>

typedef struct {
  UINT16 SegmentNumber;
  UINT64 BaseAddress;
  UINT8  StartBusNumber;
  UINT8  EndBusNumber;
} PCI_SEGMENT_INFO;

PCI_SEGMENT_INFO *EFIAPI GetPciSegmentInfo (OUT UINTN *Count);

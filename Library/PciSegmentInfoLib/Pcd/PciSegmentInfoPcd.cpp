/** @file
  PCI segment information from the PCI Express base address and size PCDs:
  one segment whose buses fill the configured ECAM window. For platforms
  without the MMIO configuration base address register (the register faults
  on other processors).
**/
#include <Library/VornPciSegmentInfoLib.h>

#include <Library/DebugLib.h>
#include <Library/PcdLib.h>

//
// A segment numbers at most 256 buses.
//
#define PCI_SEGMENT_MAX_BUS_COUNT 256

/**
  Builds the one-segment table from PcdPciExpressBaseAddress and
  PcdPciExpressBaseSize.
**/
EFI_STATUS
PciSegmentInfoLibGetSegmentData (VOID) {
  UINT64 BusCount;

  BusCount = PcdGet64 (PcdPciExpressBaseSize) / PCI_SEGMENT_BUS_ECAM_SIZE;
  if ((BusCount == 0) || (BusCount > PCI_SEGMENT_MAX_BUS_COUNT)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR PcdPciExpressBaseSize 0x%016lx does not hold 1 to 256 buses\n", __func__,
            PcdGet64 (PcdPciExpressBaseSize)));
    return EFI_UNSUPPORTED;
  }

  mPciSegmentInfo[0].SegmentNumber  = 0;
  mPciSegmentInfo[0].BaseAddress    = PcdGet64 (PcdPciExpressBaseAddress);
  mPciSegmentInfo[0].StartBusNumber = 0;
  mPciSegmentInfo[0].EndBusNumber   = (UINT8)(BusCount - 1);
  DEBUG ((DEBUG_INIT, "%a: Segment %d BaseAddress 0x%016lx StartBus 0x%02x EndBus 0x%02x\n", __func__, 0,
          mPciSegmentInfo[0].BaseAddress, mPciSegmentInfo[0].StartBusNumber, mPciSegmentInfo[0].EndBusNumber));
  mPciSegmentInfoCount = 1;
  return EFI_SUCCESS;
}

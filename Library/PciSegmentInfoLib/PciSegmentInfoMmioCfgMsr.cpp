/** @file
  PCI segment information from MSR 0xC0010058 (MmioCfgBaseAddr): the
  configured bus range is split into 256-bus segments that share the ECAM
  range evenly.
**/
#include <Library/VornPciSegmentInfoLib.h>

#include <Library/BaseLib.h>
#include <Library/DebugLib.h>

#define MSR_MMIO_CFG_BASE_ADDR       0xC0010058
#define MSR_MMIO_CFG_ENABLE_MASK     0x1ULL
#define MSR_MMIO_CFG_BUS_RANGE_SHIFT 2
#define MSR_MMIO_CFG_BUS_RANGE_MASK  0xFULL
#define MSR_MMIO_CFG_BASE_ADDR_SHIFT 20
#define MSR_MMIO_CFG_BASE_ADDR_MASK  0xFFFFFFFULL

#define PCI_SEGMENT_BUS_COUNT 256

//
// ECAM base used when the MSR leaves the base field at zero: the value this
// library is built with for the platform's PCI Express base address.
//
#define PCI_SEGMENT_DEFAULT_ECAM_BASE 0x60000000ULL

/**
  Builds the segment table from the MMIO configuration base address MSR. The
  table is built whether or not the MSR's Enable bit is set.
**/
EFI_STATUS
PciSegmentInfoLibGetSegmentData (VOID) {
  UINT64 MsrValue;
  UINT32 MmioCfgBaseAddr;
  UINT32 BusRange;
  UINT32 Enable;
  UINT32 TotalBusCount;
  UINT32 SegmentCount;
  UINT32 BusCountPerSegment;
  UINT64 SegmentBaseAddress;
  UINT32 Index;

  MsrValue        = AsmReadMsr64 (MSR_MMIO_CFG_BASE_ADDR);
  Enable          = (UINT32)(MsrValue & MSR_MMIO_CFG_ENABLE_MASK);
  BusRange        = (UINT32)((MsrValue >> MSR_MMIO_CFG_BUS_RANGE_SHIFT) & MSR_MMIO_CFG_BUS_RANGE_MASK);
  MmioCfgBaseAddr = (UINT32)((MsrValue >> MSR_MMIO_CFG_BASE_ADDR_SHIFT) & MSR_MMIO_CFG_BASE_ADDR_MASK);
  DEBUG ((DEBUG_INIT,
          "%a: Core::X86::Msr::MmioCfgBaseAddr MSR = 0x%016lx MmioCfgBaseAddr 0x%08x BusRange 0x%01x Enable %d\n",
          __func__, MsrValue, MmioCfgBaseAddr, BusRange, Enable));

  TotalBusCount = 1U << BusRange;
  SegmentCount  = TotalBusCount / PCI_SEGMENT_BUS_COUNT;
  if ((TotalBusCount % PCI_SEGMENT_BUS_COUNT) != 0) {
    SegmentCount++;
  }

  DEBUG ((DEBUG_INIT, "%a: Total Bus Count %d Segment Count %d\n", __func__, TotalBusCount, SegmentCount));

  //
  // A 4-bit BusRange reaches the table size but cannot pass it; the clamp
  // guards the table should the field ever widen.
  //
  if (SegmentCount > PCI_SEGMENT_INFO_MAX_SEGMENTS) {
    DEBUG ((DEBUG_ERROR, "%a: Segment Count %d > Max Segments %d, Adjusting downward to max\n", __func__, SegmentCount,
            PCI_SEGMENT_INFO_MAX_SEGMENTS));
    SegmentCount = PCI_SEGMENT_INFO_MAX_SEGMENTS;
  }

  BusCountPerSegment = TotalBusCount / SegmentCount;
  DEBUG ((DEBUG_INIT, "%a: Bus Count Per Segment %d\n", __func__, BusCountPerSegment));

  SegmentBaseAddress = (UINT64)MmioCfgBaseAddr << MSR_MMIO_CFG_BASE_ADDR_SHIFT;
  DEBUG ((DEBUG_INIT, "%a: SegmentBaseAddress = 0x%016lx based on MsrMmioCfgBaseAddr.Field.MmioCfgBaseAddr value\n",
          __func__, SegmentBaseAddress));
  if (SegmentBaseAddress == 0) {
    SegmentBaseAddress = PCI_SEGMENT_DEFAULT_ECAM_BASE;
    DEBUG ((DEBUG_INIT, "%a: Adjusting SegmentBaseAddress = 0x%016lx based on PcdPciExpressBaseAddress\n", __func__,
            SegmentBaseAddress));
  }

  DEBUG ((DEBUG_INIT, "%a: SegmentBaseAddress = 0x%016lx\n", __func__, SegmentBaseAddress));

  for (Index = 0; Index < SegmentCount; Index++) {
    mPciSegmentInfo[Index].SegmentNumber  = (UINT16)Index;
    mPciSegmentInfo[Index].BaseAddress    = SegmentBaseAddress;
    mPciSegmentInfo[Index].StartBusNumber = 0;
    mPciSegmentInfo[Index].EndBusNumber   = (UINT8)(BusCountPerSegment - 1);
    DEBUG ((DEBUG_INIT, "%a: Segment %d BaseAddress 0x%016lx StartBus 0x%02x EndBus 0x%02x\n", __func__, Index,
            mPciSegmentInfo[Index].BaseAddress, mPciSegmentInfo[Index].StartBusNumber,
            mPciSegmentInfo[Index].EndBusNumber));
    SegmentBaseAddress += (UINT64)BusCountPerSegment * PCI_SEGMENT_BUS_ECAM_SIZE;
  }

  mPciSegmentInfoCount = SegmentCount;
  return EFI_SUCCESS;
}

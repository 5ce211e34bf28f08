/** @file
  Display of the PCI segment table.
**/
#include <Library/ElogBaseLib.h>

#include <Library/DebugLib.h>
#include <Library/PciSegmentInfoLib.h>

/**
  Prints one line per PCI segment at DebugLevel.
**/
VOID VornElogDisplayPciSegmentInfo (IN UINTN DebugLevel) {
  PCI_SEGMENT_INFO *pPciSegmentInfo;
  UINTN             Count;
  UINTN             Index;

  Count           = 0;
  pPciSegmentInfo = GetPciSegmentInfo (&Count);
  if (pPciSegmentInfo == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR unable to retrieve PCI_SEGMENT_INFO pointer, aborting...\n", __func__));
    return;
  }

  for (Index = 0; Index < Count; Index++) {
    DEBUG ((
        DebugLevel,
        "%a: PCI_SEGMENT_INFO entry %d => SegmentNumber 0x%04x Base Address 0x%016lx StartBusNumber 0x%02x EndBusNumber 0x%02x\n",
        __func__, (UINT32)Index, pPciSegmentInfo[Index].SegmentNumber, pPciSegmentInfo[Index].BaseAddress,
        pPciSegmentInfo[Index].StartBusNumber, pPciSegmentInfo[Index].EndBusNumber));
  }
}

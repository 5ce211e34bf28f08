/** @file
  PCI segment information: the segment table, built by the constructor and on
  demand, and the query that returns it. Where the table's entries come from
  is the instance's PciSegmentInfoLibGetSegmentData.
**/
#include <Library/VornPciSegmentInfoLib.h>

#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>

MODULE_DATA PCI_SEGMENT_INFO mPciSegmentInfo[PCI_SEGMENT_INFO_MAX_SEGMENTS];
MODULE_DATA UINTN            mPciSegmentInfoCount;

/**
  Library constructor: clears and builds the segment table. Succeeds in every
  case; a failed build leaves the table empty for GetPciSegmentInfo to retry.
**/
EFI_STATUS
EFIAPI
PciSegmentInfoLibConstructor ([[maybe_unused]] IN EFI_HANDLE        ImageHandle,
                              [[maybe_unused]] IN EFI_SYSTEM_TABLE *SystemTable) {
  EFI_STATUS Status;

  DEBUG ((DEBUG_INIT, "%a: Clearing mPciSegmentInfo array @ 0x%016lx Size 0x%016lx bytes (MaxNumEntries %d)\n",
          __func__, (UINT64)(UINTN)mPciSegmentInfo, (UINT64)sizeof (mPciSegmentInfo), PCI_SEGMENT_INFO_MAX_SEGMENTS));
  ZeroMem (mPciSegmentInfo, sizeof (mPciSegmentInfo));

  DEBUG ((DEBUG_INIT, "%a: Retrieving PCI segment information\n", __func__));
  Status = PciSegmentInfoLibGetSegmentData ();
  if (EFI_ERROR (Status)) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR %r retrieving PCI segment information\n", __func__, Status));
  }

  return EFI_SUCCESS;
}

/**
  Returns the segment table and its entry count in *Count, building the
  table first if it is empty; NULL when there is no entry.
**/
PCI_SEGMENT_INFO *EFIAPI GetPciSegmentInfo (OUT UINTN *Count) {
  EFI_STATUS        Status;
  PCI_SEGMENT_INFO *pPciSegmentInfo;

  if (Count == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR Count -- NULL on entry, aborting...\n", __func__));
    return NULL;
  }

  if (mPciSegmentInfoCount == 0) {
    DEBUG ((DEBUG_INIT, "%a: Retrieving PCI segment information\n", __func__));
    Status = PciSegmentInfoLibGetSegmentData ();
    if (EFI_ERROR (Status)) {
      DEBUG ((DEBUG_ERROR, "%a: ERROR %r retrieving PCI segment information\n", __func__, Status));
    }
  }

  *Count          = mPciSegmentInfoCount;
  pPciSegmentInfo = (mPciSegmentInfoCount != 0) ? mPciSegmentInfo : NULL;
  DEBUG ((DEBUG_VERBOSE, "%a: On exit *Count %d pPciSegmentInfo 0x%016lx\n", __func__, (UINT32)*Count,
          (UINT64)(UINTN)pPciSegmentInfo));
  return pPciSegmentInfo;
}

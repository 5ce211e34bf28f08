/** @file
  Dump of the VMware page-retire record that follows a page-retire data
  entry.
**/
#include "CperDumpSupport.h"

#include <Library/DebugLib.h>

STATIC CONST CPER_DUMP_FIELD mPageRetireFields[] = {
    CPER_DUMP_FIELD_OF (VMWARE_PAGE_RETIRE_RECORD, Revision, "     revision                        = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (VMWARE_PAGE_RETIRE_RECORD, Command, "     command                         = 0x%02x\n"),
    CPER_DUMP_FIELD_OF (VMWARE_PAGE_RETIRE_RECORD, ErrorStatusCode, "     error status code               = 0x%02x\n"),
    CPER_DUMP_FIELD_OF (VMWARE_PAGE_RETIRE_RECORD, Sflags, "     sflags                          = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (VMWARE_PAGE_RETIRE_RECORD, OsStatus, "     os_status                       = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (VMWARE_PAGE_RETIRE_RECORD, BeginAdd, "     begin_add                       = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (VMWARE_PAGE_RETIRE_RECORD, Stride, "     stride                          = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (VMWARE_PAGE_RETIRE_RECORD, EndAddr, "     end_addr                        = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (
        VMWARE_PAGE_RETIRE_RECORD, ErrorStatusCount, "     error status count              = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (VMWARE_PAGE_RETIRE_RECORD, ExaminedCnt, "     examined_cnt                    = 0x%016lx\n"),
    CPER_DUMP_FIELD_OF (VMWARE_PAGE_RETIRE_RECORD, RetiredCnt, "     retired_cnt                     = 0x%016lx\n"),
};

/**
  Prints a page-retire record field by field.
**/
VOID DisplayCperSectionMemoryPageRetire (IN UINTN                      DebugLevel,
                                         IN VMWARE_PAGE_RETIRE_RECORD *pCperSectionMemoryPageRetire) {
  if (pCperSectionMemoryPageRetire == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pCperSectionMemoryPageRetire is NULL, aborting...\n", __func__));
    return;
  }

  DEBUG ((DebugLevel, "CPER memory page retire section data\n"));
  CperDumpFields (DebugLevel, pCperSectionMemoryPageRetire, mPageRetireFields, ARRAY_SIZE (mPageRetireFields));
}

/** @file
  VMware WHEA page-retire layouts (format version 0.73) placed in the
  page-retire generic error status block.
**/
#pragma once

#include <Uefi.h>

//
// Section type of a page-retire record.
//
extern EFI_GUID gEfiVmwarePageRetireSectionGuid;

#define VMWARE_PAGE_RETIRE_DATA_ENTRY_REVISION 0x0201

//
// Packed: the record follows a 64-byte entry at a 4-byte aligned offset of
// the status block, so its 64-bit fields are not naturally aligned.
//
#pragma pack(1)

//
// A generic error data entry without the Timestamp field.
//
typedef struct {
  UINT8  SectionType[16];
  UINT32 ErrorSeverity;
  UINT16 Revision;
  UINT8  ValidationBits;
  UINT8  Flags;
  UINT32 ErrorDataLength;
  UINT8  FruId[16];
  UINT8  FruText[20];
} VMWARE_PAGE_RETIRE_DATA_ENTRY;

typedef struct {
  UINT16 Revision;
  UINT8  Command;
  UINT8  ErrorStatusCode;
  UINT16 Sflags;
  UINT16 OsStatus;
  UINT64 BeginAdd;
  UINT64 Stride;
  UINT64 EndAddr;
  UINT64 ErrorStatusCount;
  UINT64 ExaminedCnt;
  UINT64 RetiredCnt;
} VMWARE_PAGE_RETIRE_RECORD;

#pragma pack()

static_assert (sizeof (VMWARE_PAGE_RETIRE_DATA_ENTRY) == 64, "page-retire entry size");
static_assert (OFFSET_OF (VMWARE_PAGE_RETIRE_DATA_ENTRY, ErrorSeverity) == 16, "entry severity offset");
static_assert (OFFSET_OF (VMWARE_PAGE_RETIRE_DATA_ENTRY, Revision) == 20, "entry revision offset");
static_assert (OFFSET_OF (VMWARE_PAGE_RETIRE_DATA_ENTRY, ValidationBits) == 22, "entry validation bits offset");
static_assert (OFFSET_OF (VMWARE_PAGE_RETIRE_DATA_ENTRY, Flags) == 23, "entry flags offset");
static_assert (OFFSET_OF (VMWARE_PAGE_RETIRE_DATA_ENTRY, ErrorDataLength) == 24, "entry length offset");
static_assert (OFFSET_OF (VMWARE_PAGE_RETIRE_DATA_ENTRY, FruId) == 28, "entry FRU id offset");
static_assert (OFFSET_OF (VMWARE_PAGE_RETIRE_DATA_ENTRY, FruText) == 44, "entry FRU text offset");
static_assert (sizeof (VMWARE_PAGE_RETIRE_RECORD) == 56, "page-retire record size");
static_assert (OFFSET_OF (VMWARE_PAGE_RETIRE_RECORD, Command) == 2, "command offset");
static_assert (OFFSET_OF (VMWARE_PAGE_RETIRE_RECORD, ErrorStatusCode) == 3, "error status code offset");
static_assert (OFFSET_OF (VMWARE_PAGE_RETIRE_RECORD, Sflags) == 4, "sflags offset");
static_assert (OFFSET_OF (VMWARE_PAGE_RETIRE_RECORD, OsStatus) == 6, "os_status offset");
static_assert (OFFSET_OF (VMWARE_PAGE_RETIRE_RECORD, BeginAdd) == 8, "begin_add offset");
static_assert (OFFSET_OF (VMWARE_PAGE_RETIRE_RECORD, Stride) == 16, "stride offset");
static_assert (OFFSET_OF (VMWARE_PAGE_RETIRE_RECORD, EndAddr) == 24, "end_addr offset");
static_assert (OFFSET_OF (VMWARE_PAGE_RETIRE_RECORD, ErrorStatusCount) == 32, "error status count offset");
static_assert (OFFSET_OF (VMWARE_PAGE_RETIRE_RECORD, ExaminedCnt) == 40, "examined_cnt offset");
static_assert (OFFSET_OF (VMWARE_PAGE_RETIRE_RECORD, RetiredCnt) == 48, "retired_cnt offset");

/** @file
  ERST layouts shared with the OS and kept on flash: the parameter region the
  ERST instructions point at, and the record store inside the error-log
  firmware volume.
**/
#pragma once

#include <Uefi.h>

//
// Parameter region at the start of the 0x2000-byte reserved block; the OS
// error-log buffer follows it.
//
#define MAX_ERST_PARAMETER_REGION_SIZE 0x2000

typedef struct {
  UINT64 Command;
  UINT64 RecordID;
  UINT64 NextRecordID;
  UINT32 LogOffset;
  UINT32 Padding0;
  UINT64 Status;
  UINT64 BusyFlag;
  UINT64 RecordCount;
  UINT64 ErrorLogAddressRange;
  UINT64 ErrorLogAddressLength;
  UINT64 ErrorLogAddressAttributes;
  UINT64 Dummy;
  UINT64 CurRecordID;
} VORN_ERST_PARAMETER_REGION;

static_assert (sizeof (VORN_ERST_PARAMETER_REGION) == 0x60, "parameter region size");
static_assert (OFFSET_OF (VORN_ERST_PARAMETER_REGION, RecordID) == 0x08, "RecordID offset");
static_assert (OFFSET_OF (VORN_ERST_PARAMETER_REGION, NextRecordID) == 0x10, "NextRecordID offset");
static_assert (OFFSET_OF (VORN_ERST_PARAMETER_REGION, LogOffset) == 0x18, "LogOffset offset");
static_assert (OFFSET_OF (VORN_ERST_PARAMETER_REGION, Status) == 0x20, "Status offset");
static_assert (OFFSET_OF (VORN_ERST_PARAMETER_REGION, BusyFlag) == 0x28, "BusyFlag offset");
static_assert (OFFSET_OF (VORN_ERST_PARAMETER_REGION, RecordCount) == 0x30, "RecordCount offset");
static_assert (OFFSET_OF (VORN_ERST_PARAMETER_REGION, ErrorLogAddressRange) == 0x38, "range offset");
static_assert (OFFSET_OF (VORN_ERST_PARAMETER_REGION, ErrorLogAddressLength) == 0x40, "length offset");
static_assert (OFFSET_OF (VORN_ERST_PARAMETER_REGION, ErrorLogAddressAttributes) == 0x48, "attributes offset");
static_assert (OFFSET_OF (VORN_ERST_PARAMETER_REGION, Dummy) == 0x50, "Dummy offset");
static_assert (OFFSET_OF (VORN_ERST_PARAMETER_REGION, CurRecordID) == 0x58, "CurRecordID offset");

//
// Command codes the BEGIN_* instructions write into Command.
//
#define ERST_PERSISTENT_GET_RECORD   0x1
#define ERST_PERSISTENT_SET_RECORD   0x2
#define ERST_PERSISTENT_CLEAR_RECORD 0x3
#define ERST_PERSISTENT_DUMMY_WRITE  0xF

//
// Command status values left in Status.
//
#define ERST_STATUS_SUCCESS            0x0
#define ERST_STATUS_NOT_ENOUGH_SPACE   0x1
#define ERST_STATUS_FAILED             0x3
#define ERST_STATUS_RECORD_STORE_EMPTY 0x4
#define ERST_STATUS_RECORD_NOT_FOUND   0x5

//
// Record store on flash.
//
#define ERST_STORE_HEADER_SIGNATURE              SIGNATURE_64 ('E', 'R', 'S', 'T', ' ', 'L', 'O', 'G')
#define ERST_ERROR_RECORD_HEADER_SIGNATURE       SIGNATURE_64 ('E', 'R', 'S', 'T', ' ', 'E', 'R', 'R')
#define ERST_STORE_HEADER_LATEST_REVISION        0x00010001
#define ERST_ERROR_RECORD_HEADER_LATEST_REVISION 0x00010001
#define ERST_ERROR_RECORD_FLAGS_LATEST_REVISION  0x00010001
#define ERST_RECORD_CLEAR_FLAG_VALUE             0x22

typedef struct ErstStoreHeader {
  UINT64 Signature;
  UINT32 Revision;
  UINT32 StoreLengthAvailable;
} ERST_STORE_HEADER;

typedef struct ErstErrorRecordHeader {
  UINT64 Signature;
  UINT32 Revision;
  UINT64 OsRecordFlagsAddress;
  UINT64 OsRecordAddress;
  UINT64 PrevRecordHeaderAddress;
  UINT64 NextRecordHeaderAddress;
  UINT64 OsRecordChecksum;
  UINT32 OsRecordLength;
  UINT64 OsRecordID;
} ERST_ERROR_RECORD_HEADER;

typedef struct ErstErrorRecordFlags {
  UINT32 Revision;
  UINT8  RecordClearPerOspm;
  UINT8  RecordClearPerBios;
  UINT8  Reserved[6];
} ERST_ERROR_RECORD_FLAGS;

//
// Header and flags are read and written as one block.
//
#define ERST_ERROR_RECORD_HEADER_AND_FLAGS_LENGTH (sizeof (ERST_ERROR_RECORD_HEADER) + sizeof (ERST_ERROR_RECORD_FLAGS))

static_assert (sizeof (ERST_STORE_HEADER) == 16, "store header size");
static_assert (OFFSET_OF (ERST_STORE_HEADER, StoreLengthAvailable) == 12, "StoreLengthAvailable offset");
static_assert (sizeof (ERST_ERROR_RECORD_HEADER) == 72, "record header size");
static_assert (OFFSET_OF (ERST_ERROR_RECORD_HEADER, OsRecordFlagsAddress) == 16, "flags address offset");
static_assert (OFFSET_OF (ERST_ERROR_RECORD_HEADER, OsRecordAddress) == 24, "record address offset");
static_assert (OFFSET_OF (ERST_ERROR_RECORD_HEADER, PrevRecordHeaderAddress) == 32, "previous offset");
static_assert (OFFSET_OF (ERST_ERROR_RECORD_HEADER, NextRecordHeaderAddress) == 40, "next offset");
static_assert (OFFSET_OF (ERST_ERROR_RECORD_HEADER, OsRecordChecksum) == 48, "checksum offset");
static_assert (OFFSET_OF (ERST_ERROR_RECORD_HEADER, OsRecordLength) == 56, "length offset");
static_assert (OFFSET_OF (ERST_ERROR_RECORD_HEADER, OsRecordID) == 64, "record id offset");
static_assert (sizeof (ERST_ERROR_RECORD_FLAGS) == 12, "record flags size");
static_assert (OFFSET_OF (ERST_ERROR_RECORD_FLAGS, RecordClearPerOspm) == 4, "OSPM flag offset");
static_assert (OFFSET_OF (ERST_ERROR_RECORD_FLAGS, RecordClearPerBios) == 5, "BIOS flag offset");
static_assert (ERST_ERROR_RECORD_HEADER_AND_FLAGS_LENGTH == 84, "header and flags length");

//
// In-memory summary of the store, kept in step with the flash.
//
typedef struct ErstSpiStoreInformation {
  BOOLEAN ClearEntireStoreRegion;
  UINT64  SpiAddressFvBlockHeader;
  UINT64  SpiAddressFvBlockExtHeader;
  UINT64  LengthTotalFv;
  UINT64  LengthErstBlockSize;
  UINT64  SpiAddressStartErstStoreHeader;
  UINT64  LengthErstStoreRegion;
  UINT64  SpiAddressStartErstErrorRecordRegion;
  UINT64  LengthErstStoreRegionErrorRecordArea;
  UINT64  SpiAddressLastValidRecord;
  UINT64  SpiAddressStartAvailableStorage;
  UINT64  LengthErstStoreRegionErrorRecordAreaAvailable;
  UINT32  TotalNumberOfErstRecordsWithClearFlagOspm;
  UINT32  TotalNumberOfErstRecordsWithClearFlagBios;
  UINT32  TotalNumberOfErstRecords;
} ERST_SPI_STORE_INFORMATION;

//
// Journal at the start of the spare area through which store maintenance
// rewrites the error-log volume when it must survive a power cut. The
// image of the volume's new contents follows one block later. A state is
// one byte programmed from 0xFF to 0x00, so the journal only ever clears
// bits: ImageValid once the image and the fields above it are complete,
// after which the rewrite must be finished; TargetDone once the volume
// holds the image.
//
#define ERST_SPARE_JOURNAL_SIGNATURE SIGNATURE_64 ('E', 'R', 'S', 'T', 'S', 'P', 'R', 'J')
#define ERST_SPARE_STATE_SET         0x00

typedef struct ErstSpareJournal {
  UINT64 Signature;
  UINT64 TargetAddress; // the volume's first byte
  UINT64 TargetLength;  // whole blocks erased from there
  UINT64 ImageLength;   // bytes of the image programmed back
  UINT64 BlockSize;     // the volume's erase block
  UINT8  ImageValid;
  UINT8  TargetDone;
  UINT8  Reserved[6];
} ERST_SPARE_JOURNAL;

static_assert (sizeof (ERST_SPARE_JOURNAL) == 48, "spare journal size");
static_assert (OFFSET_OF (ERST_SPARE_JOURNAL, TargetAddress) == 8, "spare target offset");
static_assert (OFFSET_OF (ERST_SPARE_JOURNAL, ImageLength) == 24, "spare image length offset");
static_assert (OFFSET_OF (ERST_SPARE_JOURNAL, BlockSize) == 32, "spare block size offset");
static_assert (OFFSET_OF (ERST_SPARE_JOURNAL, ImageValid) == 40, "spare image state offset");
static_assert (OFFSET_OF (ERST_SPARE_JOURNAL, TargetDone) == 41, "spare target state offset");

/** @file
  Generic error status block (GESB) constants and BlockStatus helpers shared
  by the routines that fill and clear the HEST status blocks.
**/
#pragma once

#include <Uefi.h>

//
// The GESB with all its data entries must fit this fixed region, whatever
// length the HEST gives for the block; clearing points RawDataOffset just
// past it.
//
#define VORN_APEI_GESB_MAX_REGION_LENGTH 0x2000

//
// A block takes at most this many data entries between two clears.
//
#define VORN_APEI_GESB_MAX_ERROR_DATA_ENTRY_COUNT 5

//
// BlockStatus bits.
//
#define GESB_BLOCK_STATUS_UNCORRECTABLE_ERROR_VALID     BIT0
#define GESB_BLOCK_STATUS_CORRECTABLE_ERROR_VALID       BIT1
#define GESB_BLOCK_STATUS_MULTIPLE_UNCORRECTABLE_ERRORS BIT2
#define GESB_BLOCK_STATUS_MULTIPLE_CORRECTABLE_ERRORS   BIT3
#define GESB_BLOCK_STATUS_ENTRY_COUNT_SHIFT             4
#define GESB_BLOCK_STATUS_ENTRY_COUNT_MASK              0x3FF

/**
  Returns ErrorDataEntryCount (BlockStatus bits 4..13).
**/
inline UINT32 VornApeiLoggingGesbEntryCount (IN UINT32 BlockStatus) {
  return (BlockStatus >> GESB_BLOCK_STATUS_ENTRY_COUNT_SHIFT) & GESB_BLOCK_STATUS_ENTRY_COUNT_MASK;
}

/**
  Returns BlockStatus with ErrorDataEntryCount advanced by one; the 10-bit
  count wraps and no other bit changes.
**/
inline UINT32 VornApeiLoggingGesbIncrementEntryCount (IN UINT32 BlockStatus) {
  UINT32 Count;

  Count = (VornApeiLoggingGesbEntryCount (BlockStatus) + 1) & GESB_BLOCK_STATUS_ENTRY_COUNT_MASK;
  return (BlockStatus & ~(GESB_BLOCK_STATUS_ENTRY_COUNT_MASK << GESB_BLOCK_STATUS_ENTRY_COUNT_SHIFT)) |
         (Count << GESB_BLOCK_STATUS_ENTRY_COUNT_SHIFT);
}

/** @file
  Generic error status block (GESB) constants shared by the routines that fill and clear the HEST status blocks.
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

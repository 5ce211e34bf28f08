/** @file
  BlockStatus of a generic error status block as the one 32-bit word an OS
  reads and writes (the ACPI layout splits it into bit-fields).
**/
#pragma once

#include <bit>

#include <Protocol/VornApeiLoggingSmm.h>

inline UINT32 StatusWord (const GENERIC_ERROR_STATUS *Block) {
  return std::bit_cast<UINT32> (Block->BlockStatus);
}

inline EFI_ACPI_6_3_ERROR_BLOCK_STATUS BlockStatusOf (UINT32 Word) {
  return std::bit_cast<EFI_ACPI_6_3_ERROR_BLOCK_STATUS> (Word);
}

inline void SetStatusWord (GENERIC_ERROR_STATUS *Block, UINT32 Word) {
  Block->BlockStatus = BlockStatusOf (Word);
}

/** @file
  Reads the ERST record store off the attached flash image for decoding:
  finds the error-log firmware volume, then follows the record chain from
  the store header, stopping with a reason where the chain is corrupt
  rather than trusting it.
**/
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <Uefi.h>
#include <VornApeiErst.h>

namespace Sim {

struct ErstVolume {
  UINT64 Address;     // the FV header
  UINT64 Length;      // block size x number of blocks, as the volume reports, cut at the part's end
  UINT64 StoreHeader; // right behind the FV extended header

  UINT64 Records () const {
    return StoreHeader + sizeof (ERST_STORE_HEADER);
  }
  UINT64 End () const {
    return Address + Length;
  }
};

//
// The first volume found at power-on whose extended header names
// gEfiWheaElogFvGuid; nullopt when there is none.
//
std::optional<ErstVolume> FindErrorLogVolume ();

struct ErstStoredRecord {
  UINT64                   HeaderAddress;
  ERST_ERROR_RECORD_HEADER Header;
  ERST_ERROR_RECORD_FLAGS  Flags;
  std::vector<UINT8>       OsRecord; // the OsRecordLength bytes behind the flags
};

struct ErstStoreContents {
  ERST_STORE_HEADER             StoreHeader = {};
  std::vector<ErstStoredRecord> Records;    // in chain order
  UINT64                        End = 0;    // where the chain stopped: a new record would go here
  std::string                   Corruption; // why the chain could not be followed; empty when it ended cleanly
};

//
// The chain ends cleanly at an erased record header, at a
// NextRecordHeaderAddress of 0 or all ones (the firmware stops there too),
// or where no whole record header fits before the volume's end.
//
ErstStoreContents ReadErstStore (const ErstVolume &Volume);

} // namespace Sim

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

//
// A record's state as its two clear bytes tell it; a record can carry both
// marks, and then counts as cleared.
//
enum class ErstRecordState {
  Live,
  ClearedByOspm,  // RecordClearPerOspm holds the clear mark
  MarkedObsolete, // RecordClearPerBios holds it (and RecordClearPerOspm does not)
};

ErstRecordState RecordState (const ERST_ERROR_RECORD_FLAGS &Flags);

//
// How much of the store the records take.
//
struct ErstStoreUsage {
  size_t Records          = 0;
  size_t Live             = 0;
  size_t Cleared          = 0; // marked by OSPM
  size_t Obsolete         = 0; // marked by firmware (a record can carry both marks)
  UINT64 UsedBytes        = 0; // record area up to where the chain stopped
  UINT64 ReclaimableBytes = 0; // of UsedBytes, in cleared and obsolete records
  UINT64 FreeBytes        = 0; // after the chain, to the volume's end
};

ErstStoreUsage StoreUsage (const ErstVolume &Volume, const ErstStoreContents &Store);

} // namespace Sim

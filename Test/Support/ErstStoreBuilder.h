/** @file
  Lays an ERST store down on the flash image byte for byte as the module
  writes it, so that suites start from a known store without going through
  the write path: store header, then records of header, flags and OS record.
**/
#pragma once

#include <vector>

#include <Uefi.h>
#include <VornApeiErst.h>

namespace ErstStore {

//
// Where one record landed.
//
struct Placed {
  UINT64 Header;
  UINT64 Flags;
  UINT64 Data;
  UINT64 Next; // where the following header goes
};

//
// OS record image of Length bytes: "CPER" at 0, Length at 20 and RecordId at
// 96 where they fit, a pattern derived from RecordId elsewhere.
//
std::vector<UINT8> OsRecord (UINT64 RecordId, UINT32 Length);

//
// The 8-bit checksum the module stores for an OS record.
//
UINT8 Checksum (const std::vector<UINT8> &Bytes);

class Builder {
public:
  //
  // Starts a store whose header is at StoreHeaderAddress; writes the header
  // unless WriteHeader is FALSE (for stores whose header a test lays itself).
  //
  explicit Builder (UINT64  StoreHeaderAddress,
                    BOOLEAN WriteHeader          = TRUE,
                    UINT32  Revision             = ERST_STORE_HEADER_LATEST_REVISION,
                    UINT32  StoreLengthAvailable = 0);

  //
  // Appends a record linked to the previous one, with the clear flags given
  // (0xFF: not cleared).
  //
  Placed Add (UINT64 RecordId, UINT32 Length, UINT8 ClearPerOspm = 0xFF, UINT8 ClearPerBios = 0xFF);

  //
  // The header of a record as the write path builds it.
  //
  static ERST_ERROR_RECORD_HEADER
  Header (UINT64 HeaderAddress, UINT64 Previous, UINT64 RecordId, const std::vector<UINT8> &Record);

  UINT64 RecordRegion () const {
    return mStore + sizeof (ERST_STORE_HEADER);
  }
  UINT64 End () const {
    return mEnd;
  }
  UINT64 Last () const {
    return mLast;
  }

private:
  UINT64 mStore;
  UINT64 mEnd;
  UINT64 mLast = MAX_UINT64;
};

//
// Raw edits of structures already on flash.
//
ERST_ERROR_RECORD_HEADER ReadHeader (UINT64 HeaderAddress);
void                     WriteHeader (UINT64 HeaderAddress, const ERST_ERROR_RECORD_HEADER &Header);

} // namespace ErstStore

/** @file
  ERST store images laid straight onto the flash model.
**/
#include "ErstStoreBuilder.h"

#include <cstring>
#include <span>

#include <SpiFlash.h>

namespace ErstStore {

namespace {

template <typename T> void PokeObject (UINT64 Address, const T &Object) {
  Host::Flash::Poke (Address, std::span<const UINT8> (reinterpret_cast<const UINT8 *> (&Object), sizeof (Object)));
}

template <typename T> void PutField (std::vector<UINT8> &Bytes, size_t Offset, T Value) {
  if (Offset + sizeof (Value) <= Bytes.size ()) {
    std::memcpy (Bytes.data () + Offset, &Value, sizeof (Value));
  }
}

} // namespace

std::vector<UINT8> OsRecord (UINT64 RecordId, UINT32 Length) {
  std::vector<UINT8> Bytes (Length);

  for (UINT32 Index = 0; Index < Length; Index++) {
    Bytes[Index] = static_cast<UINT8> (RecordId * 7 + Index);
  }

  PutField (Bytes, 0, SIGNATURE_32 ('C', 'P', 'E', 'R'));
  PutField (Bytes, 20, Length);
  PutField (Bytes, 96, RecordId);
  return Bytes;
}

UINT8
Checksum (const std::vector<UINT8> &Bytes) {
  UINT8 Sum = 0;

  for (UINT8 Byte : Bytes) {
    Sum = static_cast<UINT8> (Sum + Byte);
  }

  return static_cast<UINT8> (0x100 - Sum);
}

Builder::Builder (UINT64 StoreHeaderAddress, BOOLEAN WriteHeader, UINT32 Revision, UINT32 StoreLengthAvailable)
    : mStore (StoreHeaderAddress), mEnd (StoreHeaderAddress + sizeof (ERST_STORE_HEADER)) {
  if (WriteHeader) {
    const ERST_STORE_HEADER Store = {ERST_STORE_HEADER_SIGNATURE, Revision, StoreLengthAvailable};
    PokeObject (mStore, Store);
  }
}

ERST_ERROR_RECORD_HEADER
Builder::Header (UINT64 HeaderAddress, UINT64 Previous, UINT64 RecordId, const std::vector<UINT8> &Record) {
  ERST_ERROR_RECORD_HEADER H;

  std::memset (&H, 0, sizeof (H));
  H.Signature               = ERST_ERROR_RECORD_HEADER_SIGNATURE;
  H.Revision                = ERST_ERROR_RECORD_HEADER_LATEST_REVISION;
  H.OsRecordFlagsAddress    = HeaderAddress + sizeof (ERST_ERROR_RECORD_HEADER);
  H.OsRecordAddress         = HeaderAddress + ERST_ERROR_RECORD_HEADER_AND_FLAGS_LENGTH;
  H.PrevRecordHeaderAddress = Previous;
  H.NextRecordHeaderAddress = H.OsRecordAddress + Record.size ();
  H.OsRecordChecksum        = Checksum (Record);
  H.OsRecordLength          = static_cast<UINT32> (Record.size ());
  H.OsRecordID              = RecordId;
  return H;
}

Placed Builder::Add (UINT64 RecordId, UINT32 Length, UINT8 ClearPerOspm, UINT8 ClearPerBios) {
  const std::vector<UINT8>       Record = OsRecord (RecordId, Length);
  const ERST_ERROR_RECORD_HEADER H      = Header (mEnd, mLast, RecordId, Record);
  ERST_ERROR_RECORD_FLAGS        Flags;

  std::memset (&Flags, 0xFF, sizeof (Flags));
  Flags.Revision           = ERST_ERROR_RECORD_FLAGS_LATEST_REVISION;
  Flags.RecordClearPerOspm = ClearPerOspm;
  Flags.RecordClearPerBios = ClearPerBios;
  PokeObject (mEnd, H);
  PokeObject (H.OsRecordFlagsAddress, Flags);
  Host::Flash::Poke (H.OsRecordAddress, Record);

  const Placed Where = {mEnd, H.OsRecordFlagsAddress, H.OsRecordAddress, H.NextRecordHeaderAddress};
  mLast              = mEnd;
  mEnd               = H.NextRecordHeaderAddress;
  return Where;
}

ERST_ERROR_RECORD_HEADER
ReadHeader (UINT64 HeaderAddress) {
  ERST_ERROR_RECORD_HEADER H;
  const auto               Bytes = Host::Flash::Peek (HeaderAddress, sizeof (H));

  std::memcpy (&H, Bytes.data (), sizeof (H));
  return H;
}

void WriteHeader (UINT64 HeaderAddress, const ERST_ERROR_RECORD_HEADER &Header) {
  PokeObject (HeaderAddress, Header);
}

} // namespace ErstStore

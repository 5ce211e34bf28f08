/** @file
  The ERST record store read off the flash image.
**/
#include "Decode/ErstStoreReader.h"

#include <algorithm>
#include <cstring>

#include <Guid/WheaElogFv.h>
#include <Pi/PiFirmwareVolume.h>

#include <SpiFlash.h>

#include "Common/TextFormat.h"

namespace Sim {

namespace {

template <typename T> T PeekAs (UINT64 Address) {
  T                        Value;
  const std::vector<UINT8> Bytes = Host::Flash::Peek (Address, sizeof (Value));
  std::memcpy (&Value, Bytes.data (), sizeof (Value));
  return Value;
}

std::string Hex (UINT64 Value) {
  return Format ("0x%016llX", static_cast<unsigned long long> (Value));
}

} // namespace

std::optional<ErstVolume> FindErrorLogVolume () {
  for (const Host::Flash::Volume &Found : Host::Flash::Volumes ()) {
    // A block map may claim more than the part holds: nothing past it is read.
    const UINT64 Length =
        std::min (UINT64{Found.BlockSize} * Found.NumberOfBlocks, Host::Flash::kTopOfFlash - Found.Address);
    const auto Header = PeekAs<EFI_FIRMWARE_VOLUME_HEADER> (Found.Address);
    if (Header.ExtHeaderOffset == 0 || Header.ExtHeaderOffset + sizeof (EFI_FIRMWARE_VOLUME_EXT_HEADER) > Length) {
      continue;
    }
    const auto Ext = PeekAs<EFI_FIRMWARE_VOLUME_EXT_HEADER> (Found.Address + Header.ExtHeaderOffset);
    if (std::memcmp (&Ext.FvName, &gEfiWheaElogFvGuid, sizeof (EFI_GUID)) == 0) {
      return ErstVolume{Found.Address, Length, Found.Address + Header.ExtHeaderOffset + Ext.ExtHeaderSize};
    }
  }
  return std::nullopt;
}

ErstStoreContents ReadErstStore (const ErstVolume &Volume) {
  ErstStoreContents Store;
  Store.End = Volume.Records ();
  if (Volume.Records () > Volume.End ()) {
    Store.Corruption = Format ("the store header @ %s runs past the volume's end %s", Hex (Volume.StoreHeader).c_str (),
                               Hex (Volume.End ()).c_str ());
    return Store;
  }

  Store.StoreHeader = PeekAs<ERST_STORE_HEADER> (Volume.StoreHeader);
  if (Store.StoreHeader.Signature != ERST_STORE_HEADER_SIGNATURE) {
    Store.Corruption =
        Format ("the store header signature %s is not \"ERST LOG\"", Hex (Store.StoreHeader.Signature).c_str ());
    return Store;
  }

  UINT64 Here = Volume.Records ();
  while (Here + ERST_ERROR_RECORD_HEADER_AND_FLAGS_LENGTH <= Volume.End ()) {
    ErstStoredRecord  Record{Here,
                            PeekAs<ERST_ERROR_RECORD_HEADER> (Here),
                            PeekAs<ERST_ERROR_RECORD_FLAGS> (Here + sizeof (ERST_ERROR_RECORD_HEADER)),
                            {}};
    const std::string Name = Format ("record %zu @ %s", Store.Records.size (), Hex (Here).c_str ());
    if (Record.Header.Signature == MAX_UINT64) {
      break;
    }
    if (Record.Header.Signature != ERST_ERROR_RECORD_HEADER_SIGNATURE) {
      Store.Corruption = Format ("%s: signature %s is neither \"ERST ERR\" nor erased", Name.c_str (),
                                 Hex (Record.Header.Signature).c_str ());
      break;
    }

    const UINT64 Data = Here + ERST_ERROR_RECORD_HEADER_AND_FLAGS_LENGTH;
    if (Record.Header.OsRecordLength > Volume.End () - Data) {
      Store.Corruption = Format ("%s: its 0x%08X-byte OS record runs past the volume's end %s", Name.c_str (),
                                 Record.Header.OsRecordLength, Hex (Volume.End ()).c_str ());
      break;
    }

    const UINT64 DataEnd = Data + Record.Header.OsRecordLength;
    const UINT64 Next    = Record.Header.NextRecordHeaderAddress;
    if (Record.Header.OsRecordLength != 0) {
      Record.OsRecord = Host::Flash::Peek (Data, Record.Header.OsRecordLength);
    }
    Store.Records.push_back (std::move (Record));
    Here = DataEnd;
    if (Next == 0 || Next == MAX_UINT64) {
      break;
    }
    if (Next < DataEnd || Next > Volume.End ()) {
      Store.Corruption =
          Format ("%s: NextRecordHeaderAddress %s lies outside %s..%s, the volume behind its OS record", Name.c_str (),
                  Hex (Next).c_str (), Hex (DataEnd).c_str (), Hex (Volume.End ()).c_str ());
      break;
    }
    Here = Next;
  }

  Store.End = Here;
  return Store;
}

ErstRecordState RecordState (const ERST_ERROR_RECORD_FLAGS &Flags) {
  if (Flags.RecordClearPerOspm == ERST_RECORD_CLEAR_FLAG_VALUE) {
    return ErstRecordState::ClearedByOspm;
  }
  return Flags.RecordClearPerBios == ERST_RECORD_CLEAR_FLAG_VALUE ? ErstRecordState::MarkedObsolete
                                                                  : ErstRecordState::Live;
}

ErstStoreUsage StoreUsage (const ErstVolume &Volume, const ErstStoreContents &Store) {
  ErstStoreUsage Usage;
  for (const ErstStoredRecord &Record : Store.Records) {
    const UINT64 Bytes    = ERST_ERROR_RECORD_HEADER_AND_FLAGS_LENGTH + UINT64{Record.Header.OsRecordLength};
    const bool   Cleared  = Record.Flags.RecordClearPerOspm == ERST_RECORD_CLEAR_FLAG_VALUE;
    const bool   Obsolete = Record.Flags.RecordClearPerBios == ERST_RECORD_CLEAR_FLAG_VALUE;
    Usage.Cleared += Cleared ? 1 : 0;
    Usage.Obsolete += Obsolete ? 1 : 0;
    Usage.Live += !Cleared && !Obsolete ? 1 : 0;
    Usage.ReclaimableBytes += Cleared || Obsolete ? Bytes : 0;
  }
  Usage.Records   = Store.Records.size ();
  Usage.UsedBytes = Store.End > Volume.Records () ? Store.End - Volume.Records () : 0;
  Usage.FreeBytes = Volume.End () > Store.End ? Volume.End () - Store.End : 0;
  return Usage;
}

} // namespace Sim

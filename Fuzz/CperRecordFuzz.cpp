/** @file
  A platform error handler hands an arbitrary record to the logging
  protocol's record call, signals the block the routing rule names, and the
  OS reads every block so signalled.

  Input: the CPER severity of the call (one byte), then the record. The
  record ends at an inaccessible page, is padded to the protocol's record
  type, and its RecordLength is cut to the bytes given: the caller owns the
  record type and RecordLength bytes, and no more.
**/
#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>
#include <ostream>
#include <vector>

#include <Guid/Cper.h>

#include "FuzzPlatform.h"
#include "Handlers/ErrorHandlerAgent.h"
#include "Os/GhesReader.h"
#include "Os/OsApei.h"

namespace {

constexpr UINT64 kLargestRecord = 0x10000;

//
// The booted machine after the OS enabled APEI, saved with the module's data
// and put back before each input, so a finding replays alone.
//
struct Session {
  std::ostream                      Discard{nullptr};
  Sim::BootResult                   Booted;
  Fuzz::GuardedWindow               Record{Host::AllocateSmram, kLargestRecord};
  std::optional<Fuzz::SavedMachine> Machine;

  explicit Session (const Sim::BootResult &Boot) : Booted (Boot) {
    Sim::OsEnableApei ();
    Machine.emplace ();
  }
};

std::unique_ptr<Session> mSession;

} // namespace

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *Data, size_t Size) {
  if (Size == 0) {
    return 0;
  }

  std::vector<UINT8> Record (Data + 1, Data + std::min<size_t> (Size, kLargestRecord + 1));
  Record.resize (std::max (Record.size (), sizeof (CPER_RECORD)));
  auto *Header         = reinterpret_cast<EFI_COMMON_ERROR_RECORD_HEADER *> (Record.data ());
  Header->RecordLength = std::min<UINT32> (Header->RecordLength, static_cast<UINT32> (Record.size ()));

  const auto Fault = Host::Contained ([&] {
    if (!mSession) {
      mSession = std::make_unique<Session> (Fuzz::Boot ());
    } else {
      mSession->Machine->Restore ();
    }

    Host::ClearSerialOutput ();
    Sim::GhesReader Os (mSession->Booted.Platform.Hest, mSession->Discard);
    const UINT64    Placed = mSession->Record.Place (Record);
    Sim::ErrorHandlerAgent ().Report (Host::At<CPER_RECORD> (Placed), Data[0]);
    Os.Poll ();
  });
  if (Fuzz::Faulted (Fault)) {
    mSession.reset ();
  }

  return 0;
}

/** @file
  The simulated OS's ERST driver.
**/
#include "Os/ErstDriver.h"

#include <cstring>
#include <set>

#include <Guid/Cper.h>
#include <Host.h>

#include "Builder/AcpiHeader.h"
#include "Common/TextFormat.h"

namespace Sim {

namespace {

using ErstTable = EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_HEADER;

// The creator of the records Linux's pstore writes, and the only one it keeps.
constexpr EFI_GUID kPstoreCreator = {0x75a574e3, 0x5052, 0x4b29, {0x8a, 0x8e, 0xbe, 0x2c, 0x64, 0x90, 0xb8, 0x9d}};

// Both values are found in firmware: the size of the fields after the ACPI
// header, and the size of the whole header.
constexpr UINT32 kSerializationHeaderSizes[] = {ErstDriver::kHeaderSize - sizeof (EFI_ACPI_DESCRIPTION_HEADER),
                                                ErstDriver::kHeaderSize};

//
// The table's entries once its header passed the checks an OS makes.
//
std::span<const ErstEntry> CheckedEntries (UINT64 Address) {
  const auto *Table = reinterpret_cast<const ErstTable *> (Address);

  if (Table->Header.Signature != EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_SIGNATURE) {
    throw AcpiTableError ("ERST refused: signature '" + AcpiSignatureText (Table->Header.Signature) +
                          "' is not 'ERST'");
  }

  const UINT32 Length = Table->Header.Length;
  if (Length < ErstDriver::kHeaderSize) {
    throw AcpiTableError (
        Format ("ERST refused: length %u is shorter than its %u-byte header", Length, ErstDriver::kHeaderSize));
  }

  const UINT32 HeaderSize = Table->SerializationHeaderSize;
  if ((HeaderSize != kSerializationHeaderSizes[0]) && (HeaderSize != kSerializationHeaderSizes[1])) {
    throw AcpiTableError (Format ("ERST refused: serialization header size %u is neither %u nor %u", HeaderSize,
                                  kSerializationHeaderSizes[0], kSerializationHeaderSizes[1]));
  }

  const UINT32 Count    = Table->InstructionEntryCount;
  const UINT32 Expected = (Length - ErstDriver::kHeaderSize) / sizeof (ErstEntry);
  if (Count != Expected) {
    throw AcpiTableError (
        Format ("ERST refused: %u instruction entries, but its length %u leaves room for %u", Count, Length, Expected));
  }

  return {reinterpret_cast<const ErstEntry *> (Table + 1), Count};
}

} // namespace

ErstResult ErstResultFromStatus (UINT64 CommandStatus) {
  switch (CommandStatus) {
    case 0:
      return ErstResult::Success;
    case 1:
      return ErstResult::NoSpace;
    case 2:
      return ErstResult::HardwareNotAvailable;
    case 3:
      return ErstResult::Failed;
    case 4:
      return ErstResult::StoreEmpty;
    case 5:
      return ErstResult::NotFound;
    default:
      return ErstResult::Invalid;
  }
}

const char *ErstResultText (ErstResult Result) {
  switch (Result) {
    case ErstResult::Success:
      return "success";
    case ErstResult::NoSpace:
      return "no space (-ENOSPC)";
    case ErstResult::HardwareNotAvailable:
      return "hardware not available (-ENODEV)";
    case ErstResult::Failed:
      return "failed (-EINVAL)";
    case ErstResult::StoreEmpty:
      return "record store empty (-ENOENT)";
    case ErstResult::NotFound:
      return "record not found (-ENOENT)";
    case ErstResult::Invalid:
      return "invalid (-EINVAL)";
    case ErstResult::TimedOut:
      return "Firmware does not respond in time. (-EIO)";
  }

  return "unknown";
}

const char *ErstResultErrno (ErstResult Result) {
  switch (Result) {
    case ErstResult::Success:
      return "";
    case ErstResult::NoSpace:
      return "ENOSPC";
    case ErstResult::HardwareNotAvailable:
      return "ENODEV";
    case ErstResult::StoreEmpty:
    case ErstResult::NotFound:
      return "ENOENT";
    case ErstResult::TimedOut:
      return "EIO";
    case ErstResult::Failed:
    case ErstResult::Invalid:
      break;
  }

  return "EINVAL";
}

std::string ErstListEndText (const ErstListing &Listing) {
  const std::string Last = Listing.Ids.empty ()
                               ? std::string ()
                               : Format ("0x%016llX", static_cast<unsigned long long> (Listing.Ids.back ()));
  switch (Listing.End) {
    case ErstListEnd::NoMoreRecords:
      return "end of the store";
    case ErstListEnd::Repeated:
      return "an identifier came round again";
    case ErstListEnd::Limit:
      return Format ("stopped after %zu records", Listing.Ids.size ());
    case ErstListEnd::ReadFailed:
      return Format ("pstore stopped: reading %s failed: %s", Last.c_str (), ErstResultText (Listing.Result));
    case ErstListEnd::ShortRecord:
      return Format ("pstore stopped: reading %s left RecordLength %u in the error-log buffer, less than a CPER "
                     "header and a section descriptor (-EIO)",
                     Last.c_str (), Listing.LastLength);
    case ErstListEnd::Stuck:
      return Format ("the firmware offered %s again after \"not found\": Linux would read it for ever", Last.c_str ());
  }

  return "";
}

ErstDriver::ErstDriver (UINT64 ErstAddress) : mInterpreter (CheckedEntries (ErstAddress)) {
  mErrorLog.Base       = Query (EFI_ACPI_6_3_ERST_GET_ERROR_LOG_ADDRESS_RANGE);
  mErrorLog.Length     = Query (EFI_ACPI_6_3_ERST_GET_ERROR_LOG_ADDRESS_RANGE_LENGTH);
  mErrorLog.Attributes = Query (EFI_ACPI_6_3_ERST_GET_ERROR_LOG_ADDRESS_RANGE_ATTRIBUTES);
  if ((mErrorLog.Length == 0) || !ErstOsMemory (mErrorLog.Base, mErrorLog.Length)) {
    throw AcpiTableError (
        Format ("ERST refused: error-log address range 0x%llx length 0x%llx is not memory the OS can map",
                static_cast<unsigned long long> (mErrorLog.Base), static_cast<unsigned long long> (mErrorLog.Length)));
  }
}

const ErstErrorLogRange &ErstDriver::ErrorLog () const {
  return mErrorLog;
}

ErstInterpreter &ErstDriver::Interpreter () {
  return mInterpreter;
}

UINT64
ErstDriver::Query (UINT8 Action) {
  mInterpreter.Reset ();
  mInterpreter.Run (Action);
  return mInterpreter.Output ();
}

//
// The common tail of every command: trigger, wait while busy, fetch the
// status, end the operation.
//
ErstResult ErstDriver::Execute () {
  const Host::SwSmiCount Before = Host::SwSmis ();
  mInterpreter.Run (EFI_ACPI_6_3_ERST_EXECUTE_OPERATION);
  const Host::SwSmiCount After = Host::SwSmis ();
  if (After.Raised == Before.Raised) {
    throw ErstExecutionError (Format ("EXECUTE_OPERATION raised no SMI: its register is not the SMI command port "
                                      "0x%02X, so no firmware handler ran",
                                      Host::kSmiCommandPort));
  }

  if (After.Answered == Before.Answered) {
    throw ErstExecutionError (Format ("software SMI 0x%02X from EXECUTE_OPERATION found no SMI handler: the "
                                      "firmware registered none (is there an error-log volume on the flash?)",
                                      After.Last));
  }

  UINT64 Poll = 0;
  for (;; Poll++) {
    mInterpreter.Run (EFI_ACPI_6_3_ERST_CHECK_BUSY_STATUS);
    if (mInterpreter.Output () == 0) {
      break;
    }

    if (Poll == kBusyPolls) {
      return ErstResult::TimedOut;
    }
  }

  mInterpreter.Run (EFI_ACPI_6_3_ERST_GET_COMMAND_STATUS);
  const UINT64 Status = mInterpreter.Output ();
  mInterpreter.RunOptional (EFI_ACPI_6_3_ERST_END_OPERATION);
  return ErstResultFromStatus (Status);
}

ErstResult ErstDriver::Write (std::span<const UINT8> Record) {
  EFI_COMMON_ERROR_RECORD_HEADER Header;
  if (Record.size () < sizeof (Header)) {
    return ErstResult::Invalid;
  }

  std::memcpy (&Header, Record.data (), sizeof (Header));
  if ((Header.SignatureStart != EFI_ERROR_RECORD_SIGNATURE_START) || (Header.RecordLength > mErrorLog.Length) ||
      (Header.RecordLength > Record.size ()) || (Header.RecordLength < sizeof (Header))) {
    return ErstResult::Invalid;
  }

  const std::vector<UINT8> Serialised = AsSerialised (Record.first (Header.RecordLength));
  std::memcpy (reinterpret_cast<UINT8 *> (mErrorLog.Base), Serialised.data (), Serialised.size ());
  mInterpreter.Reset ();
  mInterpreter.RunOptional (EFI_ACPI_6_3_ERST_BEGIN_WRITE_OPERATION);
  mInterpreter.SetInput (0);
  mInterpreter.Run (EFI_ACPI_6_3_ERST_SET_RECORD_OFFSET);
  return Execute ();
}

std::vector<UINT8> ErstDriver::AsSerialised (std::span<const UINT8> Record) {
  std::vector<UINT8> Serialised (Record.begin (), Record.end ());
  if (Serialised.size () >= sizeof (EFI_COMMON_ERROR_RECORD_HEADER)) {
    // Linux's signature for records it serialised.
    std::memcpy (Serialised.data () + OFFSET_OF (EFI_COMMON_ERROR_RECORD_HEADER, PersistenceInfo), "ER", 2);
  }
  return Serialised;
}

ErstResult ErstDriver::Read (UINT64 RecordId) {
  mInterpreter.Reset ();
  mInterpreter.RunOptional (EFI_ACPI_6_3_ERST_BEGIN_READ_OPERATION);
  mInterpreter.SetInput (0);
  mInterpreter.Run (EFI_ACPI_6_3_ERST_SET_RECORD_OFFSET);
  mInterpreter.SetInput (RecordId);
  mInterpreter.Run (EFI_ACPI_6_3_ERST_SET_RECORD_IDENTIFIER);
  return Execute ();
}

UINT32
ErstDriver::RecordLengthInRange () const {
  UINT32 Length;
  std::memcpy (&Length,
               reinterpret_cast<const UINT8 *> (mErrorLog.Base) +
                   OFFSET_OF (EFI_COMMON_ERROR_RECORD_HEADER, RecordLength),
               sizeof (Length));
  return Length;
}

ErstResult ErstDriver::Clear (UINT64 RecordId) {
  mInterpreter.Reset ();
  mInterpreter.RunOptional (EFI_ACPI_6_3_ERST_BEGIN_CLEAR_OPERATION);
  mInterpreter.SetInput (RecordId);
  mInterpreter.Run (EFI_ACPI_6_3_ERST_SET_RECORD_IDENTIFIER);
  return Execute ();
}

//
// Linux never issues a dummy write; the command is here for firmware
// engineers.
//
ErstResult ErstDriver::DummyWrite () {
  mInterpreter.Reset ();
  mInterpreter.Run (EFI_ACPI_6_3_ERST_BEGIN_DUMMY_WRITE_OPERATION);
  mInterpreter.SetInput (0);
  mInterpreter.Run (EFI_ACPI_6_3_ERST_SET_RECORD_OFFSET);
  return Execute ();
}

UINT64
ErstDriver::RecordId () {
  return Query (EFI_ACPI_6_3_ERST_GET_RECORD_IDENTIFIER);
}

UINT64
ErstDriver::RecordCount () {
  return Query (EFI_ACPI_6_3_ERST_GET_RECORD_COUNT);
}

bool ErstDriver::RangeHoldsPstoreRecord () const {
  EFI_COMMON_ERROR_RECORD_HEADER Header;
  std::memcpy (&Header, reinterpret_cast<const void *> (mErrorLog.Base), sizeof (Header));
  return std::memcmp (&Header.CreatorID, &kPstoreCreator, sizeof (kPstoreCreator)) == 0;
}

ErstListing ErstDriver::List (size_t Limit, const std::function<void (size_t)> &Progress, bool PastPstore) {
  ErstListing      Listing;
  std::set<UINT64> Taken;   // identifiers whose read succeeded
  std::set<UINT64> Dropped; // identifiers whose read said "not found"

  while (true) {
    const UINT64 Id = RecordId ();
    if (Id == kNoRecord) {
      Listing.End = ErstListEnd::NoMoreRecords;
      return Listing;
    }

    // Linux drops a "not found" identifier from its cache, so one offered
    // again is read again, for ever.
    if (Dropped.contains (Id)) {
      Listing.End = ErstListEnd::Stuck;
      return Listing;
    }

    if (Taken.contains (Id)) {
      Listing.End = ErstListEnd::Repeated;
      return Listing;
    }

    if (Listing.Ids.size () == Limit) {
      Listing.End = ErstListEnd::Limit;
      return Listing;
    }

    Listing.Ids.push_back (Id);
    if (Progress) {
      Progress (Listing.Ids.size ());
    }

    Listing.Result = Read (Id);
    if ((Listing.Result == ErstResult::NotFound) || (Listing.Result == ErstResult::StoreEmpty)) {
      Listing.Skipped++;
      Dropped.insert (Id);
      continue;
    }

    if (Listing.Result != ErstResult::Success) {
      Listing.End = ErstListEnd::ReadFailed;
      return Listing;
    }

    Listing.LastLength = RecordLengthInRange ();
    if (Listing.LastLength < kPstoreMinimum && !PastPstore) {
      Listing.End = ErstListEnd::ShortRecord;
      return Listing;
    }

    Listing.Pstore += RangeHoldsPstoreRecord () ? 1 : 0;
    Taken.insert (Id);
  }
}

} // namespace Sim

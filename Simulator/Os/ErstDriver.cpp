/** @file
  The simulated OS's ERST driver.
**/
#include "Os/ErstDriver.h"

#include <cstring>
#include <set>

#include <Host.h>

#include "Builder/AcpiHeader.h"
#include "Common/TextFormat.h"

namespace Sim {

namespace {

using ErstTable = EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_HEADER;

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
      return "timed out (-EIO)";
  }

  return "unknown";
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
  if (Record.size () > mErrorLog.Length) {
    return ErstResult::Invalid;
  }

  std::memcpy (reinterpret_cast<void *> (mErrorLog.Base), Record.data (), Record.size ());
  mInterpreter.Reset ();
  mInterpreter.Run (EFI_ACPI_6_3_ERST_BEGIN_WRITE_OPERATION);
  mInterpreter.SetInput (0);
  mInterpreter.Run (EFI_ACPI_6_3_ERST_SET_RECORD_OFFSET);
  return Execute ();
}

ErstResult ErstDriver::Read (UINT64 RecordId) {
  mInterpreter.Reset ();
  mInterpreter.Run (EFI_ACPI_6_3_ERST_BEGIN_READ_OPERATION);
  mInterpreter.SetInput (0);
  mInterpreter.Run (EFI_ACPI_6_3_ERST_SET_RECORD_OFFSET);
  mInterpreter.SetInput (RecordId);
  mInterpreter.Run (EFI_ACPI_6_3_ERST_SET_RECORD_IDENTIFIER);
  return Execute ();
}

ErstResult ErstDriver::Clear (UINT64 RecordId) {
  mInterpreter.Reset ();
  mInterpreter.Run (EFI_ACPI_6_3_ERST_BEGIN_CLEAR_OPERATION);
  mInterpreter.SetInput (RecordId);
  mInterpreter.Run (EFI_ACPI_6_3_ERST_SET_RECORD_IDENTIFIER);
  return Execute ();
}

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

ErstListing ErstDriver::List (size_t Limit) {
  ErstListing      Listing;
  std::set<UINT64> Seen;

  while (true) {
    const UINT64 Id = RecordId ();
    if (Id == kNoRecord) {
      Listing.End = ErstListEnd::NoMoreRecords;
      return Listing;
    }

    if (!Seen.insert (Id).second) {
      Listing.End = ErstListEnd::Repeated;
      return Listing;
    }

    if (Listing.Ids.size () == Limit) {
      Listing.End = ErstListEnd::Limit;
      return Listing;
    }

    Listing.Ids.push_back (Id);
    Listing.Result = Read (Id);
    if (Listing.Result != ErstResult::Success) {
      Listing.End = ErstListEnd::ReadFailed;
      return Listing;
    }
  }
}

} // namespace Sim

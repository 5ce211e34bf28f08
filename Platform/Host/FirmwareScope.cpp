/** @file
  Entries into firmware: one at a time on the machine, each watched by the
  watchdog, and the text of the faults that end them.
**/
#include <cinttypes>
#include <cstdio>
#include <mutex>

#include "CodeMap.h"
#include "FirmwareInternal.h"
#include "HostInternal.h"

namespace Host::Internal {

namespace {

//
// Held by the outermost entry of a host thread: a processor that enters SMM
// while another is in it waits, as at the SMI rendezvous.
//
std::recursive_mutex mSmm;

std::string Hex (UINT64 Value, int Digits) {
  char Text[32];
  std::snprintf (Text, sizeof (Text), "0x%0*" PRIX64, Digits, Value);
  return Text;
}

} // namespace

std::string EntryText (const FirmwareThread &Thread) {
  const std::string On = " on processor " + std::to_string (Thread.Cpu);
  switch (Thread.Kind) {
    case EntryKind::ModuleEntry:
      return "the module entry" + On;
    case EntryKind::SoftwareSmi:
      return "software SMI " + Hex (Thread.Value, 2) + On;
    case EntryKind::HandlerSmi:
      return std::string ("the error handler's ") + (Thread.Name != nullptr ? Thread.Name : "SMI") + On;
    case EntryKind::HostPrinter:
      return Thread.Name != nullptr ? Thread.Name : "a module printer";
  }

  return "firmware";
}

} // namespace Host::Internal

namespace Host {

FirmwareScope::FirmwareScope (EntryKind Kind, const char *Name, UINT64 Value) {
  Internal::PrepareFaultHandling ();
  Internal::mSmm.lock ();
  Internal::FirmwareThread &Thread = Internal::CurrentFirmwareThread ();
  if (Thread.Depth++ != 0) {
    return;
  }

  Thread.Kind         = Kind;
  Thread.Name         = Name;
  Thread.Value        = Value;
  Thread.Cpu          = CurrentCpu ();
  Thread.LinesAtEntry = Internal::SerialLinesWritten ();
  Thread.LineBudget   = (Kind == EntryKind::ModuleEntry) ? Config ().WatchdogEntryLines : Config ().WatchdogLines;
  Internal::StartCpuBudget (Config ().WatchdogSeconds);
}

FirmwareScope::~FirmwareScope () {
  Internal::FirmwareThread &Thread = Internal::CurrentFirmwareThread ();
  if (--Thread.Depth == 0) {
    Internal::StopCpuBudget ();
  }

  Internal::mSmm.unlock ();
}

bool InFirmware () {
  return Internal::CurrentFirmwareThread ().Depth != 0;
}

std::string MachineFault::What () const {
  switch (Kind) {
    case MachineFaultKind::Read:
    case MachineFaultKind::Write:
    case MachineFaultKind::Execute: {
      static const char *const kAccess[] = {"read", "write", "instruction fetch"};
      return std::string (kAccess[static_cast<int> (Kind)]) + " at " + Internal::Hex (Address, 16) +
             ", outside the machine's memory, in " + Entry;
    }
    case MachineFaultKind::StackOverflow:
      return "the stack of " + Entry + " overflowed: an access at " + Internal::Hex (Address, 16) + " ran past its end";
    case MachineFaultKind::GeneralProtection:
      return "general-protection fault in " + Entry +
             ": an access to an address that is not canonical (the processor does not report it, so the address is "
             "not known)";
    case MachineFaultKind::Watchdog:
      break;
  }

  return Entry + " never returned: the watchdog stopped it (it " + Reason + ")";
}

std::vector<CodeLocation> MachineFault::Where (size_t Count) const {
  std::vector<CodeLocation> Frames;
  for (size_t Index = 0; (Index < Stack.size ()) && (Frames.size () < Count); Index++) {
    const UINT64 Address = (Index == 0) ? Stack[Index] : Stack[Index] - 1;
    if (Internal::OwnerOf (Address) == Internal::CodeOwner::Module) {
      Frames.push_back (Locate (Address));
    }
  }

  return Frames;
}

const char *MachineFault::what () const noexcept {
  if (mText.empty ()) {
    mText = "machine fault: " + What ();
  }

  return mText.c_str ();
}

} // namespace Host

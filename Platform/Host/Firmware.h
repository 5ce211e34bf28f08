/** @file
  Firmware code on the simulated machine: every entry into module code (the
  module entry, a software SMI, an error handler's SMI, a printer run for the
  host) runs inside a FirmwareScope. The scope models what SMM guarantees and
  what SMM cannot survive:

  - one entry at a time: an entry on another host thread (another processor)
    waits until the running one returns, as processors wait at the SMI
    rendezvous;
  - an access outside the machine's memory (a host SIGSEGV or SIGBUS raised
    while module code runs, or a range a platform memory service refuses:
    MachineAccess.h), a stack that runs out, an address that is not
    canonical, and an entry that never returns (too many serial log lines,
    too much processor time, or a dead loop) end the entry with a
    MachineFault exception instead of killing the process. On hardware each
    of them resets the machine; the caller reports the fault and powers the
    machine on again. The flash keeps what was programmed before the fault.

  A host fault outside module code (simulator or test code, even when called
  back from firmware) is not contained: it crashes as it would without the
  scope, so host bugs stay visible.
**/
#pragma once

#include <exception>
#include <optional>
#include <string>
#include <vector>

#include <Uefi.h>

namespace Host {

enum class EntryKind {
  ModuleEntry, // _ModuleEntryPoint: start-up, discovery, defragmentation
  SoftwareSmi, // a handler the SMI command port dispatched (Value is the command)
  HandlerSmi,  // a platform error handler's SMI calling the module's protocol
  HostPrinter, // module printers run for the host (Name is the printer)
};

enum class MachineFaultKind {
  Read,              // a load from an address the machine does not have
  Write,             // a store to one
  Execute,           // an instruction fetch from one
  Watchdog,          // the entry never returned: stopped by a budget or a dead loop
  StackOverflow,     // the entry's stack ran out (Address: the access past it)
  GeneralProtection, // an address that is not canonical; the processor names none
};

//
// Where in the code an address lies.
//
struct CodeLocation {
  std::string Function; // empty when unknown
  std::string File;     // relative to the source tree
  UINT32      Line = 0;

  //
  // "Function (File:Line)", or "an unknown place".
  //
  std::string Text () const;
};

class MachineFault : public std::exception {
public:
  MachineFaultKind    Kind    = MachineFaultKind::Read;
  UINT64              Address = 0; // the address accessed (memory faults; 0 for GeneralProtection)
  UINT64              Pc      = 0; // the instruction that faulted or was stopped
  std::vector<UINT64> Stack;       // Pc, then the return addresses outwards
  std::string         Entry;       // "software SMI 0x9C on processor 0"
  std::string         Reason;      // why the watchdog stopped it

  //
  // What happened: "read at 0x00000001FE14005C, outside the machine's
  // memory", "software SMI 0x9C never returned: ...", "the stack of ...
  // overflowed", "general-protection fault ...".
  //
  std::string What () const;

  //
  // The frames of module code (Feature/, Library/), innermost first, at most
  // Count of them, found through the executable's debug information.
  //
  std::vector<CodeLocation> Where (size_t Count = 1) const;

  const char *what () const noexcept override;

private:
  mutable std::string mText;
};

//
// Runs the code it encloses as firmware (see the file comment). Scopes nest
// on one host thread; the outermost one holds the machine and counts the
// watchdog's budgets from its start.
//
class FirmwareScope {
public:
  explicit FirmwareScope (EntryKind Kind, const char *Name = nullptr, UINT64 Value = 0);
  ~FirmwareScope ();

  FirmwareScope (const FirmwareScope &)            = delete;
  FirmwareScope &operator= (const FirmwareScope &) = delete;
};

//
// Runs Run (which enters firmware through its own scopes: a boot, an SMI, a
// handler's call) and hands back the machine fault that ended it, if any. The
// machine must be powered on again before module code runs after a fault.
//
template <typename Body> std::optional<MachineFault> Contained (Body &&Run) {
  try {
    Run ();
  } catch (const MachineFault &Fault) {
    return Fault;
  }

  return std::nullopt;
}

//
// Whether the calling host thread runs firmware code now.
//
bool InFirmware ();

//
// The module's own code location of an instruction address.
//
CodeLocation Locate (UINT64 Address);

} // namespace Host

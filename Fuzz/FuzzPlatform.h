/** @file
  What every fuzz harness shares: the platform it boots (vornsim's default
  platform with the switches the run names), the rule for machine faults,
  and input placed in simulated memory against an inaccessible page.

  The switches come from the environment: VORN_FIX holds a --fix list
  ("all" is the interop profile); unset or "none", the module runs as
  specified.
  With every switch on a machine fault is a finding; as specified it must
  be contained and reported, and the harness powers on again.
**/
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include <Firmware.h>
#include <Host.h>

#include "Builder/Boot.h"

namespace Fuzz {

//
// vornsim's default platform with this run's switches, on a small flash part
// (FlashPart), with watchdog budgets that stop a runaway entry quickly.
//
Host::MachineConfig Machine ();

//
// A flash part of 1 MiB: the default empty error-log volume, a firmware
// volume right behind it, and the spare area.
//
std::vector<UINT8> FlashPart ();

//
// Puts FlashPart () back on the attached part, Volume (cut or padded with
// erased bytes to its 32 blocks) over its error-log volume unless empty,
// and boots the module on Machine (); call it inside Host::Contained.
//
Sim::BootResult Boot (std::span<const UINT8> Volume = {});

//
// Takes what a run that entered firmware came to. Returns true when it
// ended in a machine fault, after which the machine must be powered on
// again; aborts (a finding) when the fault is not allowed or not reported.
// Named: the input itself named the address (a platform table pointing at
// memory the machine lacks), which is allowed with every switch on too.
//
bool Faulted (const std::optional<Host::MachineFault> &Fault, bool Named = false);

//
// The machine (Host::SaveMachine) and the module's data as they are now;
// Restore puts both back, so that every input starts from the same state.
//
class SavedMachine {
public:
  SavedMachine ();
  void Restore () const;

private:
  std::shared_ptr<const Host::MachineState> mMachine;
  std::vector<UINT8>                        mModule;
};

//
// A window of simulated memory whose last page is inaccessible: bytes
// placed in it end at that page, so a read past them is a machine fault.
// The window must be given back (destroyed) before the next power-on.
//
class GuardedWindow {
public:
  GuardedWindow (UINT64 (*Allocate) (UINT64 Size, UINT64 Align), UINT64 Capacity);
  ~GuardedWindow ();

  GuardedWindow (const GuardedWindow &)            = delete;
  GuardedWindow &operator= (const GuardedWindow &) = delete;

  //
  // Copies Bytes (at most the capacity; the rest is dropped) to end at the
  // guard page; returns their address.
  //
  UINT64 Place (std::span<const UINT8> Bytes);

private:
  UINT64 mGuard;
  UINT64 mCapacity;
};

} // namespace Fuzz

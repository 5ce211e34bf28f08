/** @file
  Power-on of the simulated machine: configuration, reset of every part in a
  fixed order, and the hooks of parts built elsewhere.
**/
#include <stdexcept>
#include <utility>

#include "ProtocolDatabase.h"

namespace Host {

namespace {

MachineConfig                                               mConfig;
std::vector<std::pair<std::string, std::function<void ()>>> mPowerOnHooks;

} // namespace

void PowerOn (const MachineConfig &Config) {
  const Topology &Cpus = Config.Cpus;
  if ((Cpus.Sockets == 0) || (Cpus.CoresPerSocket == 0) || (Cpus.ThreadsPerCore == 0)) {
    throw std::invalid_argument ("a machine needs at least one processor");
  }

  mConfig = Config;
  Internal::ApplyFixedPcds ();
  Internal::ResetFaults ();
  Internal::ResetMemory ();
  Internal::BootDatabase ().Reset ();
  Internal::SmmDatabase ().Reset ();

  Internal::ResetTrace ();
  Internal::ResetUarts ();
  Internal::ResetCmos ();
  Internal::ResetSmiPorts ();
  Internal::ResetFch ();
  Internal::ResetPci ();
  Internal::ResetMsrs ();
  Internal::ResetProcessors ();
  Internal::ResetBreakpoints ();

  //
  // The order fixes every address the platform hands out.
  //
  Internal::InstallBootServices ();
  Internal::InstallSmst ();
  Internal::InstallSmmBase2 ();
  Internal::InstallManufacturingMode ();
  Internal::InstallSwDispatch ();
  Internal::InstallSmmCpuService ();
  Internal::InstallAttributeStorage ();

  for (auto &Hook : mPowerOnHooks) {
    Hook.second ();
  }
}

const MachineConfig &Config () {
  return mConfig;
}

void AddPowerOnHook (const std::string &Name, std::function<void ()> Hook) {
  for (auto &Existing : mPowerOnHooks) {
    if (Existing.first == Name) {
      Existing.second = std::move (Hook);
      return;
    }
  }

  mPowerOnHooks.emplace_back (Name, std::move (Hook));
}

} // namespace Host

/** @file
  The machine fixture and its serial-log helpers.
**/
#include "TestMachine.h"

#include <cstdio>
#include <cstdlib>

#include <Library/VornMultiThreadedDebugLib.h>
#include "Builder/Fixes.h"
#include "Builder/ModuleImage.h"

//
// VORN_TEST_FIX turns switches on for a whole suite: a switch that must
// not change one answer runs the suites written for the specified rules.
//
Host::MachineConfig MachineTest::MachineConfiguration () const {
  Host::MachineConfig Config;
  if (const char *Fixes = std::getenv ("VORN_TEST_FIX")) {
    Config.Fixes = Sim::ParseFixes (Fixes);
  }

  return Config;
}

void MachineTest::SetUp () {
  Boot (MachineConfiguration ());
}

void MachineTest::Boot (const Host::MachineConfig &Config) {
  Host::PowerOn (Config);
  ModuleImageLoad ();
  Host::ClearSerialOutput ();
  Host::SetCurrentCpu (0);
  ASSERT_EQ (VornMultiThreadedDebugLibConstructor (Host::ImageHandle (), Host::SystemTable ()), EFI_SUCCESS);
  Host::ClearSerialOutput ();
}

std::vector<std::string> MachineTest::SerialLines () {
  const std::string       &Output = Host::SerialOutput ();
  std::vector<std::string> Lines;
  size_t                   Start = 0;
  for (size_t End = Output.find ("\r\n"); End != std::string::npos; End = Output.find ("\r\n", Start)) {
    Lines.push_back (Output.substr (Start, End - Start));
    Start = End + 2;
  }

  if (Start < Output.size ()) {
    Lines.push_back (Output.substr (Start));
  }

  return Lines;
}

std::string MachineTest::CpuPrefix (UINTN Cpu) {
  const EFI_CPU_PHYSICAL_LOCATION Location = Host::CpuLocation (Cpu);
  char                            Prefix[64];
  std::snprintf (Prefix, sizeof (Prefix), "[SMM] APIC 0x%02llX S%02u:C%02u:T%02u > ",
                 static_cast<unsigned long long> (Host::ApicId (Cpu)), Location.Package, Location.Core,
                 Location.Thread);
  return Prefix;
}

std::string MachineTest::Line (UINTN Cpu, const std::string &Text) {
  return CpuPrefix (Cpu) + Text;
}

/** @file
  The fixture every suite runs on: a freshly powered-on machine with the
  module image loaded and the debug log sink started, so that log lines
  carry the processor prefix.
**/
#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <Host.h>

class MachineTest : public ::testing::Test {
protected:
  //
  // The machine a suite runs on; a suite overrides it to change settings.
  //
  virtual Host::MachineConfig MachineConfiguration () const;

  void SetUp () override;

public:
  //
  // Powers the machine on with Config, loads the module image afresh (its
  // data and locks reset) and starts the debug log sink.
  //
  static void Boot (const Host::MachineConfig &Config);

  //
  // The primary serial output split into lines, CR LF removed; a last
  // unterminated line is kept.
  //
  static std::vector<std::string> SerialLines ();

  //
  // The prefix the debug log sink writes for a processor, and a whole line.
  //
  static std::string CpuPrefix (UINTN Cpu);
  static std::string Line (UINTN Cpu, const std::string &Text);
};

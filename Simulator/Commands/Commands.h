/** @file
  The commands vornsim offers; Main.cpp lists them in its command table.
**/
#pragma once

#include "Commands/Command.h"

namespace Sim {

extern const Command kBootCommand;
extern const Command kAcpiDumpCommand;
extern const Command kErstWriteCommand;
extern const Command kErstReadCommand;
extern const Command kErstClearCommand;
extern const Command kErstListCommand;
extern const Command kErstCountCommand;
extern const Command kErstDummyWriteCommand;
extern const Command kRebootCommand;
extern const Command kInjectCommand;
extern const Command kExportCperCommand;
extern const Command kScenarioCommand;
extern const Command kDecodeCperCommand;
extern const Command kDecodeFlashCommand;
extern const Command kPowerCutCommand;

} // namespace Sim

/** @file
  The JSON form of what the agents report, for --json: a handler's run and
  the status blocks the OS read.
**/
#pragma once

#include <string>
#include <vector>

#include "Commands/SharedOptions.h"
#include "Handlers/ErrorHandlerAgent.h"
#include "Os/GhesReader.h"

namespace Sim {

std::string HexText (UINT64 Value); // "0x0000000010800000"

Json HandlerJson (const HandlerReport &Report, UINTN Cpu, const std::string &What);
Json BlocksJson (const std::vector<GhesBlockReport> &Blocks);

} // namespace Sim

/** @file
  vornsim: the simulator's command line. Finds the command named by the
  leading arguments in the command table and runs it.
**/
#include <algorithm>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <Firmware.h>

#include "Builder/Fixes.h"
#include "Commands/Commands.h"
#include "Commands/SharedOptions.h"

namespace {

using Sim::Command;

// Every command vornsim offers, in the order 'vornsim --help' lists them.
const Command *const kCommands[] = {
    &Sim::kScenarioCommand,       &Sim::kBootCommand,        &Sim::kAcpiDumpCommand, &Sim::kErstWriteCommand,
    &Sim::kErstReadCommand,       &Sim::kErstClearCommand,   &Sim::kErstListCommand, &Sim::kErstCountCommand,
    &Sim::kErstDummyWriteCommand, &Sim::kRebootCommand,      &Sim::kInjectCommand,   &Sim::kExportCperCommand,
    &Sim::kDecodeCperCommand,     &Sim::kDecodeFlashCommand, &Sim::kPowerCutCommand,
};

// What 'vornsim' alone runs.
const Command &kDefaultCommand = Sim::kScenarioCommand;

std::vector<std::string> Words (const char *Name) {
  std::istringstream       Stream (Name);
  std::vector<std::string> Result;
  for (std::string Word; Stream >> Word;) {
    Result.push_back (Word);
  }
  return Result;
}

bool StartsWith (const std::vector<std::string> &Arguments, const std::vector<std::string> &Prefix) {
  return Arguments.size () >= Prefix.size () && std::equal (Prefix.begin (), Prefix.end (), Arguments.begin ());
}

//
// The command whose name is the longest prefix of Arguments, or null.
//
const Command *FindCommand (const std::vector<std::string> &Arguments) {
  const Command *Found  = nullptr;
  size_t         Length = 0;
  for (const Command *Candidate : kCommands) {
    const std::vector<std::string> Name = Words (Candidate->Name);
    if (StartsWith (Arguments, Name) && Name.size () > Length) {
      Found  = Candidate;
      Length = Name.size ();
    }
  }
  return Found;
}

bool IsHelp (const std::string &Argument) {
  return Argument == "--help" || Argument == "-h";
}

void PrintCommandList (std::ostream &Out, const std::string &Group) {
  size_t Width = 0;
  for (const Command *Candidate : kCommands) {
    Width = std::max (Width, std::string (Candidate->Name).size ());
  }
  for (const Command *Candidate : kCommands) {
    const std::string Name = Candidate->Name;
    if (Group.empty () || Words (Candidate->Name).front () == Group) {
      Out << "  " << Name << std::string (Width - Name.size () + 3, ' ') << Candidate->Summary << '\n';
    }
  }
}

void PrintHelp () {
  std::cout << "usage: vornsim <command> [arguments]\n"
               "\n"
               "Simulates the AMD server platform around the VornApeiLoggingSmm module: builds\n"
               "the platform, boots the module and prints its serial debug log.\n"
               "\n"
               "commands:\n";
  PrintCommandList (std::cout, "");
  std::cout << "\n"
               "'vornsim <command> --help' describes a command. 'vornsim' alone runs 'scenario'.\n"
               "\n"
               "options for every command (anywhere on the line):\n"
               "  -q, --quiet         the serial log goes to a file (vornsim-serial.log, or\n"
               "                      --log FILE); the terminal gets only the story (\"os: \",\n"
               "                      \"handler: \", \"platform: \" lines) and the summaries\n"
               "  --json              one JSON document on standard output: what the OS saw,\n"
               "                      statuses, records, decoded fields, the health; the serial\n"
               "                      log goes to a file as with -q\n"
               "  --print-level MASK  the platform's run-time debug print level (default\n"
               "                      0x80000040: info and errors; 0x80000000: errors only)\n"
               "  --fix NAME[,NAME...] turn on switches that replace a specified rule known to\n"
               "                      hurt users by what a careful firmware does instead (all\n"
               "                      are off by default; '--fix all' turns every one on)\n"
               "  --version           vornsim's version\n"
               "\n"
               "Every command that boots ends with a health line on standard error: ERROR\n"
               "lines in the serial log, the ERST store's records and bytes, and whether\n"
               "every software SMI found a handler.\n"
               "\n"
               "Exit status: 0 success; 1 a runtime failure (a file, a table) or a machine\n"
               "fault: when the module faults (an access outside the machine's memory, or\n"
               "an SMI that never returns), vornsim says what and where in the module on\n"
               "standard error, as the machine would reset; 2 a bad command line; for the\n"
               "ERST commands, as Linux maps the firmware's status: 3 -ENOENT, 4 -EIO,\n"
               "5 -ENOSPC, 6 -ENODEV, 7 -EINVAL.\n"
               "\n"
               "switches (--fix):\n";
  for (const Sim::FixSwitch &Switch : Sim::FixSwitches ()) {
    std::cout << "  " << Switch.Name << std::string (16 - std::string (Switch.Name).size (), ' ') << Switch.Summary
              << '\n';
  }
}

//
// A failure's message on standard error, and in the document under --json.
//
int Failure (const std::string &Message, int Status) {
  std::cerr << "vornsim: " << Message << '\n';
  Sim::Document ()["error"] = Message;
  return Status;
}

int UsageFailure (const std::string &Message, const std::string &HelpCommand) {
  return Failure (Message + " (see '" + HelpCommand + "')", Sim::kExitUsage);
}

int Dispatch (std::vector<std::string> Arguments) {
  try {
    Sim::TakeSharedOptions (Arguments);
  } catch (const Sim::UsageError &Error) {
    return UsageFailure (Error.what (), "vornsim --help");
  }
  if (std::find (Arguments.begin (), Arguments.end (), "--version") != Arguments.end ()) {
    Sim::Document ()["version"] = VORNSIM_VERSION;
    if (!Sim::Shared ().Json) {
      std::cout << "vornsim " VORNSIM_VERSION "\n";
    }
    return 0;
  }
  if (Arguments.empty ()) {
    Sim::Document ()["command"] = kDefaultCommand.Name;
    return kDefaultCommand.Run ({});
  }
  if (IsHelp (Arguments.front ())) {
    PrintHelp ();
    return 0;
  }

  const Command *Selected = FindCommand (Arguments);
  if (Selected == nullptr) {
    const std::string &First = Arguments.front ();
    if (First.starts_with ("-")) {
      return UsageFailure ("unknown option '" + First + "'", "vornsim --help");
    }
    // A command group such as 'acpi': list its commands on request.
    std::ostringstream Group;
    PrintCommandList (Group, First);
    if (Group.str ().empty ()) {
      return UsageFailure ("unknown command '" + First + "'", "vornsim --help");
    }
    if (Arguments.size () > 1 && IsHelp (Arguments[1])) {
      std::cout << "'" << First << "' commands:\n" << Group.str ();
      return 0;
    }
    if (Arguments.size () > 1) {
      return UsageFailure ("unknown command '" + First + " " + Arguments[1] + "'", "vornsim --help");
    }
    return UsageFailure ("'" + First + "' needs a command", "vornsim " + First + " --help");
  }

  const std::vector<std::string> Rest (Arguments.begin () + Words (Selected->Name).size (), Arguments.end ());
  if (std::any_of (Rest.begin (), Rest.end (), IsHelp)) {
    std::cout << Selected->Help;
    return 0;
  }
  Sim::Document ()["command"] = Selected->Name;
  try {
    return Selected->Run (Rest);
  } catch (const Sim::UsageError &Error) {
    return UsageFailure (Error.what (), "vornsim " + std::string (Selected->Name) + " --help");
  }
}

//
// The machine stopped: what the module did and where. The run ends as a reset
// would end it; the flash image keeps what was programmed before.
//
int ReportMachineFault (const Host::MachineFault &Fault) {
  constexpr size_t kFrames = 4;

  std::cout.flush ();
  std::cerr << "vornsim: machine fault: " << Fault.What () << '\n';
  const char *Lead  = "in";
  Sim::Json   Where = Sim::Json::array ();
  for (const Host::CodeLocation &Frame : Fault.Where (kFrames)) {
    std::cerr << "vornsim:   " << Lead << ' ' << Frame.Text () << '\n';
    Where.push_back (Frame.Text ());
    Lead = "called from";
  }

  std::cerr << "vornsim:   on hardware this resets the machine; the flash keeps what was programmed before\n";
  Sim::Document ()["machine_fault"] = {{"what", Fault.What ()}, {"where", Where}};
  return Sim::kExitFailure;
}

int Run (const std::vector<std::string> &Arguments) {
  try {
    return Dispatch (Arguments);
  } catch (const Host::MachineFault &Fault) {
    return ReportMachineFault (Fault);
  } catch (const std::exception &Error) {
    return Failure (Error.what (), Sim::kExitFailure);
  } catch (...) {
    return Failure ("unexpected failure", Sim::kExitFailure);
  }
}

} // namespace

int main (int argc, char **argv) {
  const int Status = Run (std::vector<std::string> (argv + 1, argv + argc));
  if (Sim::Shared ().Json && !Sim::Document ().empty ()) {
    Sim::Document ()["exit_status"] = Status;
    std::cout << Sim::Document ().dump (2, ' ', false, Sim::Json::error_handler_t::replace) << '\n';
  }
  return Status;
}

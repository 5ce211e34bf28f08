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
               "When the module faults (an access outside the machine's memory, or an SMI\n"
               "that never returns), vornsim says what and where in the module on standard\n"
               "error and exits with status 1, as the machine would reset.\n"
               "\n"
               "--fix NAME[,NAME...], given to any command, turns on switches that replace a\n"
               "specified rule known to hurt users by what a careful firmware does instead\n"
               "(all are off by default; '--fix all' turns every one on):\n";
  for (const Sim::FixSwitch &Switch : Sim::FixSwitches ()) {
    std::cout << "  " << Switch.Name << std::string (16 - std::string (Switch.Name).size (), ' ') << Switch.Summary
              << '\n';
  }
}

//
// Takes every "--fix LIST" (or "--fix=LIST") out of Arguments and selects
// the switches they name for the platforms this run builds.
//
void TakeFixes (std::vector<std::string> &Arguments) {
  std::set<Host::Fix> Fixes;
  for (size_t Index = 0; Index < Arguments.size ();) {
    const std::string &Argument = Arguments[Index];
    if (Argument.starts_with ("--fix=")) {
      Fixes.merge (Sim::ParseFixes (Argument.substr (6)));
      Arguments.erase (Arguments.begin () + Index);
    } else if (Argument == "--fix") {
      if (Index + 1 == Arguments.size ()) {
        throw std::invalid_argument ("option '--fix' needs a value");
      }
      Fixes.merge (Sim::ParseFixes (Arguments[Index + 1]));
      Arguments.erase (Arguments.begin () + Index, Arguments.begin () + Index + 2);
    } else {
      Index++;
    }
  }
  Sim::SelectFixes (Fixes);
}

int UsageFailure (const std::string &Message, const std::string &HelpCommand) {
  std::cerr << "vornsim: " << Message << " (see '" << HelpCommand << "')\n";
  return 2;
}

int Dispatch (std::vector<std::string> Arguments) {
  try {
    TakeFixes (Arguments);
  } catch (const std::invalid_argument &Error) {
    return UsageFailure (Error.what (), "vornsim --help");
  }
  if (Arguments.empty ()) {
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
void ReportMachineFault (const Host::MachineFault &Fault) {
  constexpr size_t kFrames = 4;

  std::cout.flush ();
  std::cerr << "vornsim: machine fault: " << Fault.What () << '\n';
  const char *Lead = "in";
  for (const Host::CodeLocation &Frame : Fault.Where (kFrames)) {
    std::cerr << "vornsim:   " << Lead << ' ' << Frame.Text () << '\n';
    Lead = "called from";
  }

  std::cerr << "vornsim:   on hardware this resets the machine; the flash keeps what was programmed before\n";
}

} // namespace

int main (int argc, char **argv) {
  try {
    return Dispatch (std::vector<std::string> (argv + 1, argv + argc));
  } catch (const Host::MachineFault &Fault) {
    ReportMachineFault (Fault);
  } catch (const std::exception &Error) {
    std::cerr << "vornsim: " << Error.what () << '\n';
  } catch (...) {
    std::cerr << "vornsim: unexpected failure\n";
  }
  return 1;
}

/** @file
  The ERST instruction interpreter of the simulated OS: runs the entries of
  one serialization action over the action's own instruction pointer, with
  the semantics Linux gives each instruction.
**/
#pragma once

#include <span>
#include <stdexcept>

#include <IndustryStandard/Acpi.h>

#include "Builder/AcpiCheck.h"
#include "Os/ErstRegister.h"

namespace Sim {

using ErstEntry = EFI_ACPI_6_3_ERST_SERIALIZATION_INSTRUCTION_ENTRY;

//
// An action that cannot complete: no entries, a loop that never ends, a
// stall that never ends, a move outside memory.
//
struct ErstExecutionError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

//
// "BEGIN_WRITE_OPERATION"; "action 0x0C" for one ACPI does not name.
//
std::string ErstActionName (UINT8 Action);

//
// "WRITE_REGISTER_VALUE"; "instruction 0x13" for an unknown one.
//
std::string ErstInstructionName (UINT8 Instruction);

//
// The interpreter's variables; an operation starts them all at 0.
//
struct ErstVariables {
  UINT64 Value   = 0; // input and output of an action
  UINT64 Var1    = 0;
  UINT64 Var2    = 0; // also the MOVE_DATA length
  UINT64 SrcBase = 0;
  UINT64 DstBase = 0;
};

class ErstInterpreter {
public:
  static constexpr UINT64 kMaxStallMicroseconds       = 50;    // a longer stall is cut to this, as Linux does
  static constexpr UINT64 kStallWhileTrueMicroseconds = 1000;  // Linux's budget for one STALL_WHILE_TRUE
  static constexpr UINT64 kMaxStallPolls              = 10000; // STALL_WHILE_TRUE without a stall: Linux spins
  static constexpr UINT64 kMaxSteps                   = 10000; // Linux has no limit: it would hang

  //
  // Checks every entry as an OS does before it takes a table: a known
  // instruction and, where the instruction reaches its register, a usable
  // register (ErstRegisterProblem). Throws AcpiTableError naming the entry.
  // The entries are read again on every run: they stay where they are.
  //
  explicit ErstInterpreter (std::span<const ErstEntry> Entries);

  void                 Reset (); // variables to 0, as for a new operation
  void                 SetInput (UINT64 Value);
  UINT64               Output () const;
  const ErstVariables &Variables () const;
  UINT64               StalledMicroseconds () const; // modelled time spent in STALL and STALL_WHILE_TRUE

  bool Has (UINT8 Action) const;

  //
  // Runs Action's entries. Throws ErstExecutionError when it has none.
  //
  void Run (UINT8 Action);

  //
  // Runs Action's entries if there are any.
  //
  void RunOptional (UINT8 Action);

private:
  void   Execute (UINT8 Action);
  bool   Step (const ErstEntry &Entry, UINT64 &Ip); // true when it set Ip itself
  UINT64 ReadField (const ErstEntry &Entry) const;
  void   WriteField (const ErstEntry &Entry, UINT64 Value) const;
  void   Stall (UINT64 Microseconds);
  void   StallWhileTrue (const ErstEntry &Entry);
  void   MoveData (const ErstEntry &Entry) const;

  std::span<const ErstEntry> mEntries;
  ErstVariables              mVariables;
  UINT64                     mStalled = 0;
};

} // namespace Sim

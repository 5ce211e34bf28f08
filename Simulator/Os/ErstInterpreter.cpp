/** @file
  ERST instruction interpreter.
**/
#include "Os/ErstInterpreter.h"

#include <algorithm>
#include <cstring>

#include "Common/TextFormat.h"

namespace Sim {

namespace {

struct InstructionInfo {
  const char *Name;
  bool        ReachesRegister;
};

// Indexed by instruction code.
constexpr InstructionInfo kInstructions[] = {
    {"READ_REGISTER", true},
    {"READ_REGISTER_VALUE", true},
    {"WRITE_REGISTER", true},
    {"WRITE_REGISTER_VALUE", true},
    {"NOOP", false},
    {"LOAD_VAR1", true},
    {"LOAD_VAR2", true},
    {"STORE_VAR1", true},
    {"ADD", false},
    {"SUBTRACT", false},
    {"ADD_VALUE", true},
    {"SUBTRACT_VALUE", true},
    {"STALL", false},
    {"STALL_WHILE_TRUE", true},
    {"SKIP_NEXT_INSTRUCTION_IF_TRUE", true},
    {"GOTO", false},
    {"SET_SRC_ADDRESS_BASE", true},
    {"SET_DST_ADDRESS_BASE", true},
    {"MOVE_DATA", true},
};

// Indexed by action code; 0x0C has no ACPI name.
constexpr const char *kActions[] = {
    "BEGIN_WRITE_OPERATION",
    "BEGIN_READ_OPERATION",
    "BEGIN_CLEAR_OPERATION",
    "END_OPERATION",
    "SET_RECORD_OFFSET",
    "EXECUTE_OPERATION",
    "CHECK_BUSY_STATUS",
    "GET_COMMAND_STATUS",
    "GET_RECORD_IDENTIFIER",
    "SET_RECORD_IDENTIFIER",
    "GET_RECORD_COUNT",
    "BEGIN_DUMMY_WRITE_OPERATION",
    nullptr,
    "GET_ERROR_LOG_ADDRESS_RANGE",
    "GET_ERROR_LOG_ADDRESS_RANGE_LENGTH",
    "GET_ERROR_LOG_ADDRESS_RANGE_ATTRIBUTES",
    "GET_EXECUTE_OPERATION_TIMINGS",
};

const InstructionInfo *FindInstruction (UINT8 Instruction) {
  return Instruction < std::size (kInstructions) ? &kInstructions[Instruction] : nullptr;
}

// Shifts of 64 or more give 0 rather than undefined behaviour.
UINT64 ShiftLeft (UINT64 Value, UINT32 Bits) {
  return Bits < 64 ? Value << Bits : 0;
}

UINT64 ShiftRight (UINT64 Value, UINT32 Bits) {
  return Bits < 64 ? Value >> Bits : 0;
}

std::string EntryName (size_t Index, const ErstEntry &Entry) {
  return Format ("ERST entry %zu (%s, %s)", Index, ErstActionName (Entry.SerializationAction).c_str (),
                 ErstInstructionName (Entry.Instruction).c_str ());
}

} // namespace

std::string ErstActionName (UINT8 Action) {
  if ((Action < std::size (kActions)) && (kActions[Action] != nullptr)) {
    return kActions[Action];
  }

  return Format ("action 0x%02X", Action);
}

std::string ErstInstructionName (UINT8 Instruction) {
  const InstructionInfo *Info = FindInstruction (Instruction);
  return Info != nullptr ? Info->Name : Format ("instruction 0x%02X", Instruction);
}

ErstInterpreter::ErstInterpreter (std::span<const ErstEntry> Entries) : mEntries (Entries) {
  for (size_t Index = 0; Index < mEntries.size (); Index++) {
    const ErstEntry        Entry = mEntries[Index];
    const InstructionInfo *Info  = FindInstruction (Entry.Instruction);
    if (Info == nullptr) {
      throw AcpiTableError (EntryName (Index, Entry) + ": unknown instruction");
    }

    if (Info->ReachesRegister) {
      const ErstGas     Register = Entry.RegisterRegion;
      const std::string Problem  = ErstRegisterProblem (Register);
      if (!Problem.empty ()) {
        throw AcpiTableError (EntryName (Index, Entry) + ": " + Problem);
      }
    }
  }
}

void ErstInterpreter::Reset () {
  mVariables = ErstVariables ();
}

void ErstInterpreter::SetInput (UINT64 Value) {
  mVariables.Value = Value;
}

UINT64
ErstInterpreter::Output () const {
  return mVariables.Value;
}

const ErstVariables &ErstInterpreter::Variables () const {
  return mVariables;
}

UINT64
ErstInterpreter::StalledMicroseconds () const {
  return mStalled;
}

bool ErstInterpreter::Has (UINT8 Action) const {
  return std::any_of (mEntries.begin (), mEntries.end (),
                      [Action] (const ErstEntry &Entry) { return Entry.SerializationAction == Action; });
}

void ErstInterpreter::Run (UINT8 Action) {
  if (!Has (Action)) {
    throw ErstExecutionError ("the ERST has no entry for " + ErstActionName (Action));
  }

  Execute (Action);
}

void ErstInterpreter::RunOptional (UINT8 Action) {
  if (Has (Action)) {
    Execute (Action);
  }
}

//
// Ip counts the action's own entries in table order. An entry runs when its
// position equals Ip; a jump backwards rescans the table from the start.
//
void ErstInterpreter::Execute (UINT8 Action) {
  UINT64 Ip    = 0;
  UINT64 Steps = 0;
  bool   Rescan;

  do {
    Rescan          = false;
    UINT64 Position = 0;
    for (const ErstEntry &Entry : mEntries) {
      if (Entry.SerializationAction != Action) {
        continue;
      }

      if (Position == Ip) {
        if (++Steps > kMaxSteps) {
          throw ErstExecutionError (Format ("%s ran %llu instructions without finishing: Linux has no limit and "
                                            "would loop for ever",
                                            ErstActionName (Action).c_str (),
                                            static_cast<unsigned long long> (kMaxSteps)));
        }

        if (!Step (Entry, Ip)) {
          Ip++;
        }
      }

      Position++;
      if (Ip < Position) {
        Rescan = true;
        break;
      }
    }
  } while (Rescan);
}

//
// As Linux runs them: the arithmetic, stall, skip and goto instructions take
// their operand from the context's value (the action's input, or what an
// earlier instruction left there), not from the entry; SUBTRACT leaves
// VAR1 - VAR2 in VAR1. Only READ_REGISTER_VALUE and WRITE_REGISTER_VALUE use
// the entry's Value.
//
bool ErstInterpreter::Step (const ErstEntry &Entry, UINT64 &Ip) {
  switch (Entry.Instruction) {
    case EFI_ACPI_6_3_ERST_READ_REGISTER:
      mVariables.Value = ReadField (Entry);
      return false;
    case EFI_ACPI_6_3_ERST_READ_REGISTER_VALUE:
      mVariables.Value = ReadField (Entry) == Entry.Value ? 1 : 0;
      return false;
    case EFI_ACPI_6_3_ERST_WRITE_REGISTER:
      WriteField (Entry, mVariables.Value);
      return false;
    case EFI_ACPI_6_3_ERST_WRITE_REGISTER_VALUE:
      mVariables.Value = Entry.Value;
      WriteField (Entry, mVariables.Value);
      return false;
    case EFI_ACPI_6_3_ERST_NOOP:
      return false;
    case EFI_ACPI_6_3_ERST_LOAD_VAR1:
      mVariables.Var1 = ReadField (Entry);
      return false;
    case EFI_ACPI_6_3_ERST_LOAD_VAR2:
      mVariables.Var2 = ReadField (Entry);
      return false;
    case EFI_ACPI_6_3_ERST_STORE_VAR1:
      WriteField (Entry, mVariables.Var1);
      return false;
    case EFI_ACPI_6_3_ERST_ADD:
      mVariables.Var1 += mVariables.Var2;
      return false;
    case EFI_ACPI_6_3_ERST_SUBTRACT:
      mVariables.Var1 -= mVariables.Var2;
      return false;
    case EFI_ACPI_6_3_ERST_ADD_VALUE:
      WriteField (Entry, ReadField (Entry) + mVariables.Value);
      return false;
    case EFI_ACPI_6_3_ERST_SUBTRACT_VALUE:
      WriteField (Entry, ReadField (Entry) - mVariables.Value);
      return false;
    case EFI_ACPI_6_3_ERST_STALL:
      Stall (mVariables.Value);
      return false;
    case EFI_ACPI_6_3_ERST_STALL_WHILE_TRUE:
      StallWhileTrue (Entry);
      return false;
    case EFI_ACPI_6_3_ERST_SKIP_NEXT_INSTRUCTION_IF_TRUE:
      if (ReadField (Entry) == mVariables.Value) {
        Ip += 2;
        return true;
      }

      return false;
    case EFI_ACPI_6_3_ERST_GOTO:
      Ip = mVariables.Value;
      return true;
    case EFI_ACPI_6_3_ERST_SET_SRC_ADDRESS_BASE:
      mVariables.SrcBase = ReadField (Entry);
      return false;
    case EFI_ACPI_6_3_ERST_SET_DST_ADDRESS_BASE:
      mVariables.DstBase = ReadField (Entry);
      return false;
    default: // MOVE_DATA: the constructor admitted no other instruction
      MoveData (Entry);
      return false;
  }
}

//
// Polls while the register reads the context's value, stalling VAR1
// microseconds (capped) between polls, for at most 1 ms of stalls, as Linux
// does; with a stall of 0 Linux never gives up, so the polls are counted too.
//
void ErstInterpreter::StallWhileTrue (const ErstEntry &Entry) {
  const UINT64 Each   = std::min (mVariables.Var1, kMaxStallMicroseconds);
  UINT64       Waited = 0;
  for (UINT64 Poll = 0; ReadField (Entry) == mVariables.Value; Poll++) {
    if (Each != 0 && Waited + Each > kStallWhileTrueMicroseconds) {
      throw ErstExecutionError (Format ("STALL_WHILE_TRUE of %s still true after %llu us: Linux fails the action "
                                        "with -EIO (\"Firmware does not respond in time.\")",
                                        ErstActionName (Entry.SerializationAction).c_str (),
                                        static_cast<unsigned long long> (Waited)));
    }

    if (Each == 0 && Poll == kMaxStallPolls) {
      throw ErstExecutionError (Format ("STALL_WHILE_TRUE of %s still true after %llu polls with a stall of 0: Linux "
                                        "would poll for ever",
                                        ErstActionName (Entry.SerializationAction).c_str (),
                                        static_cast<unsigned long long> (kMaxStallPolls)));
    }

    Stall (Each);
    Waited += Each;
  }
}

UINT64
ErstInterpreter::ReadField (const ErstEntry &Entry) const {
  const ErstGas Register = Entry.RegisterRegion;
  return ShiftRight (ErstRegisterRead (Register), Register.RegisterBitOffset) & Entry.Mask;
}

void ErstInterpreter::WriteField (const ErstEntry &Entry, UINT64 Value) const {
  const ErstGas Register = Entry.RegisterRegion;
  const UINT64  Field    = ShiftLeft (Entry.Mask, Register.RegisterBitOffset);
  UINT64        Written  = ShiftLeft (Value & Entry.Mask, Register.RegisterBitOffset);

  if ((Entry.Flags & EFI_ACPI_6_3_ERST_PRESERVE_REGISTER) != 0) {
    Written |= ErstRegisterRead (Register) & ~Field;
  }

  ErstRegisterWrite (Register, Written);
}

void ErstInterpreter::Stall (UINT64 Microseconds) {
  mStalled += std::min (Microseconds, kMaxStallMicroseconds);
}

void ErstInterpreter::MoveData (const ErstEntry &Entry) const {
  const UINT64 Offset = ReadField (Entry);
  const UINT64 Length = mVariables.Var2;
  const UINT64 Source = mVariables.SrcBase + Offset;
  const UINT64 Target = mVariables.DstBase + Offset;

  if (!ErstOsMemory (Source, Length) || !ErstOsMemory (Target, Length)) {
    throw ErstExecutionError (
        Format ("MOVE_DATA of 0x%llx bytes from 0x%llx to 0x%llx leaves the memory the OS can map",
                static_cast<unsigned long long> (Length), static_cast<unsigned long long> (Source),
                static_cast<unsigned long long> (Target)));
  }

  std::memmove (reinterpret_cast<void *> (Target), reinterpret_cast<const void *> (Source), Length);
}

} // namespace Sim

/** @file
  The code map and code locations, from the executable's DWARF through
  elfutils' libdw. The executables are not position independent, so a code
  address is the address the debug information names.
**/
#include "CodeMap.h"

#include <dwarf.h>
#include <elfutils/libdwfl.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <string_view>
#include <vector>

namespace Host::Internal {

namespace {

struct CodeRange {
  UINT64    Start;
  UINT64    End;
  CodeOwner Owner;
  Dwarf_Off Unit; // the compilation unit's DIE
};

std::mutex             mDwflLock; // libdw handles are not thread-safe
Dwfl                  *mDwfl  = nullptr;
Dwarf                 *mDwarf = nullptr;
std::vector<CodeRange> mRanges; // sorted by Start; read-only once published
std::atomic<bool>      mLoaded{false};

//
// A path as the source tree names it: "Library/ElogBaseLib/Foo.cpp".
//
std::string_view TreePath (std::string_view Path) {
  constexpr std::string_view kRoot = VORN_SOURCE_DIR "/";
  return Path.starts_with (kRoot) ? Path.substr (kRoot.size ()) : Path;
}

CodeOwner OwnerOfPath (std::string_view Path) {
  const std::string_view Relative = TreePath (Path);
  if (Relative.size () == Path.size ()) {
    return CodeOwner::Unknown;
  }

  for (std::string_view Module : {"Feature/", "Library/"}) {
    if (Relative.starts_with (Module)) {
      return CodeOwner::Module;
    }
  }

  return Relative.starts_with ("Platform/") ? CodeOwner::Platform : CodeOwner::Host;
}

Dwfl *OpenSelf () {
  static const Dwfl_Callbacks Callbacks = {
      .find_elf        = dwfl_build_id_find_elf,
      .find_debuginfo  = dwfl_standard_find_debuginfo,
      .section_address = dwfl_offline_section_address,
      .debuginfo_path  = nullptr,
  };

  Dwfl *Handle = dwfl_begin (&Callbacks);
  if (Handle == nullptr) {
    return nullptr;
  }

  if (dwfl_report_offline (Handle, "self", "/proc/self/exe", -1) == nullptr) {
    dwfl_end (Handle);
    return nullptr;
  }

  dwfl_report_end (Handle, nullptr, nullptr);
  return Handle;
}

Dwfl_Module *MainModule () {
  Dwfl_Module *Found = nullptr;
  dwfl_getmodules (
      mDwfl,
      [] (Dwfl_Module *Module, void **, const char *, Dwarf_Addr, void *Argument) {
        *static_cast<Dwfl_Module **> (Argument) = Module;
        return static_cast<int> (DWARF_CB_ABORT);
      },
      &Found, 0);
  return Found;
}

//
// Every unit's address ranges, read from the units themselves: Clang writes
// no .debug_aranges for a lookup to start from.
//
void ReadRanges () {
  Dwfl_Module *Module = MainModule ();
  Dwarf_Addr   Bias   = 0;
  mDwarf              = Module != nullptr ? dwfl_module_getdwarf (Module, &Bias) : nullptr;
  for (Dwarf_Die *Unit = nullptr; Module != nullptr && (Unit = dwfl_module_nextcu (Module, Unit, &Bias)) != nullptr;) {
    const char *Name = dwarf_diename (Unit);
    if (Name == nullptr) {
      continue;
    }

    const CodeOwner Owner = OwnerOfPath (Name);
    Dwarf_Addr      Base, Start, End;
    for (ptrdiff_t Offset = 0; (Offset = dwarf_ranges (Unit, Offset, &Base, &Start, &End)) > 0;) {
      mRanges.push_back ({Start + Bias, End + Bias, Owner, dwarf_dieoffset (Unit)});
    }
  }

  std::sort (mRanges.begin (), mRanges.end (),
             [] (const CodeRange &A, const CodeRange &B) { return A.Start < B.Start; });
}

} // namespace

void LoadCodeMap () {
  std::lock_guard<std::mutex> Guard (mDwflLock);
  if (mLoaded) {
    return;
  }

  mDwfl = OpenSelf ();
  if (mDwfl != nullptr) {
    ReadRanges ();
  }

  mLoaded = true;
}

static const CodeRange *RangeOf (UINT64 Address) {
  auto After = std::upper_bound (mRanges.begin (), mRanges.end (), Address,
                                 [] (UINT64 Value, const CodeRange &Range) { return Value < Range.Start; });
  if (After == mRanges.begin ()) {
    return nullptr;
  }

  const CodeRange &Range = *std::prev (After);
  return Address < Range.End ? &Range : nullptr;
}

CodeOwner OwnerOf (UINT64 Address) {
  const CodeRange *Range = mLoaded ? RangeOf (Address) : nullptr;
  return Range != nullptr ? Range->Owner : CodeOwner::Unknown;
}

} // namespace Host::Internal

namespace Host {

//
// The innermost function or inlined function around Address.
//
static std::string FunctionAt (Dwarf_Die *Unit, UINT64 Address) {
  Dwarf_Die  *Scopes = nullptr;
  const int   Count  = dwarf_getscopes (Unit, Address, &Scopes);
  std::string Name;

  for (int Index = 0; Index < Count; Index++) {
    const int Tag = dwarf_tag (&Scopes[Index]);
    if ((Tag == DW_TAG_subprogram) || (Tag == DW_TAG_inlined_subroutine)) {
      const char *Found = dwarf_diename (&Scopes[Index]);
      Name              = Found != nullptr ? Found : "";
      break;
    }
  }

  std::free (Scopes);
  return Name;
}

CodeLocation Locate (UINT64 Address) {
  Internal::LoadCodeMap ();
  std::lock_guard<std::mutex> Guard (Internal::mDwflLock);
  CodeLocation                Location;
  const Internal::CodeRange  *Range = Internal::RangeOf (Address);
  Dwarf_Die                   Unit;
  if ((Range == nullptr) || (Internal::mDwarf == nullptr) ||
      (dwarf_offdie (Internal::mDwarf, Range->Unit, &Unit) == nullptr)) {
    return Location;
  }

  Location.Function = FunctionAt (&Unit, Address);
  if (Dwarf_Line *Line = dwarf_getsrc_die (&Unit, Address); Line != nullptr) {
    int         Number = 0;
    const char *File   = dwarf_linesrc (Line, nullptr, nullptr);
    dwarf_lineno (Line, &Number);
    Location.File = File != nullptr ? std::string (Internal::TreePath (File)) : "";
    Location.Line = static_cast<UINT32> (Number);
  }

  return Location;
}

std::string CodeLocation::Text () const {
  if (Function.empty () && File.empty ()) {
    return "an unknown place";
  }

  return (Function.empty () ? std::string ("?") : Function) + " (" + File + ":" + std::to_string (Line) + ")";
}

} // namespace Host

/** @file
  The switch table and the --fix selection.
**/
#include "Builder/Fixes.h"

#include <stdexcept>

namespace Sim {

namespace {

const FixSwitch kFixSwitches[] = {
    {"erst-read", Host::Fix::ErstRead, "a read copies the record into the OS buffer"},
    {"erst-clear", Host::Fix::ErstClear, "a clear marks the stored record, so it stays cleared"},
    {"free-space", Host::Fix::FreeSpace, "discovery counts the space the stored records take"},
    {"fv-header", Host::Fix::FvHeader, "store maintenance keeps the whole volume header"},
    {"hest-length", Host::Fix::HestLength, "status blocks and the lookup stay inside the HEST's lengths"},
    {"cxl-guid", Host::Fix::CxlGuid, "CXL component section types in EFI GUID byte order"},
    {"os-buffer", Host::Fix::OsBuffer, "every address and length the OS hands over is checked"},
    {"cper-bounds", Host::Fix::CperBounds, "population and printers stay inside the record"},
    {"keep-on-enable", Host::Fix::KeepOnEnable, "APEI enable keeps the stored records"},
    {"duplicate-id", Host::Fix::DuplicateId, "a write supersedes the stored copy of its identifier"},
    {"null-store", Host::Fix::NullStore, "mark-obsolete without a store is an error, not a crash"},
    {"torn-tail", Host::Fix::TornTail, "a record torn by a power cut is dropped, the others kept"},
    {"safe-defrag", Host::Fix::SafeDefrag, "clear-all and defragmentation survive a power cut"},
    {"record-index", Host::Fix::RecordIndex, "reads and enumeration go straight to their record"},
};

std::set<Host::Fix> mSelected;

} // namespace

std::span<const FixSwitch> FixSwitches () {
  return kFixSwitches;
}

std::set<Host::Fix> ParseFixes (const std::string &List) {
  std::set<Host::Fix> Fixes;
  size_t              Start = 0;
  for (;;) {
    const size_t      Comma = List.find (',', Start);
    const std::string Name  = List.substr (Start, Comma - Start);
    bool              Known = Name == "all";
    for (const FixSwitch &Switch : kFixSwitches) {
      if (Name == "all" || Name == Switch.Name) {
        Fixes.insert (Switch.Which);
        Known = true;
      }
    }
    if (!Known) {
      throw std::invalid_argument ("unknown switch '" + Name + "' for '--fix'");
    }
    if (Comma == std::string::npos) {
      return Fixes;
    }
    Start = Comma + 1;
  }
}

std::string FixNames (const std::set<Host::Fix> &Fixes) {
  std::string Names;
  for (const FixSwitch &Switch : kFixSwitches) {
    if (Fixes.contains (Switch.Which)) {
      Names += (Names.empty () ? "" : ",") + std::string (Switch.Name);
    }
  }
  return Names.empty () ? "none" : Names;
}

void SelectFixes (const std::set<Host::Fix> &Fixes) {
  mSelected = Fixes;
}

const std::set<Host::Fix> &SelectedFixes () {
  return mSelected;
}

} // namespace Sim

/** @file
  vornsim run through the shell.
**/
#include "VornsimShell.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

VornsimShell::VornsimShell () {
  static int Counter;
  mDirectory =
      fs::temp_directory_path () / ("vornsim-shell-" + std::to_string (getpid ()) + "-" + std::to_string (Counter++));
  fs::remove_all (mDirectory);
  fs::create_directories (mDirectory);
}

VornsimShell::~VornsimShell () {
  fs::remove_all (mDirectory);
}

VornsimShell::Result VornsimShell::operator() (const std::string &Arguments) const {
  // The test executables live in <build>/Test, vornsim in <build>.
  const fs::path Vornsim = fs::canonical ("/proc/self/exe").parent_path ().parent_path () / "vornsim";
  return Run ("'" + Vornsim.string () + "' " + Arguments);
}

VornsimShell::Result VornsimShell::Run (const std::string &Command) const {
  const std::string        Line = "cd '" + mDirectory.string () + "' && " + Command + " > stdout.txt 2> stderr.txt";
  const int                Raw  = std::system (Line.c_str ());
  const std::vector<UINT8> Out  = Read ("stdout.txt");
  const std::vector<UINT8> Err  = Read ("stderr.txt");

  Result             Run{WIFEXITED (Raw) ? WEXITSTATUS (Raw) : -1, {}, std::string (Err.begin (), Err.end ())};
  std::istringstream Lines (std::string (Out.begin (), Out.end ()));
  for (std::string Text; std::getline (Lines, Text);) {
    if (!Text.empty () && Text.back () == '\r') {
      Text.pop_back ();
    }
    Run.Out.push_back (Text);
  }
  return Run;
}

fs::path VornsimShell::File (const std::string &Name) const {
  return mDirectory / Name;
}

std::vector<UINT8> VornsimShell::Read (const std::string &Name) const {
  std::ifstream      Stream (File (Name), std::ios::binary | std::ios::ate);
  std::vector<UINT8> Bytes (Stream ? static_cast<size_t> (Stream.tellg ()) : 0);
  Stream.seekg (0);
  Stream.read (reinterpret_cast<char *> (Bytes.data ()), static_cast<std::streamsize> (Bytes.size ()));
  return Bytes;
}

void VornsimShell::Write (const std::string &Name, const std::vector<UINT8> &Bytes) const {
  std::ofstream (File (Name), std::ios::binary)
      .write (reinterpret_cast<const char *> (Bytes.data ()), static_cast<std::streamsize> (Bytes.size ()));
}

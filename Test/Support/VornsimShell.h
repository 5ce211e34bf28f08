/** @file
  vornsim run as a user runs it: the built binary, started through the shell
  in a directory of its own (removed afterwards), both output streams and
  the exit status captured. Other tools (iasl) run the same way.
**/
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include <Uefi.h>

class VornsimShell {
public:
  struct Result {
    int                      Status; // the exit status; -1 when vornsim did not exit normally
    std::vector<std::string> Out;    // standard output line by line, CR LF or LF removed
    std::string              Err;
  };

  VornsimShell ();
  ~VornsimShell ();

  VornsimShell (const VornsimShell &)            = delete;
  VornsimShell &operator= (const VornsimShell &) = delete;

  //
  // Runs 'vornsim Arguments' in the directory.
  //
  Result operator() (const std::string &Arguments) const;

  //
  // Runs a shell command line in the directory.
  //
  Result Run (const std::string &Command) const;

  const std::filesystem::path &Directory () const {
    return mDirectory;
  }

  //
  // A file in the directory.
  //
  std::filesystem::path File (const std::string &Name) const;
  std::vector<UINT8>    Read (const std::string &Name) const;
  void                  Write (const std::string &Name, const std::vector<UINT8> &Bytes) const;

private:
  std::filesystem::path mDirectory;
};

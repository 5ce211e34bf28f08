/** @file
  Where a command's serial log goes, and what it held: the lines and the
  ERROR lines counted as they pass, and a progress line on a terminal while
  a long start-up (discovery, defragmentation) prints.
**/
#pragma once

#include <filesystem>
#include <fstream>
#include <memory>
#include <ostream>
#include <string>

#include <Uefi.h>

#include "Commands/Command.h"

namespace Sim {

//
// The serial log's file when it does not go to standard output.
//
inline constexpr char kDefaultSerialLog[] = "vornsim-serial.log";

class SerialLog {
public:
  //
  // The file --log names; otherwise standard output, or DefaultFile under
  // -q and --json (and always, when ToFile is set), so that standard output
  // carries only the story or the JSON document. Throws when the file cannot
  // be opened.
  //
  explicit SerialLog (const ParsedArguments &Parsed, const char *DefaultFile = kDefaultSerialLog, bool ToFile = false);
  ~SerialLog (); // detaches the sink

  SerialLog (const SerialLog &)            = delete;
  SerialLog &operator= (const SerialLog &) = delete;

  //
  // The counting stream in front of the destination; Attach makes it the
  // machine's serial sink.
  //
  std::ostream &Stream ();
  void          Attach ();

  //
  // Detaches and flushes; throws when the log could not be written.
  //
  void Finish ();

  UINT64 Lines () const;
  UINT64 ErrorLines () const;

  //
  // The file's path, or empty for standard output.
  //
  const std::string &File () const;

private:
  class Counter;

  std::ofstream            mFile;
  std::string              mPath;
  std::unique_ptr<Counter> mCounter;
  std::ostream             mStream;
};

} // namespace Sim

/** @file
  The serial log's destination and counts.
**/
#include "Commands/SerialLog.h"

#include <cerrno>
#include <cstring>
#include <iostream>
#include <streambuf>

#include <Host.h>
#include <SpiFlash.h>

#include "Commands/Progress.h"
#include "Commands/SharedOptions.h"
#include "Common/TextFormat.h"

namespace Sim {

namespace {

constexpr UINT64 kProgressLines = 4096; // how often the progress line is offered a new state

} // namespace

//
// Passes every byte on and counts lines, and lines carrying the module's
// "ERROR" mark, as the module writes them.
//
class SerialLog::Counter : public std::streambuf {
public:
  explicit Counter (std::ostream &Target) : mTarget (Target), mProgress ("start-up and SMIs") {}

  UINT64 Lines  = 0;
  UINT64 Errors = 0;

protected:
  int overflow (int Character) override {
    if (Character == traits_type::eof ()) {
      return 0;
    }
    const char Byte = static_cast<char> (Character);
    mTarget.put (Byte);
    if (Byte != '\n') {
      mLine.push_back (Byte);
      return Character;
    }
    Lines++;
    Errors += mLine.find (": ERROR") != std::string::npos ? 1 : 0;
    mLine.clear ();
    if (Lines % kProgressLines == 0) {
      const Host::Flash::Counters Flash = Host::Flash::Attached () ? Host::Flash::Count () : Host::Flash::Counters ();
      mProgress.Show (Format ("%llu log lines; flash: %llu reads, %llu programs, %llu erases",
                              static_cast<unsigned long long> (Lines),
                              static_cast<unsigned long long> (Flash.Read.Operations),
                              static_cast<unsigned long long> (Flash.Program.Operations),
                              static_cast<unsigned long long> (Flash.Erase.Operations)));
    }
    return Character;
  }

  int sync () override {
    mTarget.flush ();
    return mTarget ? 0 : -1;
  }

private:
  std::ostream &mTarget;
  std::string   mLine;
  Progress      mProgress;
};

SerialLog::SerialLog (const ParsedArguments &Parsed, const char *DefaultFile, bool ToFile) : mStream (nullptr) {
  const auto Option = Parsed.Options.find ("--log");
  if (Option != Parsed.Options.end ()) {
    mPath = Option->second;
  } else if (ToFile || Shared ().Quiet || Shared ().Json) {
    mPath = DefaultFile;
  }
  if (!mPath.empty ()) {
    mFile.open (mPath, std::ios::binary | std::ios::trunc);
    if (!mFile) {
      throw std::runtime_error (Format ("%s: cannot open the log file: %s", mPath.c_str (), std::strerror (errno)));
    }
  }
  mCounter = std::make_unique<Counter> (mPath.empty () ? std::cout : mFile);
  mStream.rdbuf (mCounter.get ());
}

SerialLog::~SerialLog () {
  Host::SetSerialSink (nullptr);
}

std::ostream &SerialLog::Stream () {
  return mStream;
}

void SerialLog::Attach () {
  Host::SetSerialSink (&mStream);
}

void SerialLog::Finish () {
  Host::SetSerialSink (nullptr);
  mStream.flush ();
  std::ostream &Target = mPath.empty () ? std::cout : static_cast<std::ostream &> (mFile);
  Target.flush ();
  if (!Target) {
    throw std::runtime_error (
        mPath.empty () ? Format ("cannot write the serial log: %s", std::strerror (errno))
                       : Format ("%s: cannot write the log file: %s", mPath.c_str (), std::strerror (errno)));
  }
}

UINT64
SerialLog::Lines () const {
  return mCounter->Lines;
}

UINT64
SerialLog::ErrorLines () const {
  return mCounter->Errors;
}

const std::string &SerialLog::File () const {
  return mPath;
}

} // namespace Sim

/** @file
  A machine with the default flash image and a parameter region, on which
  the store discovery, search and flash-access suites call the module's
  routines directly and read the log line by line.
**/
#pragma once

#include <string>
#include <vector>

#include <ErstFixture.h>
#include <ErstStoreBuilder.h>

class ErstStoreFixture : public ErstFixture {
protected:
  void SetUp () override;

  //
  // Debug code (the dumps) is on unless a suite turns it off.
  //
  Host::MachineConfig MachineConfiguration () const override;
  virtual BOOLEAN     DebugCode () const {
        return TRUE;
  }

  //
  // A store header at the default volume's store, for records to follow.
  //
  static ErstStore::Builder NewStore ();

  //
  // Runs discovery and forgets its log, as the ERST set-up leaves the store
  // for the command path.
  //
  static void Discovered ();

  //
  // Lines a CPU 0 routine prints: "<Routine>: <Text>".
  //
  static std::string L (const std::string &Routine, const std::string &Text);
};

/** @file
  The store suites' machine and log helpers.
**/
#include "ErstStoreFixture.h"

#include <cinttypes>
#include <cstdio>

#include <Library/DebugLib.h>

void ErstStoreFixture::SetUp () {
  ErstFixture::SetUp ();
  mPrivateDataVornApeiLogging.pErstParameterBlock =
      Host::At<VORN_ERST_PARAMETER_REGION> (Host::AllocateReserved (MAX_ERST_PARAMETER_REGION_SIZE));
  ClearLog ();
}

Host::MachineConfig ErstStoreFixture::MachineConfiguration () const {
  Host::MachineConfig Config = ErstFixture::MachineConfiguration ();

  if (!DebugCode ()) {
    Config.DebugPropertyMask &= static_cast<UINT8> (~DEBUG_PROPERTY_DEBUG_CODE_ENABLED);
  }

  return Config;
}

ErstStore::Builder ErstStoreFixture::NewStore () {
  return ErstStore::Builder (StoreHeader ());
}

void ErstStoreFixture::Discovered () {
  EXPECT_EQ (VornApeiLoggingGetErstPersistentStoreData (), EFI_SUCCESS);
  ClearLog ();
}

std::string ErstStoreFixture::L (const std::string &Routine, const std::string &Text) {
  return Line (0, Routine + ": " + Text);
}

std::string ErstStoreFixture::Hex (UINT64 Value) {
  char Text[24];

  std::snprintf (Text, sizeof (Text), "0x%016" PRIX64, Value);
  return Text;
}

::testing::AssertionResult ErstStoreFixture::LoggedInOrder (const std::vector<std::string> &Expected) {
  const std::vector<std::string> Lines = SerialLines ();
  size_t                         At    = 0;

  for (const std::string &Want : Expected) {
    while ((At < Lines.size ()) && (Lines[At] != Want)) {
      At++;
    }

    if (At == Lines.size ()) {
      std::string Log;
      for (const std::string &Text : Lines) {
        Log += Text + "\n";
      }

      return ::testing::AssertionFailure () << "not logged (in order): " << Want << "\n--- log ---\n" << Log;
    }

    At++;
  }

  return ::testing::AssertionSuccess ();
}

size_t ErstStoreFixture::CountContaining (const std::string &Part) {
  return LinesContaining (Part).size ();
}

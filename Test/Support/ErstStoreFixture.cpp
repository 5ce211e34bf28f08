/** @file
  The store suites' machine and log helpers.
**/
#include "ErstStoreFixture.h"

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

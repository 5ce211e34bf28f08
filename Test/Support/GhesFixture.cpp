/** @file
  The error-log protocol fixture.
**/
#include "GhesFixture.h"

#include <cstdarg>
#include <cstdio>

#include <Library/ElogBaseLib.h>
#include <Library/WheaSignalLib.h>
#include <TestAcpiTables.h>

Host::MachineConfig GhesFixture::MachineConfiguration () const {
  Host::MachineConfig Config;
  if (!DumpsEnabled ()) {
    Config.DebugPropertyMask &= static_cast<UINT8> (~0x04);
  }
  return Config;
}

void GhesFixture::SetUp () {
  MachineTest::SetUp ();

  // the levels the error-log base library settles on
  mPrivateDataVornElogBase.SerDbgLevelConstructor = 0x40;
  mPrivateDataVornElogBase.SerDbgLevel            = 0x40;
  mPrivateDataVornElogBase.SerDbgLevelDetailed    = 0x40;
  ASSERT_EQ (WheaSignalLibConstructor (Host::ImageHandle (), Host::SystemTable ()), EFI_SUCCESS);

  auto &P = mPrivateDataVornApeiLogging;
  VornElogGetSerialDebugLevels (&P.SerDbgLevelConstructor, &P.SerDbgLevel, &P.SerDbgLevelDetailed);
  P.pApeiHestGhessErrStsDataBlkNmi                         = AcpiTables::AllocateStatusBlock (kNmiBlockLength);
  P.ApeiHestGhessErrStsDataBlkLengthNmi                    = kNmiBlockLength;
  P.pApeiHestGhessErrStsDataBlkSci                         = AcpiTables::AllocateStatusBlock (kSciBlockLength);
  P.ApeiHestGhessErrStsDataBlkLengthSci                    = kSciBlockLength;
  P.pApeiHestGhessErrStsDataBlkSciVmwareMemPageRetire      = AcpiTables::AllocateStatusBlock (kVmwareBlockLength);
  P.ApeiHestGhessErrStsDataBlkLengthSciVmwareMemPageRetire = kVmwareBlockLength;
  for (GENERIC_ERROR_STATUS *Block : {NmiBlock (), SciBlock (), VmwareBlock ()}) {
    Block->RawDataOffset = 0x2000;
    Block->ErrorSeverity = EFI_ACPI_6_3_ERROR_SEVERITY_NONE;
  }

  P.IsApeiOsLoaded = TRUE;
  ClearLog ();
}

GENERIC_ERROR_STATUS *GhesFixture::NmiBlock () {
  return Host::At<GENERIC_ERROR_STATUS> (mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlkNmi);
}

GENERIC_ERROR_STATUS *GhesFixture::SciBlock () {
  return Host::At<GENERIC_ERROR_STATUS> (mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlkSci);
}

GENERIC_ERROR_STATUS *GhesFixture::VmwareBlock () {
  return Host::At<GENERIC_ERROR_STATUS> (mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlkSciVmwareMemPageRetire);
}

CPER_RECORD *GhesFixture::Record (const Cper::RecordSpec &Spec) {
  return Cper::PlaceInSmram (Cper::BuildRecord (Spec));
}

std::vector<UINT8> GhesFixture::Bytes (const void *Address, size_t Length) {
  const UINT8 *Start = static_cast<const UINT8 *> (Address);
  return std::vector<UINT8> (Start, Start + Length);
}

void GhesFixture::ClearLog () {
  Host::ClearSerialOutput ();
  Host::ClearTrace ();
}

std::string GhesFixture::Fmt (const char *Format, ...) {
  char    Buffer[512];
  va_list Args;
  va_start (Args, Format);
  std::vsnprintf (Buffer, sizeof (Buffer), Format, Args);
  va_end (Args);
  return Buffer;
}

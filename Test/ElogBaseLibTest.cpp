/** @file
  Error-log base library: start-up across manufacturing modes and NVRAM
  threshold settings, the RAS mode they give, NVRAM read failures, debug
  levels and UUID text.
**/
#include <cstring>
#include <optional>

#include <gtest/gtest.h>

#include <TestMachine.h>

#include <Library/ElogBaseLib.h>
#include <Library/SmmServicesTableLib.h>
#include <Library/UefiBootServicesTableLib.h>

namespace {

class ElogBaseLibTest : public MachineTest {
protected:
  void SetUp () override {
    MachineTest::SetUp ();
    StartServices ();
  }

  static void StartServices () {
    ASSERT_EQ (UefiBootServicesTableLibConstructor (Host::ImageHandle (), Host::SystemTable ()), EFI_SUCCESS);
    ASSERT_EQ (SmmServicesTableLibConstructor (Host::ImageHandle (), Host::SystemTable ()), EFI_SUCCESS);
  }

  static EFI_STATUS Construct () {
    return VornElogBaseLibConstructor (Host::ImageHandle (), Host::SystemTable ());
  }

  static void PowerOn (std::optional<UINT32> MfgMode, std::optional<std::u16string> Threshold, BOOLEAN InSmm = TRUE) {
    Host::MachineConfig Config;
    Config.ManufacturingMode      = MfgMode;
    Config.CorErrLoggingThreshold = Threshold;
    Config.InSmm                  = InSmm;
    Boot (Config);
    StartServices ();
  }
};

//
// Platform settings and what start-up makes of them: the threshold setting
// must read exactly "Disabled" to select the diagnostic ECC mode; either
// manufacturing mode, or that ECC mode, forces the RAS diagnostic mode.
//
TEST_F (ElogBaseLibTest, ModesFollowThePlatformSettings) {
  const struct {
    std::optional<UINT32>         MfgMode;
    std::optional<std::u16string> Threshold;
    BOOLEAN                       DiagsEnabled;
    UINT32                        MemEccMode, RasMode;
  } Cases[] = {
      {0, std::nullopt, FALSE, 0, 0},
      {0, u"Disabled", FALSE, 1, 1},
      {0, u"disabled", FALSE, 0, 0},
      {0, u"Disabled ", FALSE, 0, 0},
      {0, u"", FALSE, 0, 0},
      // Longer than the first 32-byte buffer: read again at the reported size.
      {0, u"Enabled, 128 errors per 24 hours window", FALSE, 0, 0},
      {1, std::nullopt, TRUE, 0, 1},
      {2, u"Enabled", TRUE, 0, 1},
      {1, u"Disabled", TRUE, 1, 1},
      {3, std::nullopt, FALSE, 0, 0},
      {std::nullopt, std::nullopt, FALSE, 0, 0},
  };
  for (const auto &Case : Cases) {
    PowerOn (Case.MfgMode, Case.Threshold);
    ASSERT_EQ (Construct (), EFI_SUCCESS);
    const auto &Data = mPrivateDataVornElogBase;
    EXPECT_EQ (Data.SerDbgLevelConstructor, 0x40u);
    EXPECT_EQ (Data.SerDbgLevel, 0x40u);
    EXPECT_EQ (Data.SerDbgLevelDetailed, 0x40u);
    EXPECT_EQ (Data.MfgModeType, Case.MfgMode.value_or (0));
    EXPECT_EQ (Data.ManufacturingDiagsEnabled, Case.DiagsEnabled) << Case.MfgMode.value_or (99);
    EXPECT_EQ (Data.MemEccLoggingMode, Case.MemEccMode);
    EXPECT_EQ (VornGetRasErrorLoggingMode (0x40), Case.RasMode);
  }
}

//
// NVRAM reads that fail part-way fall back to threshold mode.
//
TEST_F (ElogBaseLibTest, NvramFailuresFallBackToThresholdMode) {
  const std::u16string Long = u"Disabled, but longer than thirty-two bytes";
  const struct {
    std::u16string Threshold;
    Host::Service  Which;
    UINT32         AfterCalls;
  } Cases[] = {{u"Disabled", Host::Service::SmmAllocatePool, 0},
               {u"Disabled", Host::Service::SmmAllocatePool, 1},
               {Long, Host::Service::SmmAllocatePool, 1},
               {Long, Host::Service::SmmAllocatePool, 2},
               {u"Disabled", Host::Service::AttributeStorage, 0}};
  for (const auto &Case : Cases) {
    PowerOn (0, Case.Threshold);
    mPrivateDataVornElogBase.SerDbgLevelConstructor = 0x40;
    Host::SetFault (Case.Which, {Host::FaultKind::Fail, EFI_OUT_OF_RESOURCES, Case.AfterCalls});
    EXPECT_EQ (VornElogGetRasMemEccLoggingMode (), static_cast<UINT32> (RasMemEccThresholdMode));
  }
}

TEST_F (ElogBaseLibTest, WithoutAWorkingSmmBaseTheConstructorFails) {
  Host::SetFault (Host::Service::SmmBase2, {Host::FaultKind::Absent});
  EXPECT_EQ (Construct (), EFI_NOT_FOUND);
  EXPECT_EQ (mPrivateDataVornElogBase.SerDbgLevelConstructor, 0u);

  PowerOn (0, std::nullopt);
  Host::SetFault (Host::Service::SmmBase2InSmm, {Host::FaultKind::Fail, EFI_DEVICE_ERROR});
  EXPECT_EQ (Construct (), EFI_NOT_FOUND);
  EXPECT_EQ (mPrivateDataVornElogBase.SerDbgLevelConstructor, 0u);

  // Outside SMM the levels are the info level too.
  PowerOn (0, std::nullopt, FALSE);
  ASSERT_EQ (Construct (), EFI_SUCCESS);
  UINT64 Levels[3] = {0, 0, 0};
  VornElogGetSerialDebugLevels (&Levels[0], &Levels[1], &Levels[2]);
  EXPECT_EQ (Levels[0] & Levels[1] & Levels[2], 0x40u);

  UINT64 First = 7, Third = 7;
  VornElogGetSerialDebugLevels (&First, nullptr, &Third);
  EXPECT_EQ (First + Third, 14u);
}

TEST_F (ElogBaseLibTest, UuidTextKeepsStorageOrder) {
  // The ACPI 2.0 table GUID as stored: its first three fields stay byte-swapped.
  UINT8 Bytes[16] = {0x71, 0xE8, 0x68, 0x88, 0xF1, 0xE4, 0xD3, 0x11, 0xBC, 0x22, 0x00, 0x80, 0xC7, 0x3C, 0x88, 0x81};
  CHAR8 Text[40];
  std::memset (Text, 'x', sizeof (Text));
  VornElogConvertUuidToAsciiString (Bytes, Text);
  EXPECT_STREQ (Text, "71E86888-F1E4-D311-BC22-0080C73C8881");
  EXPECT_EQ (Text[37], 'x');

  CHAR8 Unchanged[37] = "unchanged";
  VornElogConvertUuidToAsciiString (nullptr, Unchanged);
  VornElogConvertUuidToAsciiString (Bytes, nullptr);
  EXPECT_STREQ (Unchanged, "unchanged");
  EXPECT_EQ (SerialLines ().size (), 2u);
}

} // namespace

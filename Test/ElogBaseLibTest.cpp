/** @file
  Error-log base library: start-up across manufacturing modes and NVRAM
  threshold settings, the RAS mode they give, NVRAM read failures, debug
  levels and UUID text.
**/
#include <cstring>
#include <optional>

#include <gtest/gtest.h>

#include <TestFormat.h>
#include <TestMachine.h>

#include <Library/ElogBaseLib.h>
#include <Library/SmmServicesTableLib.h>
#include <Library/UefiBootServicesTableLib.h>

namespace {

const std::string kCtor = "VornElogBaseLibConstructor: ";
const std::string kEcc  = "VornElogGetRasMemEccLoggingMode: ";
const std::string kRas  = "VornGetRasErrorLoggingMode: ";

std::vector<std::string> Concat (std::vector<std::string> First, const std::vector<std::string> &Second) {
  First.insert (First.end (), Second.begin (), Second.end ());
  return First;
}

class ElogBaseLibTest : public MachineTest {
protected:
  void SetUp () override {
    MachineTest::SetUp ();
    ASSERT_EQ (UefiBootServicesTableLibConstructor (Host::ImageHandle (), Host::SystemTable ()), EFI_SUCCESS);
    ASSERT_EQ (SmmServicesTableLibConstructor (Host::ImageHandle (), Host::SystemTable ()), EFI_SUCCESS);
  }

  static EFI_STATUS Construct () {
    return VornElogBaseLibConstructor (Host::ImageHandle (), Host::SystemTable ());
  }

  static std::vector<std::string> Lines (const std::string &Prefix, const std::vector<std::string> &Texts) {
    std::vector<std::string> Out;
    for (const auto &Text : Texts) {
      Out.push_back (Line (0, Prefix + Text));
    }

    return Out;
  }

  static std::vector<std::string> LevelLines () {
    return Lines (kCtor, {"InSmm 1 SerDbgLevelConstructor 0x0000000000000040",
                          "InSmm 1 SerDbgLevel            0x0000000000000040",
                          "InSmm 1 SerDbgLevelDetailed    0x0000000000000040"});
  }

  static std::string PciSegmentLine () {
    return Line (0, "VornElogDisplayPciSegmentInfo: PCI_SEGMENT_INFO entry 0 => SegmentNumber 0x0000 Base Address "
                    "0x0000000060000000 StartBusNumber 0x00 EndBusNumber 0xFF");
  }

  static std::string NvramRequestLine () {
    return Line (
        0, kEcc + "Retrieving NVRAM attribute value for INTERNAL_CORERR_THRESHOLD_ATTR_NAME 'CorErrLoggingThreshold'");
  }

  static std::string NvramErrorLine (const char *Status) {
    return Line (
        0, kEcc + Format ("ERROR %s retrieving NVRAM attribute value for INTERNAL_CORERR_THRESHOLD_ATTR_NAME 's', "
                          "default to RasMemEccThresholdMode",
                          Status));
  }
};

//
// One platform setting combination and what start-up makes of it.
//
struct ModeCase {
  const char                   *Name;
  std::optional<UINT32>         MfgMode;
  std::optional<std::u16string> Threshold;
  std::string                   MfgLine; // after "Locating protocol ..."
  bool                          DiagsEnabled;
  UINT32                        MemEccMode;
  UINT32                        RasMode;
};

void PrintTo (const ModeCase &Case, std::ostream *Out) {
  *Out << Case.Name;
}

class ElogModeTest : public ElogBaseLibTest, public ::testing::WithParamInterface<ModeCase> {
protected:
  Host::MachineConfig MachineConfiguration () const override {
    Host::MachineConfig Config;
    Config.ManufacturingMode      = GetParam ().MfgMode;
    Config.CorErrLoggingThreshold = GetParam ().Threshold;
    return Config;
  }

  static std::vector<std::string> MemEccLines () {
    const ModeCase &Case = GetParam ();
    if (!Case.Threshold) {
      return {NvramRequestLine (), NvramErrorLine ("Not Found")};
    }

    const std::string Value (Case.Threshold->begin (), Case.Threshold->end ());
    return {
        NvramRequestLine (), Line (0, kEcc + "NVRAM 'CorErrLoggingThreshold' = '" + Value + "'"),
        Line (0, kEcc + (Case.MemEccMode == 1 ? "Threshold mode disabled, setting RasMemEccDiagnosticMode"
                                              : "Threshold mode enabled, setting RasMemEccThresholdMode")),
        Line (0,
              kEcc + Format ("Exiting => RasMemEccLoggingMode %u (RasMemEccThresholdMode=0, RasMemEccDiagnosticMode=1)",
                             Case.MemEccMode))};
  }
};

TEST_P (ElogModeTest, ConstructorAndRasModeFollowPlatformSettings) {
  const ModeCase &Case = GetParam ();
  ASSERT_EQ (Construct (), EFI_SUCCESS);

  EXPECT_EQ (mPrivateDataVornElogBase.SerDbgLevelConstructor, 0x40u);
  EXPECT_EQ (mPrivateDataVornElogBase.SerDbgLevel, 0x40u);
  EXPECT_EQ (mPrivateDataVornElogBase.SerDbgLevelDetailed, 0x40u);
  EXPECT_EQ (mPrivateDataVornElogBase.MfgModeType, Case.MfgMode.value_or (0));
  EXPECT_EQ (mPrivateDataVornElogBase.ManufacturingDiagsEnabled, Case.DiagsEnabled);
  EXPECT_EQ (mPrivateDataVornElogBase.MemEccLoggingMode, Case.MemEccMode);
  EXPECT_EQ (
      SerialLines (),
      Concat (Concat (Concat (LevelLines (), {PciSegmentLine ()}), MemEccLines ()),
              {Line (0, kCtor + Format ("MemEccLoggingMode %u (threshold=0, diagnostic=1)", Case.MemEccMode)),
               Line (0, kCtor + "Locating protocol gVornManufacturingModeProtocolGuid"), Line (0, kCtor + Case.MfgLine),
               Line (0, kCtor + Format ("ManufacturingDiagsEnabled %d", Case.DiagsEnabled))}));

  Host::ClearSerialOutput ();
  EXPECT_EQ (VornGetRasErrorLoggingMode (0x40), Case.RasMode);
  std::vector<std::string> Ras = {
      Line (0, kRas + Format ("mPrivateDataVornElogBase ManufacturingDiagsEnabled %d MfgModeType %u", Case.DiagsEnabled,
                              Case.MfgMode.value_or (0)))};
  if (Case.DiagsEnabled) {
    Ras.push_back (Line (0, kRas + "Manufacturing mode detected, forcing RAS to RasDiagnosticMode"));
  }

  Ras.push_back (Line (0, kRas + Format ("mPrivateDataVornElogBase.MemEccLoggingMode %u (RasMemEccThresholdMode = 0 "
                                         "RasMemEccDiagnosticMode = 1)",
                                         Case.MemEccMode)));
  if (Case.MemEccMode == 1) {
    Ras.push_back (Line (0, kRas + "Memory CECC diagnostic mode detected, forcing RAS to RasDiagnosticMode"));
  }

  Ras.push_back (Line (
      0, kRas + Format ("Exiting => ErrorLoggingMode %u (RasProductionMode = 0 RasDiagnosticMode = 1)", Case.RasMode)));
  EXPECT_EQ (SerialLines (), Ras);
}

const std::string kMfgOff = "Manufacturing mode disabled";

INSTANTIATE_TEST_SUITE_P (
    Settings,
    ElogModeTest,
    ::testing::Values (ModeCase{"Defaults", 0, std::nullopt, kMfgOff, false, 0, 0},
                       ModeCase{"ThresholdDisabled", 0, u"Disabled", kMfgOff, false, 1, 1},
                       ModeCase{"ThresholdLowerCase", 0, u"disabled", kMfgOff, false, 0, 0},
                       ModeCase{"ThresholdTrailingBlank", 0, u"Disabled ", kMfgOff, false, 0, 0},
                       ModeCase{"ThresholdEnabled", 0, u"Enabled", kMfgOff, false, 0, 0},
                       ModeCase{"ThresholdEmpty", 0, u"", kMfgOff, false, 0, 0},
                       // Longer than the first 32-byte buffer: read again at the reported size.
                       ModeCase{"ThresholdLongValue", 0, u"Enabled, 128 errors per 24 hours window", kMfgOff, false, 0,
                                0},
                       ModeCase{"MfgEnabled", 1, std::nullopt, "Manufacturing mode enabled", true, 0, 1},
                       ModeCase{"MfgFvs", 2, u"Enabled", "Manufacturing mode (FVS mode) enabled", true, 0, 1},
                       ModeCase{"MfgAndThreshold", 1, u"Disabled", "Manufacturing mode enabled", true, 1, 1},
                       ModeCase{"MfgUnrecognised", 3, std::nullopt,
                                "ERROR MfgModeType 3 unrecognized, default to mfg mode disabled", false, 0, 0},
                       ModeCase{"MfgProtocolAbsent", std::nullopt, std::nullopt,
                                "ERROR Not Found locating protocol gVornManufacturingModeProtocolGuid", false, 0, 0}),
    [] (const auto &Info) { return std::string (Info.param.Name); });

//
// NVRAM reads that fail part-way: each falls back to threshold mode.
//
struct NvramFaultCase {
  const char    *Name;
  std::u16string Threshold;
  Host::Service  Which;
  UINT32         AfterCalls;
  const char    *Status;
};

void PrintTo (const NvramFaultCase &Case, std::ostream *Out) {
  *Out << Case.Name;
}

class NvramFaultTest : public ElogBaseLibTest, public ::testing::WithParamInterface<NvramFaultCase> {
protected:
  Host::MachineConfig MachineConfiguration () const override {
    Host::MachineConfig Config;
    Config.CorErrLoggingThreshold = GetParam ().Threshold;
    return Config;
  }
};

TEST_P (NvramFaultTest, FailureFallsBackToThresholdMode) {
  const NvramFaultCase &Case                      = GetParam ();
  mPrivateDataVornElogBase.SerDbgLevelConstructor = 0x40;
  Host::SetFault (Case.Which, {Host::FaultKind::Fail, EFI_OUT_OF_RESOURCES, Case.AfterCalls});
  EXPECT_EQ (VornElogGetRasMemEccLoggingMode (), static_cast<UINT32> (RasMemEccThresholdMode));
  EXPECT_EQ (SerialLines (), (std::vector<std::string>{NvramRequestLine (), NvramErrorLine (Case.Status)}));
}

INSTANTIATE_TEST_SUITE_P (
    Faults,
    NvramFaultTest,
    ::testing::Values (
        NvramFaultCase{"FirstBuffer", u"Disabled", Host::Service::SmmAllocatePool, 0, "Out of Resources"},
        NvramFaultCase{"CopyBuffer", u"Disabled", Host::Service::SmmAllocatePool, 1, "Out of Resources"},
        NvramFaultCase{"RetryBuffer", u"Disabled, but longer than thirty-two bytes", Host::Service::SmmAllocatePool, 1,
                       "Out of Resources"},
        NvramFaultCase{"CopyAfterRetry", u"Disabled, but longer than thirty-two bytes", Host::Service::SmmAllocatePool,
                       2, "Out of Resources"},
        NvramFaultCase{"StorageLocate", u"Disabled", Host::Service::AttributeStorage, 0, "Out of Resources"}),
    [] (const auto &Info) { return std::string (Info.param.Name); });

TEST_F (ElogBaseLibTest, MissingSmmBaseFailsConstructor) {
  Host::SetFault (Host::Service::SmmBase2, {Host::FaultKind::Absent});
  EXPECT_EQ (Construct (), EFI_NOT_FOUND);
  EXPECT_EQ (mPrivateDataVornElogBase.SerDbgLevelConstructor, 0u);
  EXPECT_EQ (SerialLines (),
             Lines (kCtor, {"ERROR Not Found locating protocol gEfiSmmBase2ProtocolGuid, aborting..."}));
}

TEST_F (ElogBaseLibTest, FailingInSmmFailsConstructor) {
  Host::SetFault (Host::Service::SmmBase2InSmm, {Host::FaultKind::Fail, EFI_DEVICE_ERROR});
  EXPECT_EQ (Construct (), EFI_NOT_FOUND);
  EXPECT_EQ (mPrivateDataVornElogBase.SerDbgLevelConstructor, 0u);
  EXPECT_EQ (SerialLines (), Lines (kCtor, {"ERROR Device Error from InSmm, aborting..."}));
}

class ElogOutsideSmmTest : public ElogBaseLibTest {
protected:
  Host::MachineConfig MachineConfiguration () const override {
    Host::MachineConfig Config;
    Config.InSmm             = FALSE;
    Config.DebugPropertyMask = 0x1B; // debug code off: no segment display
    return Config;
  }
};

TEST_F (ElogOutsideSmmTest, LevelsAreInfoEvenOutsideSmmAndDisplayFollowsDebugCode) {
  ASSERT_EQ (Construct (), EFI_SUCCESS);
  const std::vector<std::string> Lines = SerialLines ();
  ASSERT_GE (Lines.size (), 4u);
  //
  // Outside SMM the sink writes no processor prefix.
  //
  EXPECT_EQ (
      std::vector<std::string> (Lines.begin (), Lines.begin () + 4),
      (std::vector<std::string>{kCtor + "InSmm 0 SerDbgLevelConstructor 0x0000000000000040",
                                kCtor + "InSmm 0 SerDbgLevel            0x0000000000000040",
                                kCtor + "InSmm 0 SerDbgLevelDetailed    0x0000000000000040",
                                kEcc + "Retrieving NVRAM attribute value for INTERNAL_CORERR_THRESHOLD_ATTR_NAME "
                                       "'CorErrLoggingThreshold'"}));

  UINT64 Levels[3] = {0, 0, 0};
  VornElogGetSerialDebugLevels (&Levels[0], &Levels[1], &Levels[2]);
  EXPECT_EQ (Levels[0], 0x40u);
  EXPECT_EQ (Levels[1], 0x40u);
  EXPECT_EQ (Levels[2], 0x40u);
}

TEST_F (ElogBaseLibTest, NullLevelPointerWritesNothing) {
  mPrivateDataVornElogBase.SerDbgLevelConstructor = 0x40;
  UINT64 First                                    = 7;
  UINT64 Third                                    = 7;
  VornElogGetSerialDebugLevels (&First, nullptr, &Third);
  EXPECT_EQ (First, 7u);
  EXPECT_EQ (Third, 7u);
  EXPECT_EQ (SerialLines (),
             Lines ("VornElogGetSerialDebugLevels: ", {"ERROR one or more input parameters are NULL, aborting..."}));
}

TEST_F (ElogBaseLibTest, UuidTextKeepsStorageOrder) {
  struct {
    UINT8       Bytes[16];
    const char *Text;
  } const Cases[] = {
      {{0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF},
       "00112233-4455-6677-8899-AABBCCDDEEFF"},
      // The ACPI 2.0 table GUID as stored: its first three fields stay byte-swapped.
      {{0x71, 0xE8, 0x68, 0x88, 0xF1, 0xE4, 0xD3, 0x11, 0xBC, 0x22, 0x00, 0x80, 0xC7, 0x3C, 0x88, 0x81},
       "71E86888-F1E4-D311-BC22-0080C73C8881"},
  };

  for (const auto &Case : Cases) {
    CHAR8 Text[40];
    std::memset (Text, 'x', sizeof (Text));
    UINT8 Bytes[16];
    std::memcpy (Bytes, Case.Bytes, sizeof (Bytes));
    VornElogConvertUuidToAsciiString (Bytes, Text);
    EXPECT_STREQ (Text, Case.Text);
    EXPECT_EQ (Text[37], 'x');
  }

  EXPECT_TRUE (SerialLines ().empty ());
}

TEST_F (ElogBaseLibTest, UuidNullArgumentsAreRejected) {
  CHAR8 Text[37]  = "unchanged";
  UINT8 Bytes[16] = {};
  VornElogConvertUuidToAsciiString (nullptr, Text);
  VornElogConvertUuidToAsciiString (Bytes, nullptr);
  EXPECT_STREQ (Text, "unchanged");
  const std::string Error =
      Line (0, "VornElogConvertUuidToAsciiString: ERROR one or more input parameters are NULL, aborting...");
  EXPECT_EQ (SerialLines (), (std::vector<std::string>{Error, Error}));
}

} // namespace

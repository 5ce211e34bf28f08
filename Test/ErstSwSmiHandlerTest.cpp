/** @file
  The ERST software SMI as the OS drives it: command, identifier and offset
  in the parameter region, SMI 0x9C, results left in the region.
**/
#include <cstring>

#include <ErstFixture.h>

#include <SpiFlash.h>
#include "TestFormat.h"

namespace {

const char kHandler[] = "VornApeiLoggingErstElogSwSmiCallback: ";

class ErstSwSmiHandlerTest : public ErstFixture {
protected:
  void SetUp () override {
    ErstFixture::SetUp ();
    ASSERT_EQ (UpdateErst (), EFI_SUCCESS);
    ClearLog ();
  }

  //
  // The handler's own lines, without the prefix.
  //
  static std::vector<std::string> HandlerLines () {
    std::vector<std::string> Lines;
    for (const auto &Text : LinesContaining (kHandler)) {
      Lines.push_back (Text.substr (CpuPrefix (0).size () + sizeof (kHandler) - 1));
    }

    return Lines;
  }
};

//
// Commands the handler does not store anything for: nothing in the region
// but BusyFlag may change.
//
class ErstNoStoreCommandTest : public ErstSwSmiHandlerTest, public ::testing::WithParamInterface<UINT64> {};

TEST_P (ErstNoStoreCommandTest, LeavesRegionAsItWas) {
  const UINT64 Command = GetParam ();
  ASSERT_EQ (WriteRecord (0x44, 0x100), 0u);
  Region ()->Status                 = 0x77;
  VORN_ERST_PARAMETER_REGION Before = *Region ();
  Before.Command                    = Command;
  Before.RecordID                   = 0x44;
  const auto Programs               = Host::Flash::Count ().Program;
  ClearLog ();

  OsCommand (Command, 0x44);

  EXPECT_EQ (std::memcmp (Region (), &Before, sizeof (Before)), 0);
  EXPECT_EQ (Host::Flash::Count ().Program, Programs);
  const std::string Middle =
      (Command == ERST_PERSISTENT_DUMMY_WRITE)
          ? "Processing ERST Action Value 0x000000000000000F ERST_PERSISTENT_DUMMY_WRITE (noop)"
          : Fmt ("ERROR ERST Action Value 0x%016llX is unrecognized/unsupported action, aborting...",
                 (unsigned long long)Command);
  EXPECT_EQ (HandlerLines (),
             (std::vector<std::string>{
                 "Entering",
                 "Set mPrivateDataVornApeiLogging.pErstParameterBlock->BusyFlag = TRUE",
                 Fmt ("Rd mPrivateDataVornApeiLogging.pErstParameterBlock->Command (from OS 0x%016llX)",
                      (unsigned long long)Command),
                 Middle,
                 "Set mPrivateDataVornApeiLogging.pErstParameterBlock->BusyFlag = FALSE",
                 "Exiting",
             }));
}

INSTANTIATE_TEST_SUITE_P (Commands,
                          ErstNoStoreCommandTest,
                          ::testing::Values (0x0, 0x4, 0xE, ERST_PERSISTENT_DUMMY_WRITE, 0x10),
                          [] (const auto &Info) { return Format ("Command%02llX", (unsigned long long)Info.param); });

TEST_F (ErstSwSmiHandlerTest, WriteTakesRecordAtLogOffset) {
  const auto Record = CperRecord (0x5151, 0x120);
  PlaceRecord (CperRecord (0x9999, 0x100), 0);
  PlaceRecord (Record, 0x200);

  OsCommand (ERST_PERSISTENT_SET_RECORD, 0, 0x200);

  EXPECT_EQ (Region ()->Status, 0u);
  EXPECT_EQ (Region ()->BusyFlag, 0u);
  EXPECT_EQ (Region ()->RecordCount, 1u);
  EXPECT_EQ (Region ()->CurRecordID, 0x5151u);
  EXPECT_EQ (Flash (Records () + 84, Record.size ()), Record);
  EXPECT_TRUE (Logged (Fmt (
      "%sProcessing ERST Action Value 0x0000000000000002 ERST_PERSISTENT_SET_RECORD for @ ErrorLogAddressRange 0x%016llX + LogOffset 0x00000200 => OS Record ID 0x0000000000005151",
      kHandler, (unsigned long long)Region ()->ErrorLogAddressRange)));
}

//
// Store failures reach the OS only through Status and one error line.
//
TEST_F (ErstSwSmiHandlerTest, StoreFailuresReportStatusAndErrorLine) {
  auto Record = CperRecord (0x6161, 0x100);
  std::memcpy (Record.data (), "CPEX", 4);
  PlaceRecord (Record, 0);
  OsCommand (ERST_PERSISTENT_SET_RECORD);
  EXPECT_EQ (Region ()->Status, 3u);
  EXPECT_TRUE (Logged (Fmt (
      "%sERROR ACPI ERST Operation Status 0x0000000000000003 processing ERST Action Value ERST_PERSISTENT_SET_RECORD 0x0000000000000002 via VornApeiLoggingErstPersistentStoreWrite for OS Record ID 0x0000000000006161",
      kHandler)));

  OsCommand (ERST_PERSISTENT_GET_RECORD, 0x6161);
  EXPECT_EQ (Region ()->Status, 4u);
  EXPECT_TRUE (Logged (Fmt (
      "%sERROR ACPI ERST Operation Status 0x0000000000000004 processing ERST Action Value ERST_PERSISTENT_GET_RECORD 0x0000000000000001 via VornApeiLoggingErstPersistentStoreRead",
      kHandler)));

  ASSERT_EQ (WriteRecord (0x7171, 0x100), 0u);
  OsCommand (ERST_PERSISTENT_CLEAR_RECORD, 0x6161);
  EXPECT_EQ (Region ()->Status, 5u);
  EXPECT_EQ (Region ()->CurRecordID, 0x7171u);
  EXPECT_TRUE (Logged (Fmt (
      "%sERROR ACPI ERST Operation Status 0x0000000000000005 processing ERST Action Value 0x0000000000000003 via VornApeiLoggingErstPersistentStoreClear",
      kHandler)));
  EXPECT_EQ (Region ()->BusyFlag, 0u);
}

} // namespace

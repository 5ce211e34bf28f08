/** @file
  The record index changes no answer: the same OS session (writes with a
  duplicate identifier, reads, clears, enumerations, firmware marking every
  record obsolete, reboots with defragmentation) played without and with
  record-index, over several sets of other switches, leaves the same
  statuses, record cursor and count after every command, lists the same
  records and leaves the same flash; with the index an enumeration reads one
  header per record and one more.
**/
#include <set>
#include <vector>

#include <ErstFixture.h>
#include <ParamName.h>
#include <Library/DebugLib.h>
#include <SpiFlash.h>

#include "Builder/FlashImage.h"
#include "Builder/Fixes.h"

namespace {

enum class Op { Write, Read, Clear, Enumerate, MarkObsolete, Reboot };

struct Step {
  Op     What;
  UINT64 RecordId = 0;
};

const Step kSession[] = {
    {Op::Write, 1},  {Op::Write, 2},     {Op::Write, 3},  {Op::Write, 2},  {Op::Write, 4},  {Op::Enumerate},
    {Op::Read, 2},   {Op::Read, 9},      {Op::Clear, 3},  {Op::Clear, 3},  {Op::Enumerate}, {Op::Write, 5},
    {Op::Reboot},    {Op::Enumerate},    {Op::Clear, 1},  {Op::Write, 6},  {Op::Read, 4},   {Op::Reboot},
    {Op::Enumerate}, {Op::MarkObsolete}, {Op::Write, 7},  {Op::Enumerate}, {Op::Reboot},    {Op::Write, 8},
    {Op::Write, 8},  {Op::Clear, 8},     {Op::Enumerate}, {Op::Read, 8},   {Op::Clear, 99}, {Op::Enumerate},
};

struct Outcome {
  std::vector<UINT64> Answers;
  std::vector<UINT8>  Image;
  UINT64              LastEnumerationReads = 0;
  UINT64              LastEnumerationCount = 0;
};

class RecordIndexTest : public ErstFixture, public ::testing::WithParamInterface<std::set<Host::Fix>> {
protected:
  Host::MachineConfig MachineConfiguration () const override {
    Host::MachineConfig Config = ErstFixture::MachineConfiguration ();
    Config.Fixes               = mFixes;
    return Config;
  }

  Outcome Play (const std::set<Host::Fix> &Fixes) {
    Outcome Out;
    mFixes = Fixes;
    Host::Flash::AttachMemory (FlashImage::BuildDefault ());
    EXPECT_EQ (Reboot (), EFI_SUCCESS);
    for (const Step &S : kSession) {
      switch (S.What) {
        case Op::Write:
          PlaceRecord (CperRecord (S.RecordId, 0x100 + 0x10 * static_cast<UINT32> (S.RecordId)));
          OsCommand (ERST_PERSISTENT_SET_RECORD);
          break;
        case Op::Read:
          OsCommand (ERST_PERSISTENT_GET_RECORD, S.RecordId);
          break;
        case Op::Clear:
          OsCommand (ERST_PERSISTENT_CLEAR_RECORD, S.RecordId);
          break;
        case Op::Enumerate: {
          const UINT64 Reads = Host::Flash::Count ().Read.Operations;
          UINT64       Count = 0;
          for (UINT64 Id = Region ()->CurRecordID; Id != MAX_UINT64 && Count < 20; Id = Region ()->CurRecordID) {
            Out.Answers.push_back (Id);
            OsCommand (ERST_PERSISTENT_GET_RECORD, Id);
            Count++;
          }
          Out.LastEnumerationReads = Host::Flash::Count ().Read.Operations - Reads;
          Out.LastEnumerationCount = Count;
          break;
        }
        case Op::MarkObsolete:
          EXPECT_EQ (VornApeiLoggingErstMarkObsoleteRecords (DEBUG_INFO), EFI_SUCCESS);
          break;
        case Op::Reboot:
          EXPECT_EQ (Reboot (), EFI_SUCCESS);
          break;
      }
      Out.Answers.insert (Out.Answers.end (), {Region ()->Status, Region ()->CurRecordID, Region ()->RecordCount});
      ClearLog ();
    }
    Out.Image = Flash (Volume (), kVolumeLength);
    return Out;
  }

private:
  std::set<Host::Fix> mFixes;
};

TEST_P (RecordIndexTest, SameAnswersAsTheWalk) {
  std::set<Host::Fix> Indexed = GetParam ();
  Indexed.insert (Host::Fix::RecordIndex);

  const Outcome Walked = Play (GetParam ());
  const Outcome Direct = Play (Indexed);
  EXPECT_EQ (Direct.Answers, Walked.Answers);
  EXPECT_TRUE (Direct.Image == Walked.Image);
  EXPECT_GT (Direct.LastEnumerationCount, 0u);
  if (!GetParam ().contains (Host::Fix::ErstRead)) { // which also reads each record's data
    EXPECT_EQ (Direct.LastEnumerationReads, Direct.LastEnumerationCount + 1);
  }
}

std::set<Host::Fix> AllOtherSwitches () {
  std::set<Host::Fix> Fixes = Sim::ParseFixes ("all");
  Fixes.erase (Host::Fix::RecordIndex);
  return Fixes;
}

INSTANTIATE_TEST_SUITE_P (Switches,
                          RecordIndexTest,
                          ::testing::Values (std::set<Host::Fix>{},
                                             std::set<Host::Fix>{Host::Fix::ErstClear},
                                             std::set<Host::Fix>{Host::Fix::ErstClear, Host::Fix::DuplicateId},
                                             AllOtherSwitches ()),
                          [] (const auto &Info) {
                            return ParamName (Info.param == AllOtherSwitches () ? "all others"
                                                                                : Sim::FixNames (Info.param));
                          });

} // namespace

/** @file
  A filtered level changes nothing but what prints: with errors only, every
  dump prints exactly the error lines it prints at the info level (those of
  its converters, for values they do not know), and the memory routines move
  bytes as memmove, memset and memcmp do.
**/
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <CperSections.h>
#include <Guid/Cper.h>
#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>
#include <Library/ElogBaseLib.h>
#include <Library/ElogCperDump.h>
#include <Library/ElogStoreDump.h>
#include <Library/VornMultiThreadedDebugLib.h>

#include "Builder/ModuleImage.h"
#include "TestMachine.h"

namespace {

using Lines = std::vector<std::string>;

// The serial lines Body prints on a machine running at PrintLevel.
Lines PrintedAt (UINT32 PrintLevel, const std::function<void ()> &Body) {
  Host::MachineConfig Config;
  Config.DebugPrintErrorLevel = PrintLevel;
  Host::PowerOn (Config);
  ModuleImageLoad ();
  EXPECT_EQ (VornMultiThreadedDebugLibConstructor (Host::ImageHandle (), Host::SystemTable ()), EFI_SUCCESS);
  mPrivateDataVornElogBase.SerDbgLevel = DEBUG_INFO;
  Host::ClearSerialOutput ();
  Body ();
  return MachineTest::SerialLines ();
}

struct DumpCase {
  const char            *Name;
  size_t                 ErrorLines; // its converters' complaints about unknown values
  std::function<void ()> Dump;
};

void PrintTo (const DumpCase &Case, std::ostream *Out) {
  *Out << Case.Name;
}

GENERIC_ERROR_STATUS     mBlock;
GENERIC_ERROR_DATA_ENTRY mEntry;
CPER_SECTION_MEMORY      mMemory;
UINT8                    mBytes[40];

class FilteredLevelTest : public ::testing::TestWithParam<DumpCase> {
protected:
  void SetUp () override {
    std::memset (&mBlock, 0, sizeof (mBlock));
    std::memset (&mEntry, 0, sizeof (mEntry));
    std::memset (&mMemory, 0, sizeof (mMemory));
    mBlock.ErrorSeverity = 7; // unknown: the converter logs an error
    mEntry.ErrorSeverity = 9;
    std::memcpy (mEntry.SectionType, &gEfiPlatformMemoryErrorSectionGuid, sizeof (mEntry.SectionType));
    mMemory.ValidFields = CPER_MEMORY_VALID_ERROR_STATUS;
    mMemory.ErrorStatus = 0x0200; // error type 2 is unknown
    for (UINTN Index = 0; Index < sizeof (mBytes); Index++) {
      mBytes[Index] = static_cast<UINT8> (Index * 7);
    }
  }
};

TEST_P (FilteredLevelTest, PrintsOnlyTheErrorLinesOfTheInfoLevel) {
  Lines Errors;
  for (const std::string &Line : PrintedAt (0x80000040, GetParam ().Dump)) {
    if (Line.find (": ERROR ") != std::string::npos) {
      Errors.push_back (Line);
    }
  }

  EXPECT_EQ (Errors.size (), GetParam ().ErrorLines);
  EXPECT_EQ (PrintedAt (0x80000000, GetParam ().Dump), Errors);
}

INSTANTIATE_TEST_SUITE_P (
    Dumps,
    FilteredLevelTest,
    ::testing::Values (DumpCase{"StatusBlock", 1, [] { DisplayWheaGenericErrorStatusBlock (DEBUG_INFO, &mBlock); }},
                       DumpCase{"DataEntry", 1, [] { DisplayWheaGenericErrorDataEntryv63 (DEBUG_INFO, &mEntry); }},
                       DumpCase{"MemorySection", 1,
                                [] {
                                  EFI_GUID Type = gEfiPlatformMemoryErrorSectionGuid;
                                  DisplayWheaGenericErrorData (DEBUG_INFO, &Type, &mMemory);
                                }},
                       DumpCase{"RawData", 0, [] { PrintRawData (mBytes + 3, 30, DEBUG_INFO); }}),
    ::testing::PrintToStringParamName ());

//
// Every length up to three bursts and a half, at every offset within a
// chunk, in both directions of overlap, against the C library.
//
TEST (WordSizedMemory, MovesFillsAndComparesAsTheCLibrary) {
  std::vector<UINT8> Pattern (560);
  for (size_t Index = 0; Index < Pattern.size (); Index++) {
    Pattern[Index] = static_cast<UINT8> (Index * 13 + 1);
  }

  for (UINTN Length = 0; Length <= 450; Length += (Length < 40) ? 1 : 13) {
    for (INTN Shift : {-17, -1, 0, 1, 16, 33}) {
      std::vector<UINT8> Ours     = Pattern;
      std::vector<UINT8> Expected = Pattern;
      CopyMem (Ours.data () + 40 + Shift, Ours.data () + 40, Length);
      std::memmove (Expected.data () + 40 + Shift, Expected.data () + 40, Length);
      ASSERT_EQ (Ours, Expected) << "copy of " << Length << " shifted by " << Shift;
    }

    std::vector<UINT8> Filled = Pattern;
    SetMem (Filled.data () + 3, Length, 0xA5);
    std::vector<UINT8> Expected = Pattern;
    std::memset (Expected.data () + 3, 0xA5, Length);
    ASSERT_EQ (Filled, Expected) << "fill of " << Length;

    for (UINTN Differ = 0; Differ < Length; Differ += 5) {
      std::vector<UINT8> Other = Pattern;
      Other[7 + Differ]++;
      const INTN Result = CompareMem (Pattern.data () + 7, Other.data () + 7, Length);
      ASSERT_EQ (Result, static_cast<INTN> (Pattern[7 + Differ]) - static_cast<INTN> (Other[7 + Differ]));
    }

    ASSERT_EQ (CompareMem (Pattern.data (), Pattern.data () + 0, Length), 0);
  }
}

} // namespace

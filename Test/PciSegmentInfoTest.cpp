/** @file
  PCI segment information from the MMIO configuration base address MSR,
  across bus ranges and base addresses, and the query around it.
**/
#include <gtest/gtest.h>

#include <TestFormat.h>
#include <TestMachine.h>

#include <Library/ElogBaseLib.h>
#include <Library/VornPciSegmentInfoLib.h>

namespace {

//
// Init and verbose lines are off by default; these tests turn them on.
//
constexpr UINT32 kAllLevels = 0x80400041;

struct SegmentCase {
  const char *Name;
  UINT64      Msr;
  UINT32      TotalBuses;
  UINT32      Segments;
  UINT64      FirstBase;
  UINT8       EndBus;
};

void PrintTo (const SegmentCase &Case, std::ostream *Out) {
  *Out << Case.Name;
}

std::vector<std::string> Concat (std::vector<std::string> First, const std::vector<std::string> &Second) {
  First.insert (First.end (), Second.begin (), Second.end ());
  return First;
}

class PciSegmentInfoTest : public MachineTest, public ::testing::WithParamInterface<SegmentCase> {
protected:
  Host::MachineConfig MachineConfiguration () const override {
    Host::MachineConfig Config;
    Config.DebugPrintErrorLevel = kAllLevels;
    Config.MsrMmioCfgBaseAddr   = GetParam ().Msr;
    return Config;
  }

  static std::string L (const char *Function, const std::string &Text) {
    return Line (0, std::string (Function) + ": " + Text);
  }

  //
  // The lines of one table build for the current case.
  //
  static std::vector<std::string> BuildLines () {
    const SegmentCase       &Case    = GetParam ();
    const char              *Fn      = "PciSegmentInfoLibGetSegmentData";
    const UINT64             MsrBase = ((Case.Msr >> 20) & 0xFFFFFFF) << 20;
    std::vector<std::string> Lines   = {
          L (Fn,
             Format (
                 "Core::X86::Msr::MmioCfgBaseAddr MSR = 0x%016llX MmioCfgBaseAddr 0x%08llX BusRange 0x%llX Enable %llu",
                 static_cast<unsigned long long> (Case.Msr), static_cast<unsigned long long> (MsrBase >> 20),
                 static_cast<unsigned long long> ((Case.Msr >> 2) & 0xF),
                 static_cast<unsigned long long> (Case.Msr & 1))),
          L (Fn, Format ("Total Bus Count %u Segment Count %u", Case.TotalBuses, Case.Segments)),
          L (Fn, Format ("Bus Count Per Segment %u", Case.TotalBuses / Case.Segments)),
          L (Fn, Format ("SegmentBaseAddress = 0x%016llX based on MsrMmioCfgBaseAddr.Field.MmioCfgBaseAddr value",
                         static_cast<unsigned long long> (MsrBase))),
    };
    if (MsrBase == 0) {
      Lines.push_back (L (Fn, "Adjusting SegmentBaseAddress = 0x0000000060000000 based on PcdPciExpressBaseAddress"));
    }

    Lines.push_back (
        L (Fn, Format ("SegmentBaseAddress = 0x%016llX", static_cast<unsigned long long> (Case.FirstBase))));
    for (UINT32 Index = 0; Index < Case.Segments; Index++) {
      Lines.push_back (L (Fn, Format ("Segment %u BaseAddress 0x%016llX StartBus 0x00 EndBus 0x%02X", Index,
                                      static_cast<unsigned long long> (SegmentBase (Index)), Case.EndBus)));
    }

    return Lines;
  }

  static UINT64 SegmentBase (UINT32 Index) {
    const SegmentCase &Case = GetParam ();
    return Case.FirstBase + static_cast<UINT64> (Index) * (Case.TotalBuses / Case.Segments) * 0x100000;
  }
};

TEST_P (PciSegmentInfoTest, ConstructorBuildsTableFromMsr) {
  const SegmentCase &Case = GetParam ();
  Host::ClearTrace ();
  ASSERT_EQ (PciSegmentInfoLibConstructor (Host::ImageHandle (), Host::SystemTable ()), EFI_SUCCESS);

  EXPECT_EQ (Host::Trace (Host::AccessKind::MsrRead),
             (std::vector<Host::Access>{{Host::AccessKind::MsrRead, 0xC0010058, 8, Case.Msr}}));
  ASSERT_EQ (mPciSegmentInfoCount, Case.Segments);
  for (UINT32 Index = 0; Index < Case.Segments; Index++) {
    SCOPED_TRACE (Index);
    EXPECT_EQ (mPciSegmentInfo[Index].SegmentNumber, Index);
    EXPECT_EQ (mPciSegmentInfo[Index].BaseAddress, SegmentBase (Index));
    EXPECT_EQ (mPciSegmentInfo[Index].StartBusNumber, 0);
    EXPECT_EQ (mPciSegmentInfo[Index].EndBusNumber, Case.EndBus);
  }

  if (Case.Segments < PCI_SEGMENT_INFO_MAX_SEGMENTS) {
    EXPECT_EQ (mPciSegmentInfo[Case.Segments].BaseAddress, 0u);
  }

  const char *Fn = "PciSegmentInfoLibConstructor";
  EXPECT_EQ (
      SerialLines (),
      Concat (
          {L (Fn,
              Format ("Clearing mPciSegmentInfo array @ 0x%016llX Size 0x0000000000000C00 bytes (MaxNumEntries 128)",
                      static_cast<unsigned long long> (reinterpret_cast<UINTN> (mPciSegmentInfo)))),
           L (Fn, "Retrieving PCI segment information")},
          BuildLines ()));
}

TEST_P (PciSegmentInfoTest, QueryBuildsEmptyTableOnDemandAndDisplaysIt) {
  const SegmentCase &Case  = GetParam ();
  UINTN              Count = 0;
  ASSERT_EQ (GetPciSegmentInfo (&Count), mPciSegmentInfo);
  EXPECT_EQ (Count, Case.Segments);
  const std::string OnExit =
      L ("GetPciSegmentInfo", Format ("On exit *Count %u pPciSegmentInfo 0x%016llX", Case.Segments,
                                      static_cast<unsigned long long> (reinterpret_cast<UINTN> (mPciSegmentInfo))));
  EXPECT_EQ (
      SerialLines (),
      Concat (Concat ({L ("GetPciSegmentInfo", "Retrieving PCI segment information")}, BuildLines ()), {OnExit}));

  //
  // A built table is handed out without reading the MSR again.
  //
  Host::ClearSerialOutput ();
  Host::ClearTrace ();
  VornElogDisplayPciSegmentInfo (0x40);
  EXPECT_TRUE (Host::Trace (Host::AccessKind::MsrRead).empty ());
  std::vector<std::string> Expected = {OnExit};
  for (UINT32 Index = 0; Index < Case.Segments; Index++) {
    Expected.push_back (
        L ("VornElogDisplayPciSegmentInfo",
           Format ("PCI_SEGMENT_INFO entry %u => SegmentNumber 0x%04X Base Address 0x%016llX StartBusNumber "
                   "0x00 EndBusNumber 0x%02X",
                   Index, Index, static_cast<unsigned long long> (SegmentBase (Index)), Case.EndBus)));
  }

  EXPECT_EQ (SerialLines (), Expected);
}

INSTANTIATE_TEST_SUITE_P (
    BusRanges,
    PciSegmentInfoTest,
    ::testing::Values (SegmentCase{"Range8Base0xE0000000", 0x00000000E0000021ULL, 256, 1, 0xE0000000, 0xFF},
                       SegmentCase{"Range10FourSegments", 0x0000000080000029ULL, 1024, 4, 0x80000000, 0xFF},
                       SegmentCase{"Range7HalfSegment", 0x00000000E000001DULL, 128, 1, 0xE0000000, 0x7F},
                       SegmentCase{"Range0SingleBus", 0x00000000E0000001ULL, 1, 1, 0xE0000000, 0x00},
                       SegmentCase{"Range15FullTable", 0x000000800000003DULL, 32768, 128, 0x8000000000, 0xFF},
                       SegmentCase{"BaseZeroUsesDefault", 0x0000000000000021ULL, 256, 1, 0x60000000, 0xFF},
                       SegmentCase{"DisabledStillBuilt", 0x0000000000F00020ULL, 256, 1, 0x00F00000, 0xFF},
                       SegmentCase{"HighBaseBitsAboveField", 0xFFFF000C00000021ULL, 256, 1, 0x0000000C00000000, 0xFF}),
    [] (const auto &Info) { return std::string (Info.param.Name); });

//
// The build trace is init-level (0x1) and the query's exit line
// verbose-level (0x400000): each shows only when the platform enables it.
//
struct PciLevelCase {
  const char *Name;
  UINT32      PlatformLevel;
  bool        TraceShown;
  bool        ExitShown;
};

void PrintTo (const PciLevelCase &Case, std::ostream *Out) {
  *Out << Case.Name;
}

class PciSegmentLevelTest : public MachineTest, public ::testing::WithParamInterface<PciLevelCase> {
protected:
  Host::MachineConfig MachineConfiguration () const override {
    Host::MachineConfig Config;
    Config.DebugPrintErrorLevel = GetParam ().PlatformLevel;
    Config.MsrMmioCfgBaseAddr   = 0x00000000E0000021;
    return Config;
  }
};

TEST_P (PciSegmentLevelTest, TraceAndExitLinesFollowTheirLevels) {
  ASSERT_EQ (PciSegmentInfoLibConstructor (Host::ImageHandle (), Host::SystemTable ()), EFI_SUCCESS);
  UINTN Count = 0;
  ASSERT_EQ (GetPciSegmentInfo (&Count), mPciSegmentInfo);
  EXPECT_EQ (Count, 1u);

  const std::string        Build = "PciSegmentInfoLibGetSegmentData: ";
  std::vector<std::string> Expected;
  if (GetParam ().TraceShown) {
    Expected = {
        "PciSegmentInfoLibConstructor: Clearing mPciSegmentInfo array @ " +
            Format ("0x%016llX", static_cast<unsigned long long> (reinterpret_cast<UINTN> (mPciSegmentInfo))) +
            " Size 0x0000000000000C00 bytes (MaxNumEntries 128)",
        "PciSegmentInfoLibConstructor: Retrieving PCI segment information",
        Build + "Core::X86::Msr::MmioCfgBaseAddr MSR = 0x00000000E0000021 MmioCfgBaseAddr 0x00000E00 BusRange 0x8 "
                "Enable 1",
        Build + "Total Bus Count 256 Segment Count 1",
        Build + "Bus Count Per Segment 256",
        Build + "SegmentBaseAddress = 0x00000000E0000000 based on MsrMmioCfgBaseAddr.Field.MmioCfgBaseAddr value",
        Build + "SegmentBaseAddress = 0x00000000E0000000",
        Build + "Segment 0 BaseAddress 0x00000000E0000000 StartBus 0x00 EndBus 0xFF",
    };
  }

  if (GetParam ().ExitShown) {
    Expected.push_back (
        "GetPciSegmentInfo: On exit *Count 1 pPciSegmentInfo " +
        Format ("0x%016llX", static_cast<unsigned long long> (reinterpret_cast<UINTN> (mPciSegmentInfo))));
  }

  for (auto &Text : Expected) {
    Text = Line (0, Text);
  }

  EXPECT_EQ (SerialLines (), Expected);
}

INSTANTIATE_TEST_SUITE_P (Levels,
                          PciSegmentLevelTest,
                          ::testing::Values (PciLevelCase{"InfoAndErrors", 0x80000040, false, false},
                                             PciLevelCase{"InitOnly", 0x00000001, true, false},
                                             PciLevelCase{"VerboseOnly", 0x00400000, false, true}),
                          [] (const auto &Info) { return std::string (Info.param.Name); });

class PciSegmentQueryTest : public MachineTest {};

TEST_F (PciSegmentQueryTest, NullCountIsRejected) {
  EXPECT_EQ (GetPciSegmentInfo (nullptr), nullptr);
  EXPECT_EQ (mPciSegmentInfoCount, 0u);
  EXPECT_EQ (SerialLines (),
             (std::vector<std::string>{Line (0, "GetPciSegmentInfo: ERROR Count -- NULL on entry, aborting...")}));
}

} // namespace

/** @file
  PCI segment information from the MMIO configuration base address MSR,
  across bus ranges and base addresses, and the query around it.
**/
#include <gtest/gtest.h>

#include <ParamName.h>
#include <TestMachine.h>

#include <Library/ElogBaseLib.h>
#include <Library/VornPciSegmentInfoLib.h>

namespace {

struct SegmentCase {
  const char *Name;
  UINT64      Msr;
  UINT32      Segments;
  UINT64      FirstBase;
  UINT64      Stride; // bytes of configuration space per segment
  UINT8       EndBus;
};

class PciSegmentInfoTest : public MachineTest, public ::testing::WithParamInterface<SegmentCase> {
protected:
  Host::MachineConfig MachineConfiguration () const override {
    Host::MachineConfig Config;
    Config.MsrMmioCfgBaseAddr = GetParam ().Msr;
    return Config;
  }
};

//
// The table follows the MSR's base and bus range: 256 buses per segment, a
// base of 0 replaced by the platform default, the enable bit ignored. The
// constructor, or the query on demand, builds it; a built table is handed
// out without reading the MSR again.
//
TEST_P (PciSegmentInfoTest, TableFollowsTheMsr) {
  const SegmentCase &Case = GetParam ();
  Host::ClearTrace ();
  UINTN Count = 0;
  if (Case.Segments > 1) {
    ASSERT_EQ (GetPciSegmentInfo (&Count), mPciSegmentInfo);
  } else {
    ASSERT_EQ (PciSegmentInfoLibConstructor (Host::ImageHandle (), Host::SystemTable ()), EFI_SUCCESS);
  }

  EXPECT_EQ (Host::Trace (Host::AccessKind::MsrRead),
             (std::vector<Host::Access>{{Host::AccessKind::MsrRead, 0xC0010058, 8, Case.Msr}}));
  ASSERT_EQ (mPciSegmentInfoCount, Case.Segments);
  for (UINT32 Index = 0; Index < Case.Segments; Index++) {
    EXPECT_EQ (mPciSegmentInfo[Index].SegmentNumber, Index);
    EXPECT_EQ (mPciSegmentInfo[Index].BaseAddress, Case.FirstBase + Index * Case.Stride) << Index;
    EXPECT_EQ (mPciSegmentInfo[Index].StartBusNumber, 0);
    EXPECT_EQ (mPciSegmentInfo[Index].EndBusNumber, Case.EndBus);
  }

  if (Case.Segments < PCI_SEGMENT_INFO_MAX_SEGMENTS) {
    EXPECT_EQ (mPciSegmentInfo[Case.Segments].BaseAddress, 0u);
  }

  Host::ClearTrace ();
  EXPECT_EQ (GetPciSegmentInfo (&Count), mPciSegmentInfo);
  EXPECT_EQ (Count, Case.Segments);
  VornElogDisplayPciSegmentInfo (0x40);
  EXPECT_TRUE (Host::Trace (Host::AccessKind::MsrRead).empty ());
}

INSTANTIATE_TEST_SUITE_P (
    BusRanges,
    PciSegmentInfoTest,
    ::testing::Values (SegmentCase{"Range8", 0x00000000E0000021ULL, 1, 0xE0000000, 0x10000000, 0xFF},
                       SegmentCase{"Range10FourSegments", 0x0000000080000029ULL, 4, 0x80000000, 0x10000000, 0xFF},
                       SegmentCase{"Range7HalfSegment", 0x00000000E000001DULL, 1, 0xE0000000, 0, 0x7F},
                       SegmentCase{"Range0SingleBus", 0x00000000E0000001ULL, 1, 0xE0000000, 0, 0x00},
                       SegmentCase{"Range15FullTable", 0x000000800000003DULL, 128, 0x8000000000, 0x10000000, 0xFF},
                       SegmentCase{"BaseZeroUsesDefault", 0x0000000000000021ULL, 1, 0x60000000, 0, 0xFF},
                       SegmentCase{"Disabled", 0x0000000000F00020ULL, 1, 0x00F00000, 0, 0xFF},
                       SegmentCase{"HighBitsAboveField", 0xFFFF000C00000021ULL, 1, 0x0000000C00000000, 0, 0xFF}),
    CaseName ());

class PciSegmentQueryTest : public MachineTest {};

TEST_F (PciSegmentQueryTest, NullCountIsRejected) {
  EXPECT_EQ (GetPciSegmentInfo (nullptr), nullptr);
  EXPECT_EQ (mPciSegmentInfoCount, 0u);
  EXPECT_EQ (SerialLines (),
             (std::vector<std::string>{Line (0, "GetPciSegmentInfo: ERROR Count -- NULL on entry, aborting...")}));
}

} // namespace

/** @file
  The flash part refuses every operation that does not lie wholly inside it,
  as the controller does: nothing is transferred, nothing is counted. The
  part's address space ends at 4 GiB and never wraps.
**/
#include <algorithm>

#include <SpiFlash.h>
#include <TestMachine.h>

#include <Protocol/VornSmmSpi.h>

namespace {

struct Range {
  const char *Name;
  UINT64      Address;
  UINT32      Length;
};

class SpiFlashBoundsTest : public MachineTest, public ::testing::WithParamInterface<Range> {
protected:
  void SetUp () override {
    Host::Flash::AttachMemory (std::vector<UINT8> (0x10000, 0x5A)); // 0xFFFF0000 .. 4 GiB
    MachineTest::SetUp ();
    ASSERT_EQ (Host::Smst ()->SmmLocateProtocol (&gVornSmmSpiProtocolGuid, nullptr, (VOID **)&mSpi), EFI_SUCCESS);
  }

  VORN_SMM_SPI_PROTOCOL *mSpi = nullptr;
};

TEST_P (SpiFlashBoundsTest, OperationOutsideThePartIsRefused) {
  const Range        R = GetParam ();
  std::vector<UINT8> Buffer (R.Length, 0x00);

  EXPECT_EQ (mSpi->Read (mSpi, R.Address, R.Length, Buffer.data ()), EFI_INVALID_PARAMETER);
  EXPECT_EQ (mSpi->Write (mSpi, R.Address, R.Length, Buffer.data ()), EFI_INVALID_PARAMETER);
  EXPECT_EQ (mSpi->Erase (mSpi, R.Address & ~0xFFFULL, 0x2000), EFI_INVALID_PARAMETER);
  EXPECT_EQ (Buffer, std::vector<UINT8> (R.Length, 0x00));
  EXPECT_EQ (Host::Flash::Count (), Host::Flash::Counters ());
  EXPECT_EQ (std::count (Host::Flash::Image ().begin (), Host::Flash::Image ().end (), 0x5A), 0x10000);
}

INSTANTIATE_TEST_SUITE_P (Ranges,
                          SpiFlashBoundsTest,
                          ::testing::Values (Range{"AtTheTop", 0x100000000ULL, 0x10},
                                             Range{"AboveTheTop", 0x1FE14005CULL,
                                                   0x14}, // a torn extended header once sent reads here
                                             Range{"NearTheTopOfTheAddressSpace", 0xFFFFFFFFFFFFF000ULL, 0x10},
                                             Range{"BelowThePart", 0xFFFEF000ULL, 0x10},
                                             Range{"AcrossTheTop", 0xFFFFFFF8ULL, 0x10}),
                          [] (const auto &Info) { return std::string (Info.param.Name); });

} // namespace

/** @file
  The flash part refuses every operation that does not lie wholly inside it,
  as the controller does: nothing is transferred, nothing is counted. The
  part's address space ends at 4 GiB and never wraps.
**/
#include <algorithm>

#include <SpiFlash.h>
#include <TestMachine.h>

#include <Protocol/VornSmmSpi.h>

class SpiFlashBoundsTest : public MachineTest {
protected:
  void SetUp () override {
    Host::Flash::AttachMemory (std::vector<UINT8> (0x10000, 0x5A)); // 0xFFFF0000 .. 4 GiB
    MachineTest::SetUp ();
  }
};

TEST_F (SpiFlashBoundsTest, OperationOutsideThePartIsRefused) {
  VORN_SMM_SPI_PROTOCOL *Spi = nullptr;
  ASSERT_EQ (Host::Smst ()->SmmLocateProtocol (&gVornSmmSpiProtocolGuid, nullptr, (VOID **)&Spi), EFI_SUCCESS);

  // At, above and below the part, across its top, and where a torn extended
  // header once sent a read.
  for (UINT64 Address : {0x100000000ULL, 0x1FE14005CULL, 0xFFFFFFFFFFFFF000ULL, 0xFFFEF000ULL, 0xFFFFFFF8ULL}) {
    std::vector<UINT8> Buffer (0x14, 0x00);
    EXPECT_EQ (Spi->Read (Spi, Address, 0x14, Buffer.data ()), EFI_INVALID_PARAMETER) << std::hex << Address;
    EXPECT_EQ (Spi->Write (Spi, Address, 0x14, Buffer.data ()), EFI_INVALID_PARAMETER) << std::hex << Address;
    EXPECT_EQ (Spi->Erase (Spi, Address & ~0xFFFULL, 0x2000), EFI_INVALID_PARAMETER) << std::hex << Address;
    EXPECT_EQ (Buffer, std::vector<UINT8> (0x14, 0x00));
  }

  EXPECT_EQ (Host::Flash::Count (), Host::Flash::Counters ());
  EXPECT_EQ (std::count (Host::Flash::Image ().begin (), Host::Flash::Image ().end (), 0x5A), 0x10000);
}

/** @file
  The ERST store's flash access: the volume block handle list and SPI flash
  read, program and erase with their checks.
**/
#include <ErstStoreFixture.h>
#include <ParamName.h>
#include <SpiFlash.h>

#include <Library/DebugLib.h>
#include <Library/SmmServicesTableLib.h>
#include <Protocol/SmmFirmwareVolumeBlock.h>

namespace {

using ErstFlashAccessTest = ErstStoreFixture;

TEST_F (ErstFlashAccessTest, ListsEveryVolumeHandle) {
  UINTN       Count   = 99;
  EFI_HANDLE *Handles = nullptr;
  ASSERT_EQ (VornApeiLoggingGetFvbCountAndBuffer (&Count, &Handles), EFI_SUCCESS);
  ASSERT_EQ (Count, 5u);

  // The same handles, in the same order, as the SMM database lists them.
  UINTN                   Size = 5 * sizeof (EFI_HANDLE);
  std::vector<EFI_HANDLE> Expected (5);
  ASSERT_EQ (
      gSmst->SmmLocateHandle (ByProtocol, &gEfiSmmFirmwareVolumeBlockProtocolGuid, nullptr, &Size, Expected.data ()),
      EFI_SUCCESS);
  EXPECT_EQ (std::vector<EFI_HANDLE> (Handles, Handles + 5), Expected);

  Count = 7;
  EXPECT_EQ (VornApeiLoggingGetFvbCountAndBuffer (nullptr, &Handles), EFI_INVALID_PARAMETER);
  EXPECT_EQ (VornApeiLoggingGetFvbCountAndBuffer (&Count, nullptr), EFI_INVALID_PARAMETER);
  EXPECT_EQ (Count, 7u);
}

TEST_F (ErstFlashAccessTest, HandleListFailures) {
  UINTN       Count   = 0;
  EFI_HANDLE *Handles = nullptr;

  // The second lookup's failure is returned; the buffer stays with the caller.
  Host::SetFault (Host::Service::SmmLocateHandle, {Host::FaultKind::Fail, EFI_DEVICE_ERROR, 1});
  EXPECT_EQ (VornApeiLoggingGetFvbCountAndBuffer (&Count, &Handles), EFI_DEVICE_ERROR);
  EXPECT_EQ (Count, 0u);
  EXPECT_NE (Handles, nullptr);

  Host::ClearFaults ();
  Host::SetFault (Host::Service::SmmAllocatePool, {Host::FaultKind::Fail, EFI_OUT_OF_RESOURCES});
  EXPECT_EQ (VornApeiLoggingGetFvbCountAndBuffer (&Count, &Handles), EFI_OUT_OF_RESOURCES);

  // Whatever the first lookup's failure, it is reported as not found.
  Host::SetFault (Host::Service::SmmLocateHandle, {Host::FaultKind::Fail, EFI_DEVICE_ERROR});
  EXPECT_EQ (VornApeiLoggingGetFvbCountAndBuffer (&Count, &Handles), EFI_NOT_FOUND);
  EXPECT_EQ (Handles, nullptr);
}

TEST_F (ErstFlashAccessTest, WithoutSpiProtocolEveryAccessFailsAndLooksAgain) {
  Host::Flash::SetOptions ({FALSE, TRUE});
  PowerCycle ();
  Host::Flash::SetOptions ({});
  UINT8 Buffer[4] = {};

  EXPECT_EQ (VornApeiLoggingReadDataViaSpi (DEBUG_INFO, Records (), sizeof (Buffer), Buffer), EFI_NOT_FOUND);
  EXPECT_EQ (VornApeiLoggingWriteDataViaSpi (DEBUG_INFO, Records (), sizeof (Buffer), Buffer), EFI_NOT_FOUND);
  EXPECT_EQ (mPrivateDataVornApeiLogging.pVornSmmSpiProtocol, nullptr);
  EXPECT_EQ (LinesContaining ("locating protocol gVornSmmSpiProtocolGuid").size (), 2u);
}

//
// Read and program differ only in direction: both run the same cases.
//
class ErstTransferTest : public ErstStoreFixture, public ::testing::WithParamInterface<BOOLEAN> {
protected:
  EFI_STATUS Transfer (UINT64 Address, UINTN Length, VOID *Buffer) {
    return GetParam () ? VornApeiLoggingWriteDataViaSpi (DEBUG_INFO, Address, Length, Buffer)
                       : VornApeiLoggingReadDataViaSpi (DEBUG_INFO, Address, Length, Buffer);
  }
};

TEST_P (ErstTransferTest, ChecksLocatesOnceAndPassesFailuresOn) {
  UINT8 Data[3] = {0x45, 0x52, 0x53};
  EXPECT_EQ (Transfer (Records (), 0, Data), EFI_INVALID_PARAMETER);
  EXPECT_EQ (Transfer (Records (), 4, nullptr), EFI_INVALID_PARAMETER);
  EXPECT_EQ (mPrivateDataVornApeiLogging.pVornSmmSpiProtocol, nullptr);
  EXPECT_EQ (Host::Flash::Count (), Host::Flash::Counters{});

  ASSERT_EQ (Transfer (Records (), sizeof (Data), Data), EFI_SUCCESS);
  ASSERT_EQ (Transfer (Records () + 4, 1, Data), EFI_SUCCESS);
  EXPECT_EQ (LinesContaining ("Locating protocol gVornSmmSpiProtocolGuid").size (), 1u);
  if (GetParam ()) {
    EXPECT_EQ (Flash (Records (), 6), (std::vector<UINT8>{0x45, 0x52, 0x53, 0xFF, 0x45, 0xFF}));
  } else {
    EXPECT_EQ (std::vector<UINT8> (Data, Data + 3), std::vector<UINT8> (3, 0xFF));
  }

  Host::Flash::InjectFailure ({std::nullopt, 1, Host::Flash::Cut::Fail, 0});
  EXPECT_EQ (Transfer (Records (), sizeof (Data), Data), EFI_DEVICE_ERROR);

  // The protocol takes a 32-bit count.
  UINT8 Zeros[8] = {};
  ASSERT_EQ (Transfer (Records () + 0x10, 0x100000004ULL, Zeros), EFI_SUCCESS);
  if (GetParam ()) {
    EXPECT_EQ (Flash (Records () + 0x10, 5), (std::vector<UINT8>{0, 0, 0, 0, 0xFF}));
  }
}

INSTANTIATE_TEST_SUITE_P (Directions, ErstTransferTest, ::testing::Values (FALSE, TRUE), [] (const auto &Info) {
  return std::string (Info.param ? "Write" : "Read");
});

//
// Erase works on whole blocks of the size discovery found (0x1000).
//
TEST_F (ErstFlashAccessTest, ErasesOnlyWholeBlocks) {
  NewStore ();
  Discovered ();
  const struct {
    UINT64     Offset;
    UINTN      Length;
    EFI_STATUS Status;
  } Cases[] = {{0x2000, 0, EFI_INVALID_PARAMETER},
               {0x2001, 0x1000, EFI_INVALID_PARAMETER},
               {0x2000, 0x1800, EFI_INVALID_PARAMETER},
               {0x2000, 0x2000, EFI_SUCCESS}};
  for (const auto &Case : Cases) {
    Host::Flash::Poke (Volume () + 0x1000, std::vector<UINT8> (0x3000, 0x00));
    EXPECT_EQ (VornApeiLoggingEraseDataViaSpi (DEBUG_INFO, Volume () + Case.Offset, Case.Length), Case.Status);
    std::vector<UINT8> Expected (0x3000, 0x00);
    if (Case.Status == EFI_SUCCESS) {
      std::fill (Expected.begin () + 0x1000, Expected.end (), 0xFF);
    }
    EXPECT_EQ (Flash (Volume () + 0x1000, 0x3000), Expected) << Case.Offset << " " << Case.Length;
  }
}

} // namespace

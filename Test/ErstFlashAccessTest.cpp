/** @file
  The ERST store's flash access: the volume block handle list and SPI
  flash read, program and erase with their checks and log lines.
**/
#include <algorithm>

#include <ErstStoreFixture.h>
#include <SpiFlash.h>

#include <Library/DebugLib.h>
#include <Library/SmmServicesTableLib.h>
#include <Protocol/SmmFirmwareVolumeBlock.h>

namespace {

const std::string kFvbGuid = "D326D041-BD31-4C01-B5A8-628BE87F0653";
const std::string kSpiGuid = "EE33A1BC-DC04-4213-BE90-CEE13F0BC678";
const std::string kHandles = "VornApeiLoggingGetFvbCountAndBuffer";
const std::string kRead    = "VornApeiLoggingReadDataViaSpi";
const std::string kWrite   = "VornApeiLoggingWriteDataViaSpi";
const std::string kErase   = "VornApeiLoggingEraseDataViaSpi";

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

  const std::string Buffer = Hex (reinterpret_cast<UINT64> (Handles));
  EXPECT_EQ (SerialLines (),
             (std::vector<std::string>{
                 L (kHandles, "Entering"),
                 L (kHandles, "Calling SmmLocateHandle for gEfiSmmFirmwareVolumeBlockProtocolGuid " + kFvbGuid),
                 L (kHandles, "Allocating EfiRuntimeServicesData memory to ppBuffer length 0x0000000000000028 bytes"),
                 L (kHandles,
                    "Successfully allocated EfiRuntimeServicesData @ " + Buffer + " length 0x0000000000000028 bytes"),
                 L (kHandles, "Calling SmmLocateHandle for gEfiSmmFirmwareVolumeBlockProtocolGuid " + kFvbGuid),
                 L (kHandles, "On exit *pNumberOfHandles 5"),
                 L (kHandles, "On exit *ppBuffer " + Buffer),
                 L (kHandles, "Exiting with status Success"),
             }));
}

TEST_F (ErstFlashAccessTest, HandleListArgumentsMustNotBeNull) {
  UINTN       Count   = 7;
  EFI_HANDLE *Handles = nullptr;

  EXPECT_EQ (VornApeiLoggingGetFvbCountAndBuffer (nullptr, &Handles), EFI_INVALID_PARAMETER);
  EXPECT_EQ (VornApeiLoggingGetFvbCountAndBuffer (&Count, nullptr), EFI_INVALID_PARAMETER);
  EXPECT_EQ (Count, 7u);
  EXPECT_EQ (SerialLines (),
             std::vector<std::string> (2, L (kHandles, "One or more input parameters are NULL, aborting...")));
}

TEST_F (ErstFlashAccessTest, SecondLookupFailureKeepsTheBuffer) {
  UINTN       Count   = 0;
  EFI_HANDLE *Handles = nullptr;

  Host::SetFault (Host::Service::SmmLocateHandle, {Host::FaultKind::Fail, EFI_DEVICE_ERROR, 1});
  EXPECT_EQ (VornApeiLoggingGetFvbCountAndBuffer (&Count, &Handles), EFI_DEVICE_ERROR);
  EXPECT_EQ (Count, 0u);
  ASSERT_NE (Handles, nullptr);
  EXPECT_TRUE (LoggedInOrder ({
      L (kHandles, "ERROR Device Error from SmmLocateHandle for gEfiSmmFirmwareVolumeBlockProtocolGuid " + kFvbGuid +
                       " (second call), aborting..."),
      L (kHandles, "On exit *pNumberOfHandles 0"),
      L (kHandles, "On exit *ppBuffer " + Hex (reinterpret_cast<UINT64> (Handles))),
      L (kHandles, "Exiting with status Device Error"),
  }));
}

TEST_F (ErstFlashAccessTest, PoolFailureIsReturned) {
  UINTN       Count   = 0;
  EFI_HANDLE *Handles = nullptr;

  Host::SetFault (Host::Service::SmmAllocatePool, {Host::FaultKind::Fail, EFI_OUT_OF_RESOURCES, 0});
  EXPECT_EQ (VornApeiLoggingGetFvbCountAndBuffer (&Count, &Handles), EFI_OUT_OF_RESOURCES);
  EXPECT_EQ (
      SerialLines ().back (),
      L (kHandles,
         "ERROR Out of Resources from SmmAllocatePool EfiRuntimeServicesData to ppBuffer length 0x0000000000000028 bytes, aborting..."));
}

//
// A platform whose flash has no volume block protocols and no SPI protocol.
//
class ErstFlashAccessBareTest : public ErstStoreFixture {
protected:
  void SetUp () override {
    Host::Flash::Options Bare;
    Bare.InstallSpiProtocol     = FALSE;
    Bare.InstallVolumeProtocols = FALSE;
    Host::Flash::SetOptions (Bare);
    ErstStoreFixture::SetUp ();
  }

  void TearDown () override {
    Host::Flash::SetOptions ({});
  }
};

TEST_F (ErstFlashAccessBareTest, NoVolumeHandlesIsNotFound) {
  UINTN       Count   = 3;
  EFI_HANDLE *Handles = reinterpret_cast<EFI_HANDLE *> (8);

  EXPECT_EQ (VornApeiLoggingGetFvbCountAndBuffer (&Count, &Handles), EFI_NOT_FOUND);
  EXPECT_EQ (Count, 0u);
  EXPECT_EQ (Handles, nullptr);
  EXPECT_EQ (SerialLines ().back (),
             L (kHandles, "ERROR Not Found from SmmLocateHandle for gEfiSmmFirmwareVolumeBlockProtocolGuid " +
                              kFvbGuid + " (first call), aborting..."));
}

TEST_F (ErstFlashAccessBareTest, MissingSpiProtocolFailsEveryAccessAndIsLookedUpAgain) {
  UINT8 Buffer[4] = {};

  EXPECT_EQ (VornApeiLoggingReadDataViaSpi (DEBUG_INFO, Records (), sizeof (Buffer), Buffer), EFI_NOT_FOUND);
  EXPECT_EQ (VornApeiLoggingWriteDataViaSpi (DEBUG_INFO, Records (), sizeof (Buffer), Buffer), EFI_NOT_FOUND);
  EXPECT_EQ (mPrivateDataVornApeiLogging.pVornSmmSpiProtocol, nullptr);
  EXPECT_EQ (SerialLines (),
             (std::vector<std::string>{
                 L (kRead, "Locating protocol gVornSmmSpiProtocolGuid " + kSpiGuid),
                 L (kRead, "ERROR Not Found locating protocol gVornSmmSpiProtocolGuid " + kSpiGuid + ", aborting..."),
                 L (kWrite, "Locating protocol gVornSmmSpiProtocolGuid " + kSpiGuid),
                 L (kWrite, "ERROR Not Found locating protocol gVornSmmSpiProtocolGuid " + kSpiGuid + ", aborting..."),
             }));
}

//
// Read and program differ only in direction and words; both run the same
// cases.
//
struct Direction {
  const char        *Name;
  const std::string *Routine;
  BOOLEAN            IsWrite;
  const char        *Doing; // "Reading ... to" / "Writing ... from"
  const char        *Member;
};

void PrintTo (const Direction &Case, std::ostream *Out) {
  *Out << Case.Name;
}

class ErstTransferTest : public ErstStoreFixture, public ::testing::WithParamInterface<Direction> {
protected:
  EFI_STATUS
  Transfer (UINT64 Address, UINTN Length, VOID *Buffer) {
    return GetParam ().IsWrite ? VornApeiLoggingWriteDataViaSpi (DEBUG_INFO, Address, Length, Buffer)
                               : VornApeiLoggingReadDataViaSpi (DEBUG_INFO, Address, Length, Buffer);
  }

  std::string Progress (UINT64 Address, UINT64 Length, const VOID *Buffer) {
    const Direction &D = GetParam ();
    return L (*D.Routine, std::string (D.Doing) + " SPI flash @ PhyAddress " + Hex (Address) + " NumBytes " +
                              Hex (Length) + (D.IsWrite ? " from pBuffer " : " to pBuffer ") +
                              Hex (reinterpret_cast<UINT64> (Buffer)));
  }
};

TEST_P (ErstTransferTest, ZeroLengthOrNullBufferIsRefusedBeforeLocating) {
  UINT8 Buffer[4] = {};

  EXPECT_EQ (Transfer (Records (), 0, Buffer), EFI_INVALID_PARAMETER);
  EXPECT_EQ (Transfer (Records (), 4, nullptr), EFI_INVALID_PARAMETER);
  EXPECT_EQ (mPrivateDataVornApeiLogging.pVornSmmSpiProtocol, nullptr);
  EXPECT_EQ (SerialLines (),
             std::vector<std::string> (
                 2, L (*GetParam ().Routine, "ERROR NumOfByte is zero or pBuffer is NULL, aborting...")));
  EXPECT_EQ (Host::Flash::Count (), Host::Flash::Counters{});
}

TEST_P (ErstTransferTest, LocatesOnceThenTransfers) {
  UINT8 Data[3] = {0x45, 0x52, 0x53};
  UINT8 More[2] = {0x22, 0x00};

  ASSERT_EQ (Transfer (Records (), sizeof (Data), Data), EFI_SUCCESS);
  ASSERT_EQ (Transfer (Records () + 4, sizeof (More), More), EFI_SUCCESS);
  EXPECT_NE (mPrivateDataVornApeiLogging.pVornSmmSpiProtocol, nullptr);
  EXPECT_EQ (SerialLines (), (std::vector<std::string>{
                                 L (*GetParam ().Routine, "Locating protocol gVornSmmSpiProtocolGuid " + kSpiGuid),
                                 Progress (Records (), 3, Data),
                                 Progress (Records () + 4, 2, More),
                             }));
  if (GetParam ().IsWrite) {
    EXPECT_EQ (Flash (Records (), 7), (std::vector<UINT8>{0x45, 0x52, 0x53, 0xFF, 0x22, 0x00, 0xFF}));
  } else {
    EXPECT_EQ (std::vector<UINT8> (Data, Data + 3), std::vector<UINT8> (3, 0xFF));
  }
}

TEST_P (ErstTransferTest, PlatformFailureIsPassedOn) {
  UINT8 Data[2] = {0x00, 0x00};

  Host::Flash::InjectFailure ({std::nullopt, 1, Host::Flash::Cut::Fail, 0});
  EXPECT_EQ (Transfer (Records (), sizeof (Data), Data), EFI_DEVICE_ERROR);
  EXPECT_EQ (SerialLines ().back (),
             L (*GetParam ().Routine, std::string ("ERROR Device Error issuing VornSmmSpiProtocol->") +
                                          GetParam ().Member + " command, aborting..."));
}

TEST_P (ErstTransferTest, CountAboveFourGiBIsTruncatedForTheProtocol) {
  UINT8 Data[8] = {0, 0, 0, 0, 0, 0, 0, 0};

  ASSERT_EQ (Transfer (Records (), 0x100000004ULL, Data), EFI_SUCCESS);
  EXPECT_EQ (SerialLines ().back (), Progress (Records (), 0x100000004ULL, Data));
  if (GetParam ().IsWrite) {
    EXPECT_EQ (Flash (Records (), 5), (std::vector<UINT8>{0, 0, 0, 0, 0xFF}));
  } else {
    EXPECT_EQ (Host::Flash::Count ().Read.Bytes, 4u);
  }
}

INSTANTIATE_TEST_SUITE_P (Directions,
                          ErstTransferTest,
                          ::testing::Values (Direction{"Read", &kRead, FALSE, "Reading", "Read"},
                                             Direction{"Write", &kWrite, TRUE, "Writing", "Write"}),
                          [] (const auto &Info) { return std::string (Info.param.Name); });

//
// Erase, with the block size discovery found (0x1000).
//
struct EraseCase {
  const char *Name;
  UINT64      Offset; // from the volume
  UINTN       Length;
  EFI_STATUS  Status;
  const char *Error; // the error line, or nullptr
};

void PrintTo (const EraseCase &Case, std::ostream *Out) {
  *Out << Case.Name;
}

class ErstEraseTest : public ErstStoreFixture, public ::testing::WithParamInterface<EraseCase> {
protected:
  void SetUp () override {
    ErstStoreFixture::SetUp ();
    NewStore ();
    Discovered ();
    Host::Flash::Poke (Volume () + 0x1000, std::vector<UINT8> (0x3000, 0x00));
  }
};

TEST_P (ErstEraseTest, ErasesOnlyWholeBlocks) {
  const EraseCase &Case    = GetParam ();
  const UINT64     Address = Volume () + Case.Offset;

  EXPECT_EQ (VornApeiLoggingEraseDataViaSpi (DEBUG_INFO, Address, Case.Length), Case.Status);
  if (Case.Error != nullptr) {
    EXPECT_EQ (SerialLines (), std::vector<std::string>{L (kErase, Case.Error)});
    EXPECT_EQ (Host::Flash::Count ().Erase.Operations, 0u);
    EXPECT_EQ (Flash (Volume () + 0x1000, 0x3000), std::vector<UINT8> (0x3000, 0x00));
  } else {
    EXPECT_EQ (SerialLines ().back (),
               L (kErase, "Erasing SPI flash @ PhyAddress " + Hex (Address) + " NumBytes " + Hex (Case.Length)));
    EXPECT_EQ (Flash (Volume () + 0x1000, 0x3000), [] {
      std::vector<UINT8> Expected (0x3000, 0x00);
      std::fill (Expected.begin () + 0x1000, Expected.begin () + 0x3000, 0xFF);
      return Expected;
    }());
  }
}

INSTANTIATE_TEST_SUITE_P (
    Blocks,
    ErstEraseTest,
    ::testing::Values (
        EraseCase{"TwoAlignedBlocks", 0x2000, 0x2000, EFI_SUCCESS, nullptr},
        EraseCase{"Zero", 0x2000, 0, EFI_INVALID_PARAMETER, "ERROR NumOfByte is zero, aborting..."},
        EraseCase{
            "OneBytePastBoundary", 0x2001, 0x1000, EFI_INVALID_PARAMETER,
            "ERROR PhyAddress 0x00000000FF142001 is not aligned to SPI block/sector size 0x0000000000001000, aborting..."},
        EraseCase{
            "BlockAndAHalf", 0x2000, 0x1800, EFI_INVALID_PARAMETER,
            "ERROR NumOfByte 0x0000000000001800 is not an even multiple of SPI block/sector size 0x0000000000001000, aborting..."}),
    [] (const auto &Info) { return std::string (Info.param.Name); });

} // namespace

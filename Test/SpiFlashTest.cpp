/** @file
  The SPI flash model: NOR rules, counters, injected failures, persistence
  to a file, and the protocols installed at power-on.
**/
#include <fstream>
#include <iterator>
#include <unistd.h>

#include "Builder/FlashImage.h"
#include <SpiFlash.h>
#include <TestMachine.h>

#include <Protocol/SmmFirmwareVolumeBlock.h>
#include <Protocol/VornSmmSpi.h>

namespace {

using Host::Flash::Counters;
using Host::Flash::Cut;
using Host::Flash::Op;
using Host::Flash::OpCount;

constexpr UINT64 kBase   = 0xFF000000;
constexpr UINT64 kSector = 0x1000;

//
// A small part (64 KiB at 0xFFFF0000) with one sector of known bytes.
//
class SpiFlashTest : public MachineTest {
protected:
  static constexpr UINT64 kSmallBase = 0xFFFF0000;

  void SetUp () override {
    std::vector<UINT8> Image (0x10000, 0xFF);
    for (size_t Index = 0; Index < kSector; Index++) {
      Image[kSector + Index] = static_cast<UINT8> (Index);
    }

    Host::Flash::AttachMemory (Image);
    MachineTest::SetUp ();
    ASSERT_EQ (Host::Smst ()->SmmLocateProtocol (&gVornSmmSpiProtocolGuid, nullptr, (VOID **)&mSpi), EFI_SUCCESS);
  }

  void TearDown () override {
    Host::Flash::SetOptions ({});
  }

  std::vector<UINT8> Read (UINT64 Address, UINT32 Length, EFI_STATUS Expected = EFI_SUCCESS) {
    std::vector<UINT8> Buffer (Length, 0xA5);
    EXPECT_EQ (mSpi->Read (mSpi, Address, Length, Buffer.data ()), Expected);
    return Buffer;
  }

  EFI_STATUS
  Write (UINT64 Address, std::vector<UINT8> Bytes) {
    return mSpi->Write (mSpi, Address, static_cast<UINT32> (Bytes.size ()), Bytes.data ());
  }

  VORN_SMM_SPI_PROTOCOL *mSpi = nullptr;
};

TEST_F (SpiFlashTest, PartSitsBelowFourGiB) {
  EXPECT_EQ (Host::Flash::Base (), kSmallBase);
  EXPECT_EQ (Host::Flash::Size (), 0x10000u);
  EXPECT_EQ (Read (kSmallBase + kSector + 0x10, 4), (std::vector<UINT8>{0x10, 0x11, 0x12, 0x13}));
  EXPECT_EQ (Read (0xFFFFFFFC, 4), (std::vector<UINT8> (4, 0xFF)));
}

//
// Arguments the part refuses: nothing changes and nothing is counted.
//
struct Refused {
  const char *Name;
  Op          Kind;
  UINT64      Address;
  UINT32      Length;
};

void PrintTo (const Refused &Case, std::ostream *Out) {
  *Out << Case.Name;
}

class SpiFlashRefusedTest : public SpiFlashTest, public ::testing::WithParamInterface<Refused> {};

TEST_P (SpiFlashRefusedTest, InvalidParameterLeavesPartUntouched) {
  const Refused           &Case   = GetParam ();
  const std::vector<UINT8> Before = Host::Flash::Peek (kSmallBase, 0x10000);
  std::vector<UINT8>       Buffer (Case.Length + 1, 0x00);
  EFI_STATUS               Status;

  switch (Case.Kind) {
    case Op::Erase:
      Status = mSpi->Erase (mSpi, Case.Address, Case.Length);
      break;
    case Op::Program:
      Status = mSpi->Write (mSpi, Case.Address, Case.Length, Buffer.data ());
      break;
    default:
      Status = mSpi->Read (mSpi, Case.Address, Case.Length, Buffer.data ());
      break;
  }

  EXPECT_EQ (Status, EFI_INVALID_PARAMETER);
  EXPECT_EQ (Host::Flash::Peek (kSmallBase, 0x10000), Before);
  EXPECT_EQ (Host::Flash::Count (), Counters{});
}

INSTANTIATE_TEST_SUITE_P (Arguments,
                          SpiFlashRefusedTest,
                          ::testing::Values (Refused{"EraseOffSector", Op::Erase, 0xFFFF1001, 0x1000},
                                             Refused{"ErasePartSector", Op::Erase, 0xFFFF1000, 0x1800},
                                             Refused{"EraseNothing", Op::Erase, 0xFFFF1000, 0},
                                             Refused{"EraseBelowPart", Op::Erase, 0xFFFEF000, 0x2000},
                                             Refused{"ProgramPastTop", Op::Program, 0xFFFFFFFF, 2},
                                             Refused{"ProgramBelowPart", Op::Program, 0xFFFEFFFF, 1},
                                             Refused{"ProgramNothing", Op::Program, 0xFFFF2000, 0},
                                             Refused{"ReadPastTop", Op::Read, 0xFFFFFFF0, 0x11},
                                             Refused{"ReadBelowPart", Op::Read, 0x1000, 4}),
                          [] (const auto &Info) { return std::string (Info.param.Name); });

TEST_F (SpiFlashTest, EraseSetsWholeSectorsToErased) {
  EXPECT_EQ (mSpi->Erase (mSpi, kSmallBase + kSector, kSector), EFI_SUCCESS);
  EXPECT_EQ (Host::Flash::Peek (kSmallBase + kSector, kSector), std::vector<UINT8> (kSector, 0xFF));
  EXPECT_EQ (Host::Flash::Count ().Erase, (OpCount{1, kSector}));
}

TEST_F (SpiFlashTest, ProgramOnlyClearsBits) {
  const UINT64 Flag = kSmallBase + 0x4C;

  // Erased to a value, then a flag byte from 0xFF to 0x22, then 0x22 to 0x02.
  EXPECT_EQ (Write (kSmallBase + 0x40, {0x01, 0x00, 0x01, 0x00}), EFI_SUCCESS);
  EXPECT_EQ (Write (Flag, {0x22}), EFI_SUCCESS);
  EXPECT_EQ (Write (Flag, {0x02}), EFI_SUCCESS);
  EXPECT_EQ (Host::Flash::Peek (kSmallBase + 0x40, 0x10),
             (std::vector<UINT8>{0x01, 0x00, 0x01, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x02, 0xFF,
                                 0xFF, 0xFF}));
  EXPECT_TRUE (Host::Flash::ProgramFaults ().empty ());

  // Setting a 0 bit back is refused as a whole, not half done.
  EXPECT_EQ (Write (kSmallBase + 0x4B, {0x00, 0x22}), EFI_DEVICE_ERROR);
  EXPECT_EQ (Host::Flash::Peek (kSmallBase + 0x4B, 2), (std::vector<UINT8>{0xFF, 0x02}));
  EXPECT_EQ (Host::Flash::ProgramFaults (), (std::vector<Host::Flash::ProgramFault>{{Flag, 0x02, 0x22}}));
  EXPECT_EQ (Host::Flash::Count ().Program, (OpCount{4, 6}));
}

TEST_F (SpiFlashTest, CountsOperationsAndBytesByKind) {
  Read (kSmallBase, 0x54);
  Read (kSmallBase + 0x100, 0x10);
  EXPECT_EQ (Write (kSmallBase + 0x2000, {1, 2, 3}), EFI_SUCCESS);
  EXPECT_EQ (mSpi->Erase (mSpi, kSmallBase + 0x3000, 0x2000), EFI_SUCCESS);

  EXPECT_EQ (Host::Flash::Count (), (Counters{{2, 0x64}, {1, 3}, {1, 0x2000}}));

  // A power cycle starts the counts afresh and keeps the contents.
  Host::PowerOn ();
  EXPECT_EQ (Host::Flash::Count (), Counters{});
  EXPECT_EQ (Host::Flash::Peek (kSmallBase + 0x2000, 4), (std::vector<UINT8>{1, 2, 3, 0xFF}));
}

//
// An injected failure and what it leaves behind.
//
struct Injected {
  const char             *Name;
  Host::Flash::Failure    What;
  std::vector<UINT8>      SectorAfter; // first 8 bytes of the sector at 0x1000
  std::vector<EFI_STATUS> Statuses;    // erase, program, program of the sequence
};

void PrintTo (const Injected &Case, std::ostream *Out) {
  *Out << Case.Name;
}

class SpiFlashFailureTest : public SpiFlashTest, public ::testing::WithParamInterface<Injected> {};

//
// The sequence: erase the sector at 0x1000, program 8 bytes into it, program
// one more byte (a flag) at its offset 8.
//
TEST_P (SpiFlashFailureTest, CutsTheChosenOperation) {
  const Injected         &Case   = GetParam ();
  const UINT64            Sector = kSmallBase + kSector;
  std::vector<EFI_STATUS> Statuses;

  Host::Flash::InjectFailure (Case.What);
  Statuses.push_back (mSpi->Erase (mSpi, Sector, kSector));
  Statuses.push_back (Write (Sector, {0x10, 0x20, 0x30, 0x40, 0x50, 0x60, 0x70, 0x80}));
  Statuses.push_back (Write (Sector + 8, {0x22}));

  EXPECT_EQ (Statuses, Case.Statuses);
  EXPECT_EQ (Host::Flash::Peek (Sector, 9), Case.SectorAfter);
}

INSTANTIATE_TEST_SUITE_P (Cuts,
                          SpiFlashFailureTest,
                          ::testing::Values (Injected{"EraseFails",
                                                      {Op::Erase, 1, Cut::Fail, 0},
                                                      // The program onto unerased bytes is refused too.
                                                      {0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08},
                                                      {EFI_DEVICE_ERROR, EFI_DEVICE_ERROR, EFI_DEVICE_ERROR}},
                                             Injected{"EraseStopsAfterFourBytes",
                                                      {Op::Erase, 1, Cut::Partial, 4},
                                                      {0xFF, 0xFF, 0xFF, 0xFF, 0x04, 0x05, 0x06, 0x07, 0x08},
                                                      {EFI_DEVICE_ERROR, EFI_DEVICE_ERROR, EFI_DEVICE_ERROR}},
                                             Injected{"FirstProgramStopsAfterThreeBytes",
                                                      {Op::Program, 1, Cut::Partial, 3},
                                                      {0x10, 0x20, 0x30, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x22},
                                                      {EFI_SUCCESS, EFI_DEVICE_ERROR, EFI_SUCCESS}},
                                             Injected{"SecondProgramFails",
                                                      {Op::Program, 2, Cut::Fail, 0},
                                                      {0x10, 0x20, 0x30, 0x40, 0x50, 0x60, 0x70, 0x80, 0xFF},
                                                      {EFI_SUCCESS, EFI_SUCCESS, EFI_DEVICE_ERROR}},
                                             Injected{"ThirdOperationOfAnyKindFails",
                                                      {std::nullopt, 3, Cut::Fail, 0},
                                                      {0x10, 0x20, 0x30, 0x40, 0x50, 0x60, 0x70, 0x80, 0xFF},
                                                      {EFI_SUCCESS, EFI_SUCCESS, EFI_DEVICE_ERROR}}),
                          [] (const auto &Info) { return std::string (Info.param.Name); });

TEST (SpiFlashFileTest, EveryProgramIsOnDiskAtOnceAndSurvivesReattach) {
  char Template[] = "/tmp/vorn-flash-XXXXXX";
  ASSERT_NE (mkdtemp (Template), nullptr);
  const std::filesystem::path Path   = std::filesystem::path (Template) / "flash.bin";
  auto                        OnDisk = [&Path] (UINT64 Offset, size_t Length) {
    std::ifstream File (Path, std::ios::binary);
    File.seekg (static_cast<std::streamoff> (Offset));
    std::vector<UINT8> Bytes (Length);
    File.read (reinterpret_cast<char *> (Bytes.data ()), static_cast<std::streamsize> (Length));
    return Bytes;
  };

  Host::Flash::AttachFile (Path, FlashImage::BuildDefault ());
  Host::PowerOn ();
  VORN_SMM_SPI_PROTOCOL *Spi = nullptr;
  ASSERT_EQ (Host::Smst ()->SmmLocateProtocol (&gVornSmmSpiProtocolGuid, nullptr, (VOID **)&Spi), EFI_SUCCESS);

  UINT8 Bytes[] = {'E', 'R', 'S', 'T'};
  ASSERT_EQ (Spi->Write (Spi, kBase + 0x14005C, sizeof (Bytes), Bytes), EFI_SUCCESS);
  EXPECT_EQ (OnDisk (0x14005C, 5), (std::vector<UINT8>{'E', 'R', 'S', 'T', 0xFF}));

  // An existing file is used as it is, whatever image is offered.
  Host::Flash::Detach ();
  Host::Flash::AttachFile (Path, std::vector<UINT8> (0x1000, 0x00));
  EXPECT_EQ (Host::Flash::Size (), Host::Flash::kDefaultSize);
  EXPECT_EQ (Host::Flash::Peek (kBase + 0x14005C, 4), (std::vector<UINT8>{'E', 'R', 'S', 'T'}));
  Host::Flash::Detach ();
  std::filesystem::remove_all (Template);
}

//
// Volume block protocols over the default image.
//
class SpiFlashVolumeTest : public MachineTest {
protected:
  void SetUp () override {
    Host::Flash::AttachMemory (FlashImage::BuildDefault ());
    MachineTest::SetUp ();
  }

  static std::vector<EFI_SMM_FIRMWARE_VOLUME_BLOCK_PROTOCOL *> Instances () {
    UINTN                                                 Size = 0;
    std::vector<EFI_SMM_FIRMWARE_VOLUME_BLOCK_PROTOCOL *> Found;

    EXPECT_EQ (
        Host::Smst ()->SmmLocateHandle (ByProtocol, &gEfiSmmFirmwareVolumeBlockProtocolGuid, nullptr, &Size, nullptr),
        EFI_BUFFER_TOO_SMALL);
    std::vector<EFI_HANDLE> Handles (Size / sizeof (EFI_HANDLE));
    EXPECT_EQ (Host::Smst ()->SmmLocateHandle (ByProtocol, &gEfiSmmFirmwareVolumeBlockProtocolGuid, nullptr, &Size,
                                               Handles.data ()),
               EFI_SUCCESS);
    for (EFI_HANDLE Handle : Handles) {
      VOID *Interface = nullptr;
      EXPECT_EQ (Host::Smst ()->SmmHandleProtocol (Handle, &gEfiSmmFirmwareVolumeBlockProtocolGuid, &Interface),
                 EFI_SUCCESS);
      Found.push_back (static_cast<EFI_SMM_FIRMWARE_VOLUME_BLOCK_PROTOCOL *> (Interface));
    }

    return Found;
  }
};

TEST_F (SpiFlashVolumeTest, OneInstancePerVolumeInAddressOrder) {
  using Host::Flash::Volume;
  const std::vector<Volume> Expected = {
      {0xFF000000, 0x1000, 0x100}, {0xFF100000, 0x1000, 0x40},  {0xFF140000, 0x1000, 0x20},
      {0xFF160000, 0x1000, 0xD20}, {0xFFF00000, 0x1000, 0x100},
  };
  std::vector<Volume> Reported;

  for (auto *Fvb : Instances ()) {
    EFI_PHYSICAL_ADDRESS Address   = 0;
    UINTN                BlockSize = 0;
    UINTN                Blocks    = 0;
    EXPECT_EQ (Fvb->GetPhysicalAddress (Fvb, &Address), EFI_SUCCESS);
    EXPECT_EQ (Fvb->GetBlockSize (Fvb, 0, &BlockSize, &Blocks), EFI_SUCCESS);
    Reported.push_back ({Address, static_cast<UINT32> (BlockSize), static_cast<UINT32> (Blocks)});
  }

  EXPECT_EQ (Host::Flash::Volumes (), Expected);
  EXPECT_EQ (Reported, Expected);
}

TEST_F (SpiFlashVolumeTest, HeadersOnlyOffSectorBoundariesAreNotVolumes) {
  // A volume header copied half a sector into the erased gap is ignored.
  const auto Header = Host::Flash::Peek (0xFF140000, 0x48);
  Host::Flash::Poke (0xFFE80800, Header);
  Host::PowerOn ();
  EXPECT_EQ (Host::Flash::Volumes ().size (), 5u);

  Host::Flash::Poke (0xFFE80000, Header);
  Host::PowerOn ();
  EXPECT_EQ (Host::Flash::Volumes ().size (), 6u);
  EXPECT_EQ (Host::Flash::Volumes ()[4], (Host::Flash::Volume{0xFFE80000, 0x1000, 0x20}));
}

} // namespace

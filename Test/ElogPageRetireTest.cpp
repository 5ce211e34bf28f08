/** @file
  VMware page-retire requests: the version 0.73 bytes in the page-retire
  block, BlockStatus, and the absence of any limit.
**/
#include <cstring>

#include <GhesFixture.h>
#include "StatusWord.h"

namespace {

const std::string PR = "VornApeiLoggingElogRecordMemoryPageRetire: ";

template <typename T> void Put (std::vector<UINT8> &Buffer, size_t Offset, T Value) {
  std::memcpy (Buffer.data () + Offset, &Value, sizeof (Value));
}

class PageRetire : public GhesFixture {
protected:
  // FRU text with bytes after its terminator: all 20 are copied
  char Fru[24] = "DIMM A1\0XYZWVUTSRQPONM";

  static EFI_STATUS Retire (char *FruText, UINT64 Address, UINT64 Count) {
    return Protocol ()->ElogRecordMemoryPageRetire (Protocol (), (VOID *)0x1234, FruText, Address, Count);
  }

  //
  // The 64-byte entry and 56-byte record one request leaves.
  //
  std::vector<UINT8> Expected (UINT8 ValidationBits, UINT64 Begin, UINT64 End, UINT64 Count) const {
    std::vector<UINT8> Out (120, 0);
    const auto         Type = Cper::VmwarePageRetireSectionType ();
    std::copy (Type.begin (), Type.end (), Out.begin ());
    Put<UINT32> (Out, 16, 2);
    Put<UINT16> (Out, 20, 0x0201);
    Out[22] = ValidationBits;
    Out[23] = 1;
    Put<UINT32> (Out, 24, 56);
    std::memcpy (Out.data () + 44, Fru, 20);
    Put<UINT16> (Out, 64, 1);
    Out[66] = 1;
    Out[67] = 1;
    Put<UINT64> (Out, 72, Begin);
    Put<UINT64> (Out, 80, 0x1000);
    Put<UINT64> (Out, 88, End);
    Put<UINT64> (Out, 96, Count);
    return Out;
  }
};

TEST_F (PageRetire, FirstRequestOnClearedBlock) {
  const UINT64 G = (UINT64)(UINTN)VmwareBlock ();
  ASSERT_EQ (Retire (Fru, 0x12345678, 7), EFI_SUCCESS);

  EXPECT_EQ (StatusWord (VmwareBlock ()), 0x12u);
  EXPECT_EQ (VmwareBlock ()->DataLength, 120u);
  EXPECT_EQ (VmwareBlock ()->ErrorSeverity, 2u);
  EXPECT_EQ (VmwareBlock ()->RawDataOffset, 0x2000u);
  EXPECT_EQ (Bytes ((UINT8 *)VmwareBlock () + 20, 120), Expected (2, 0x12345000, 0x12345FFF, 7));
  EXPECT_EQ (Bytes ((UINT8 *)VmwareBlock () + 140, 120), std::vector<UINT8> (120, 0));

  EXPECT_EQ (
      Lines (),
      (std::vector<std::string>{
          L (PR + "Find GHESS (SCI notification - VMWare memory page retire) Error Status Data Block"),
          L (PR +
             Fmt ("GHESS (SCI notification - VMWare memory page retire) Error Status Data Block @ 0x%016llX size 4096",
                  (unsigned long long)G)),
          L (PR + "GENERIC_ERROR_STATUS Length 0x0000000000000014 [GESB/GEDE/GED]DataLength 0x0000000000000000 "
                  "RawDataLength 0x0000000000000000 RawDataOffset 0x0000000000002000"),
          L (PR + Fmt ("pGede 0x%016llX length 64", (unsigned long long)G + 20)),
          L (PR + "Populating WHEA data structures"),
          L (PR + Fmt ("Updating Generic Error Status Block 20 bytes @ 0x%016llX", (unsigned long long)G)),
          L (PR + Fmt ("Updating Generic Error Data Entry 64 bytes @ 0x%016llX", (unsigned long long)G + 20))}));
}

TEST_F (PageRetire, SecondRequestAppendsAt140) {
  ASSERT_EQ (Retire (Fru, 0x12345678, 7), EFI_SUCCESS);
  ASSERT_EQ (Retire (Fru, 0xABCDE000, 0xFFFFFFFFFFFFFFFFULL), EFI_SUCCESS);
  EXPECT_EQ (StatusWord (VmwareBlock ()), 0x2Au);
  EXPECT_EQ (VmwareBlock ()->DataLength, 240u);
  EXPECT_EQ (Bytes ((UINT8 *)VmwareBlock () + 140, 120), Expected (2, 0xABCDE000, 0xABCDEFFF, 0xFFFFFFFFFFFFFFFFULL));
}

TEST_F (PageRetire, FruTextValidOnlyWhenItStartsWithACharacter) {
  Fru[0] = 0;
  ASSERT_EQ (Retire (Fru, 0x5000, 1), EFI_SUCCESS);
  EXPECT_EQ (Bytes ((UINT8 *)VmwareBlock () + 20, 120), Expected (0, 0x5000, 0x5FFF, 1));
}

TEST_F (PageRetire, OnlyTheFirstFruIdByteWritten) {
  std::memset ((UINT8 *)VmwareBlock () + 20 + 28, 0xEE, 16);
  ASSERT_EQ (Retire (Fru, 0x5000, 1), EFI_SUCCESS);
  std::vector<UINT8> FruId (16, 0xEE);
  FruId[0] = 0;
  EXPECT_EQ (Bytes ((UINT8 *)VmwareBlock () + 20 + 28, 16), FruId);
}

TEST_F (PageRetire, NoLimitAndCountWraps) {
  SetStatusWord (VmwareBlock (), (1023u << 4) | 0x2 | 0x40000000);
  VmwareBlock ()->DataLength    = 8100;
  VmwareBlock ()->RawDataLength = 0x30;
  ASSERT_EQ (Retire (Fru, 0x5000, 1), EFI_SUCCESS);
  EXPECT_EQ (StatusWord (VmwareBlock ()), 0x4000000Au);
  EXPECT_EQ (VmwareBlock ()->DataLength, 8220u);
  EXPECT_EQ (VmwareBlock ()->RawDataLength, 0u);
}

TEST_F (PageRetire, RefusalsLeaveTheBlockAlone) {
  GENERIC_ERROR_STATUS *Block  = VmwareBlock ();
  const auto            Before = Bytes (Block, kVmwareBlockLength);
  EXPECT_EQ (Retire (NULL, 0x5000, 1), EFI_INVALID_PARAMETER);
  mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlkSciVmwareMemPageRetire = 0;
  EXPECT_EQ (Retire (Fru, 0x5000, 1), EFI_NOT_FOUND);
  EXPECT_EQ (Bytes (Block, kVmwareBlockLength), Before);
  EXPECT_EQ (
      Lines (),
      (std::vector<std::string>{
          L (PR + "ERROR pFruText is null on entry, aborting..."),
          L (PR + "Find GHESS (SCI notification - VMWare memory page retire) Error Status Data Block"),
          L (PR +
             "ERROR finding GHESS (SCI notification - VMWare memory page retire) Error Status Data Block, aborting...")}));
}

} // namespace

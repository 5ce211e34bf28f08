/** @file
  What a status block holds after a section is appended to it (the bytes,
  BlockStatus, the limits, the accepted section types, FRU fields, the
  unit-test severity switch) and after a VMware page-retire request.
**/
#include <cstring>

#include <GhesFixture.h>
#include <ParamName.h>
#include <StatusWord.h>

using Cper::RecordSpec;
using Cper::SectionKind;

namespace {

class PopulateGhess : public GhesFixture {
protected:
  static EFI_STATUS Populate (CPER_RECORD *Record, UINT64 Length = kSciBlockLength) {
    return VornApeiLoggingElogPopulateGhess (Protocol (), Record, SciBlock (), Length);
  }

  static GENERIC_ERROR_DATA_ENTRY *Entry () {
    return reinterpret_cast<GENERIC_ERROR_DATA_ENTRY *> (SciBlock () + 1);
  }
};

TEST_F (PopulateGhess, RecoverableMemorySectionFillsAClearedBlock) {
  // The body is taken from byte 200 whatever SectionOffset says; the flags from their low byte.
  CPER_RECORD *R = Record ({.Kind            = SectionKind::Memory,
                            .HeaderSeverity  = 0,
                            .SectionSeverity = 0,
                            .SectionFlags    = 0x105,
                            .SectionOffset   = 300});
  reinterpret_cast<UINT8 *> (R)[200 + 79] = 0xA5; // a last body byte that a short copy would lose
  ASSERT_EQ (Populate (R), EFI_SUCCESS);

  std::vector<UINT8> Expected (20 + 72 + 80, 0);
  const UINT32       Gesb[] = {0x13, 0x2000, 0, 152, 0};
  std::memcpy (Expected.data (), Gesb, sizeof (Gesb));
  const auto Type = Cper::SectionTypeBytes (SectionKind::Memory);
  std::copy (Type.begin (), Type.end (), Expected.begin () + 20);
  Expected[41] = 0x03; // revision 0x0300 after severity 0 (Recoverable)
  Expected[43] = 0x05; // flags
  Expected[44] = 80;   // data length
  std::memcpy (Expected.data () + 84, reinterpret_cast<UINT8 *> (R) + 24, 8);
  std::memcpy (Expected.data () + 92, reinterpret_cast<UINT8 *> (R) + 200, 80);
  EXPECT_EQ (Bytes (SciBlock (), Expected.size ()), Expected);
}

//
// BlockStatus: the section's severity sets the valid bits, a second error of
// a kind sets its Multiple bit, the count goes up in bits 4..13 and nothing
// else changes.
//
TEST_F (PopulateGhess, BlockStatusFollowsTheSectionSeverity) {
  const struct {
    UINT32 Before, Severity, After;
  } Cases[] = {{0x000, 0, 0x013}, {0x000, 1, 0x011}, {0x000, 2, 0x012}, {0x000, 3, 0x010}, {0x000, 7, 0x010},
               {0x011, 1, 0x025}, {0x012, 2, 0x02A}, {0x013, 0, 0x02F}, {0x012, 1, 0x023}, {0x40000040, 1, 0x40000051}};
  for (const auto &Case : Cases) {
    std::memset (SciBlock (), 0, kSciBlockLength);
    SetStatusWord (SciBlock (), Case.Before);
    ASSERT_EQ (Populate (Record ({.HeaderSeverity = 2, .SectionSeverity = Case.Severity})), EFI_SUCCESS);
    EXPECT_EQ (StatusWord (SciBlock ()), Case.After) << Case.Before << " " << Case.Severity;
    EXPECT_EQ (SciBlock ()->ErrorSeverity, 2u);         // from the header
    EXPECT_EQ (Entry ()->ErrorSeverity, Case.Severity); // from the descriptor
  }
}

//
// Limits: the region is the fixed 8192 bytes whatever length the block has,
// and five entries; a refused record leaves the block as it was.
//
TEST_F (PopulateGhess, RegionOf8192BytesAndFiveEntries) {
  const struct {
    UINT32     BodyLength;
    UINT64     GesbLength;
    EFI_STATUS Status;
  } Cases[] = {{8100, 0x2000, EFI_SUCCESS},
               {8101, 0x2000, EFI_BUFFER_TOO_SMALL},
               {8100, 1, EFI_SUCCESS},
               {8101, 0x100000, EFI_BUFFER_TOO_SMALL}};
  for (const auto &Case : Cases) {
    std::memset (SciBlock (), 0, kSciBlockLength);
    const auto Before = Bytes (SciBlock (), kSciBlockLength);
    EXPECT_EQ (Populate (Record ({.BodyLength = Case.BodyLength}), Case.GesbLength), Case.Status);
    if (Case.Status != EFI_SUCCESS) {
      EXPECT_EQ (Bytes (SciBlock (), kSciBlockLength), Before);
    }
  }

  std::memset (SciBlock (), 0, kSciBlockLength);
  for (int Index = 0; Index < 5; Index++) {
    ASSERT_EQ (Populate (Record ({})), EFI_SUCCESS);
  }
  const auto Full = Bytes (SciBlock (), kSciBlockLength);
  EXPECT_EQ (Populate (Record ({})), EFI_BUFFER_TOO_SMALL);
  EXPECT_EQ (Bytes (SciBlock (), kSciBlockLength), Full);
  EXPECT_EQ (SciBlock ()->DataLength, 5u * 152);
}

//
// Accepted section types, copied into the entry: the standard ones by GUID,
// CXL component events by their identifier bytes. Others are refused.
//
struct TypeCase {
  const char    *Name;
  SectionKind    Kind;
  Cper::CxlEvent Event;
};

class PopulateGhessType : public PopulateGhess, public ::testing::WithParamInterface<TypeCase> {};

TEST_P (PopulateGhessType, IsRecognisedAndCopiedIntoTheEntry) {
  ASSERT_EQ (Populate (Record ({.Kind = GetParam ().Kind, .Event = GetParam ().Event})), EFI_SUCCESS);
  const auto Type = Cper::SectionTypeBytes (GetParam ().Kind, GetParam ().Event);
  EXPECT_EQ (Bytes (Entry ()->SectionType, 16), std::vector<UINT8> (Type.begin (), Type.end ()));
}

using Cper::CxlEvent;
constexpr auto kCxl = SectionKind::CxlComponent;
constexpr auto kGm  = CxlEvent::GeneralMedia;

INSTANTIATE_TEST_SUITE_P (Types,
                          PopulateGhessType,
                          ::testing::Values (TypeCase{"ProcessorGeneric", SectionKind::ProcessorGeneric, kGm},
                                             TypeCase{"ProcessorSpecific", SectionKind::ProcessorSpecific, kGm},
                                             TypeCase{"Pcie", SectionKind::Pcie, kGm},
                                             TypeCase{"PciComponent", SectionKind::PciComponent, kGm},
                                             TypeCase{"CxlProtocol", SectionKind::CxlProtocol, kGm},
                                             TypeCase{"GeneralMedia", kCxl, kGm},
                                             TypeCase{"Dram", kCxl, CxlEvent::Dram},
                                             TypeCase{"MemoryModule", kCxl, CxlEvent::MemoryModule},
                                             TypeCase{"MemorySparing", kCxl, CxlEvent::MemorySparing},
                                             TypeCase{"PhysicalSwitch", kCxl, CxlEvent::PhysicalSwitch},
                                             TypeCase{"VirtualSwitch", kCxl, CxlEvent::VirtualSwitch},
                                             TypeCase{"MldPort", kCxl, CxlEvent::MldPort},
                                             TypeCase{"DynamicCapacity", kCxl, CxlEvent::DynamicCapacity}),
                          CaseName ());

TEST_F (PopulateGhess, OtherSectionTypesAreRefusedAndTheBlockUntouched) {
  const Cper::Bytes16 Refused[] = {
      Cper::VmwarePageRetireSectionType (),
      // The CXL identifier laid out as an EFI GUID prints the same text, but is not it.
      Cper::CxlEventIdentifierAsEfiGuid (CxlEvent::GeneralMedia),
      {0x16, 0x3D, 0x9E, 0xE1, 0x11, 0xBC, 0xE4, 0x11, 0x9C, 0xAA, 0xC2, 0x05, 0x1D, 0x5D, 0x46, 0xB0}};
  const auto Before = Bytes (SciBlock (), kSciBlockLength);
  for (const auto &Type : Refused) {
    EXPECT_EQ (Populate (Record ({.SectionType = Type})), EFI_UNSUPPORTED);
  }
  EXPECT_EQ (Bytes (SciBlock (), kSciBlockLength), Before);
}

TEST_F (PopulateGhess, NullArgumentsAndZeroLengthAreRefusedInOrder) {
  CPER_RECORD *R = Record ({});
  EXPECT_EQ (VornApeiLoggingElogPopulateGhess (NULL, R, SciBlock (), 1), EFI_INVALID_PARAMETER);
  EXPECT_EQ (VornApeiLoggingElogPopulateGhess (Protocol (), NULL, SciBlock (), 1), EFI_INVALID_PARAMETER);
  EXPECT_EQ (VornApeiLoggingElogPopulateGhess (Protocol (), R, NULL, 1), EFI_INVALID_PARAMETER);
  EXPECT_EQ (VornApeiLoggingElogPopulateGhess (Protocol (), R, SciBlock (), 0), EFI_INVALID_PARAMETER);
  EXPECT_EQ (Lines ().back (), L ("VornApeiLoggingElogPopulateGhess: ERROR GesbLength == 0, aborting..."));
  EXPECT_EQ (SciBlock ()->DataLength, 0u);
}

//
// FRU fields: valid bits are ORed in, fields the record does not vouch for
// keep what the block held.
//
TEST_F (PopulateGhess, OnlyValidFruFieldsAreCopied) {
  for (int Valid = 0; Valid < 4; Valid++) {
    std::memset (SciBlock (), 0, kSciBlockLength);
    std::memset (Entry (), 0x50, 72);
    RecordSpec Spec;
    if ((Valid & 1) != 0) {
      Spec.FruId = Cper::Bytes16{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    }
    if ((Valid & 2) != 0) {
      Spec.FruText = "DIMM P0 CH A SLOT 1";
    }
    ASSERT_EQ (Populate (Record (Spec)), EFI_SUCCESS);
    EXPECT_EQ (Entry ()->ValidationBits, 0x50 | Valid);
    EXPECT_EQ (Bytes (Entry ()->FruId, 16),
               (Valid & 1) != 0 ? Bytes (Spec.FruId->data (), 16) : std::vector<UINT8> (16, 0x50));
    EXPECT_EQ (Bytes (Entry ()->FruText, 20),
               (Valid & 2) != 0 ? Bytes ("DIMM P0 CH A SLOT 1", 20) : std::vector<UINT8> (20, 0x50));
  }
}

//
// The unit-test switch raises Recoverable to Fatal only in diagnostic mode.
//
TEST_F (PopulateGhess, UnitTestSwitchRaisesRecoverableToFatal) {
  const struct {
    BOOLEAN Switch;
    UINT32  Mode, HeaderSeverity, GesbSeverity, GedeSeverity;
  } Cases[] = {{TRUE, 1, 0, 1, 1}, {FALSE, 1, 0, 0, 0}, {TRUE, 0, 0, 0, 0}, {TRUE, 1, 2, 2, 1}};
  for (const auto &Case : Cases) {
    std::memset (SciBlock (), 0, kSciBlockLength);
    mPrivateDataVornApeiLogging.ErstUnitTestSeverityOverride = Case.Switch;
    mPrivateDataVornApeiLogging.RasErrorLoggingMode          = Case.Mode;
    ASSERT_EQ (Populate (Record ({.HeaderSeverity = Case.HeaderSeverity, .SectionSeverity = 0})), EFI_SUCCESS);
    EXPECT_EQ (SciBlock ()->ErrorSeverity, Case.GesbSeverity);
    EXPECT_EQ (Entry ()->ErrorSeverity, Case.GedeSeverity);
    EXPECT_EQ (StatusWord (SciBlock ()), 0x13u);
  }
}

//
// VMware page-retire requests: a 64-byte entry and a 56-byte record per
// request in the page-retire block, with no limit at all.
//
class PageRetire : public GhesFixture {
protected:
  // FRU text with bytes after its terminator: all 20 are copied.
  char Fru[24] = "DIMM A1\0XYZWVUTSRQPONM";

  static EFI_STATUS Retire (char *FruText, UINT64 Address, UINT64 Count) {
    return Protocol ()->ElogRecordMemoryPageRetire (Protocol (), reinterpret_cast<VOID *> (0x1234), FruText, Address,
                                                    Count);
  }

  template <typename T> static void Put (std::vector<UINT8> &Buffer, size_t Offset, T Value) {
    std::memcpy (Buffer.data () + Offset, &Value, sizeof (Value));
  }

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

  static UINT8 *At (UINT32 Offset) {
    return reinterpret_cast<UINT8 *> (VmwareBlock ()) + Offset;
  }
};

TEST_F (PageRetire, RequestsAppendEntriesForTheWholePage) {
  std::memset (At (20 + 28), 0xEE, 16); // only the first FRU id byte is written
  ASSERT_EQ (Retire (Fru, 0x12345678, 7), EFI_SUCCESS);
  EXPECT_EQ (StatusWord (VmwareBlock ()), 0x12u);
  EXPECT_EQ (VmwareBlock ()->DataLength, 120u);
  EXPECT_EQ (VmwareBlock ()->ErrorSeverity, 2u);
  auto First = Expected (2, 0x12345000, 0x12345FFF, 7);
  std::fill (First.begin () + 29, First.begin () + 44, 0xEE);
  EXPECT_EQ (Bytes (At (20), 120), First);

  Fru[0] = 0; // an empty FRU text is not vouched for
  ASSERT_EQ (Retire (Fru, 0xABCDE000, MAX_UINT64), EFI_SUCCESS);
  EXPECT_EQ (StatusWord (VmwareBlock ()), 0x2Au);
  EXPECT_EQ (VmwareBlock ()->DataLength, 240u);
  EXPECT_EQ (Bytes (At (140), 120), Expected (0, 0xABCDE000, 0xABCDEFFF, MAX_UINT64));
}

TEST_F (PageRetire, NoLimitTheCountWrapsAndRefusalsLeaveTheBlockAlone) {
  SetStatusWord (VmwareBlock (), (1023u << 4) | 0x2 | 0x40000000);
  VmwareBlock ()->DataLength    = 8100;
  VmwareBlock ()->RawDataLength = 0x30;
  ASSERT_EQ (Retire (Fru, 0x5000, 1), EFI_SUCCESS);
  EXPECT_EQ (StatusWord (VmwareBlock ()), 0x4000000Au);
  EXPECT_EQ (VmwareBlock ()->DataLength, 8220u);
  EXPECT_EQ (VmwareBlock ()->RawDataLength, 0u);

  GENERIC_ERROR_STATUS *Block  = VmwareBlock ();
  const auto            Before = Bytes (Block, kVmwareBlockLength);
  EXPECT_EQ (Retire (NULL, 0x5000, 1), EFI_INVALID_PARAMETER);
  mPrivateDataVornApeiLogging.pApeiHestGhessErrStsDataBlkSciVmwareMemPageRetire = 0;
  EXPECT_EQ (Retire (Fru, 0x5000, 1), EFI_NOT_FOUND);
  EXPECT_EQ (Bytes (Block, kVmwareBlockLength), Before);
}

} // namespace

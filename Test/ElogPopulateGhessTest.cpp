/** @file
  Appending CPER sections to a generic error status block: the bytes left in
  the block, the limits, BlockStatus and the log.
**/
#include <algorithm>
#include <cstring>

#include <GhesFixture.h>
#include "ParamName.h"
#include "TestFormat.h"
#include "StatusWord.h"

using Cper::RecordSpec;
using Cper::SectionKind;

namespace {

const std::string P = "VornApeiLoggingElogPopulateGhess: ";

class PopulateGhess : public GhesFixture {
protected:
  static EFI_STATUS Populate (CPER_RECORD *Record, UINT64 Length = kSciBlockLength) {
    return VornApeiLoggingElogPopulateGhess (Protocol (), Record, SciBlock (), Length);
  }

  static bool Logged (const std::string &Text) {
    const auto All = Lines ();
    return std::find (All.begin (), All.end (), L (Text)) != All.end ();
  }
};

TEST_F (PopulateGhess, RecoverableMemorySectionFillsClearedBlock) {
  // body taken from byte 200 whatever SectionOffset says; flags from the low byte
  CPER_RECORD *R = Record ({.Kind            = SectionKind::Memory,
                            .HeaderSeverity  = 0,
                            .SectionSeverity = 0,
                            .SectionFlags    = 0x105,
                            .SectionOffset   = 300});
  ASSERT_EQ (Populate (R), EFI_SUCCESS);

  // GESB, GEDE and the body copied from byte 200
  std::vector<UINT8> Expected (20 + 72 + 80, 0);
  const UINT32       Gesb[] = {0x13, 0x2000, 0, 152, 0};
  std::memcpy (Expected.data (), Gesb, sizeof (Gesb));
  const auto Type = Cper::SectionTypeBytes (SectionKind::Memory);
  std::copy (Type.begin (), Type.end (), Expected.begin () + 20);
  Expected[41] = 0x03; // revision 0x0300 after severity 0 (Recoverable)
  Expected[43] = 0x05; // flags
  Expected[44] = 80;   // data length
  std::memcpy (Expected.data () + 84, (UINT8 *)R + 24, 8);
  std::memcpy (Expected.data () + 92, (UINT8 *)R + 200, 80);
  EXPECT_EQ (Bytes (SciBlock (), Expected.size ()), Expected);
}

//
// BlockStatus: the section's severity sets the valid bits, a second error of
// a kind sets its Multiple bit, and the count goes up in bits 4..13.
//
struct BlockStatusCase {
  UINT32 Before;
  UINT32 Severity;
  UINT32 After;
  bool   MultipleUncorrectable;
  bool   MultipleCorrectable;
};

void PrintTo (const BlockStatusCase &Case, std::ostream *Out) {
  *Out << Format ("Status%03X_Severity%u", Case.Before, Case.Severity);
}

class PopulateGhessBlockStatus : public PopulateGhess, public ::testing::WithParamInterface<BlockStatusCase> {};

TEST_P (PopulateGhessBlockStatus, FollowsSectionSeverity) {
  const auto &C = GetParam ();
  SetStatusWord (SciBlock (), C.Before);
  ASSERT_EQ (Populate (Record ({.HeaderSeverity = 2, .SectionSeverity = C.Severity})), EFI_SUCCESS);
  EXPECT_EQ (StatusWord (SciBlock ()), C.After);
  EXPECT_EQ (SciBlock ()->ErrorSeverity, 2u) << "from the header";
  EXPECT_EQ (((GENERIC_ERROR_DATA_ENTRY *)(SciBlock () + 1))->ErrorSeverity, C.Severity) << "from the descriptor";
  EXPECT_EQ (
      Logged (P + "GESB BlockStatus.UncorrectableErrorValid bit set on entry, setting MultipleUncorrectableErrors bit"),
      C.MultipleUncorrectable);
  EXPECT_EQ (
      Logged (P + "GESB BlockStatus.CorrectableErrorValid bit set on entry, setting MultipleCorrectableErrors bit"),
      C.MultipleCorrectable);
}

INSTANTIATE_TEST_SUITE_P (Severities,
                          PopulateGhessBlockStatus,
                          ::testing::Values (BlockStatusCase{0x000, 0, 0x013, false, false},
                                             BlockStatusCase{0x000, 1, 0x011, false, false},
                                             BlockStatusCase{0x000, 2, 0x012, false, false},
                                             BlockStatusCase{0x000, 3, 0x010, false, false},
                                             BlockStatusCase{0x000, 7, 0x010, false, false},
                                             BlockStatusCase{0x011, 1, 0x025, true, false},
                                             BlockStatusCase{0x012, 2, 0x02A, false, true},
                                             BlockStatusCase{0x013, 0, 0x02F, true, true},
                                             BlockStatusCase{0x012, 1, 0x023, false, false},
                                             BlockStatusCase{0x40000040, 1, 0x40000051, false, false}),
                          ::testing::PrintToStringParamName ());

//
// The region limit is the fixed 8192 bytes, whatever length the block has.
//
struct LimitCase {
  UINT32     BodyLength;
  UINT64     GesbLength;
  EFI_STATUS Status;
};

void PrintTo (const LimitCase &Case, std::ostream *Out) {
  *Out << Format ("Body%u_Block%llX", Case.BodyLength, static_cast<unsigned long long> (Case.GesbLength));
}

class PopulateGhessLimit : public PopulateGhess, public ::testing::WithParamInterface<LimitCase> {};

TEST_P (PopulateGhessLimit, RegionOf8192Bytes) {
  const auto &C      = GetParam ();
  const auto  Before = Bytes (SciBlock (), kSciBlockLength);
  ASSERT_EQ (Populate (Record ({.BodyLength = C.BodyLength}), C.GesbLength), C.Status);
  if (C.Status == EFI_SUCCESS) {
    EXPECT_EQ (SciBlock ()->DataLength, 72 + C.BodyLength);
  } else {
    EXPECT_EQ (Bytes (SciBlock (), kSciBlockLength), Before);
    EXPECT_EQ (Lines ().back (), L (P + Fmt ("ERROR new GESB/GEDE/GED Region Length %u > Max Length 8192, aborting...",
                                             92 + C.BodyLength)));
  }
}

INSTANTIATE_TEST_SUITE_P (Lengths,
                          PopulateGhessLimit,
                          ::testing::Values (LimitCase{8100, 0x2000, EFI_SUCCESS},
                                             LimitCase{8101, 0x2000, EFI_BUFFER_TOO_SMALL},
                                             LimitCase{8100, 1, EFI_SUCCESS},
                                             LimitCase{8101, 0x100000, EFI_BUFFER_TOO_SMALL}),
                          ::testing::PrintToStringParamName ());

TEST_F (PopulateGhess, SixthSectionRefusedWithBlockUnchanged) {
  for (int i = 0; i < 5; i++) {
    ASSERT_EQ (Populate (Record ({})), EFI_SUCCESS);
  }
  const auto Before = Bytes (SciBlock (), kSciBlockLength);
  ClearLog ();
  EXPECT_EQ (Populate (Record ({})), EFI_BUFFER_TOO_SMALL);
  EXPECT_EQ (Bytes (SciBlock (), kSciBlockLength), Before);
  EXPECT_EQ (SciBlock ()->DataLength, 5u * 152);
  EXPECT_EQ (Lines ().back (), L (P + "ERROR Already reached max ErrorDataEntryCount limit 5, aborting..."));
}

TEST_F (PopulateGhess, LengthCheckedBeforeEntryCount) {
  SetStatusWord (SciBlock (), 5 << 4);
  EXPECT_EQ (Populate (Record ({.BodyLength = 8101})), EFI_BUFFER_TOO_SMALL);
  EXPECT_EQ (Lines ().back (), L (P + "ERROR new GESB/GEDE/GED Region Length 8193 > Max Length 8192, aborting..."));
}

//
// Accepted section types and the line naming each: standard types by GUID,
// CXL component events by their raw identifier bytes.
//
struct TypeCase {
  SectionKind    Kind;
  Cper::CxlEvent Event;
  std::string    Text;
  std::string    Name;
};

void PrintTo (const TypeCase &Case, std::ostream *Out) {
  *Out << Case.Name;
}

class PopulateGhessType : public PopulateGhess, public ::testing::WithParamInterface<TypeCase> {};

TEST_P (PopulateGhessType, RecognisedAndCopiedIntoEntry) {
  const auto &C = GetParam ();
  ASSERT_EQ (Populate (Record ({.Kind = C.Kind, .Event = C.Event})), EFI_SUCCESS);
  const std::string Detected = C.Kind == SectionKind::CxlComponent
                                   ? C.Name + " Event Record (CXL Component UUID " + C.Text + ")"
                                   : C.Text + " (" + C.Name + ") detected";
  EXPECT_TRUE (Logged (P + "UEFI CPER Section Type " + Detected)) << Detected;
  const auto Type = Cper::SectionTypeBytes (C.Kind, C.Event);
  EXPECT_EQ (Bytes ((UINT8 *)SciBlock () + 20, 16), std::vector<UINT8> (Type.begin (), Type.end ()));
}

using Cper::CxlEvent;
const auto kCxl = SectionKind::CxlComponent;
const auto kGm  = CxlEvent::GeneralMedia;

INSTANTIATE_TEST_SUITE_P (
    Types,
    PopulateGhessType,
    ::testing::Values (
        TypeCase{SectionKind::ProcessorGeneric, kGm, "9876CCAD-47B4-4BDB-B65E-16F193C4F3DB", "Processor Generic"},
        TypeCase{SectionKind::ProcessorSpecific, kGm, "DC3EA0B0-A144-4797-B95B-53FA242B6E1D", "Processor Specific"},
        TypeCase{SectionKind::Pcie, kGm, "D995E954-BBC1-430F-AD91-B44DCB3C6F35", "PCIe"},
        TypeCase{SectionKind::PciComponent, kGm, "EB5E4685-CA66-4769-B6A2-26068B001326", "PCI Dev/Component"},
        TypeCase{SectionKind::CxlProtocol, kGm, "80B9EFB4-52B5-4DE3-A777-68784B771048", "CXL Protocol"},
        TypeCase{kCxl, kGm, "FBCD0A77-C260-417F-85A9-088B1621EBA6", "General Media"},
        TypeCase{kCxl, CxlEvent::Dram, "601DCBB3-9C06-4EAB-B8AF-4E9BFB5C9624", "DRAM"},
        TypeCase{kCxl, CxlEvent::MemoryModule, "FE927475-DD59-4339-A586-79BAB113B774", "Memory Module"},
        TypeCase{kCxl, CxlEvent::MemorySparing, "E71F3A40-2D29-4092-8A39-4D1C966C7C65", "Memory Sparing"},
        TypeCase{kCxl, CxlEvent::PhysicalSwitch, "77CF9271-9C02-470B-9FE4-BC7B75F2DA97", "Physical Switch"},
        TypeCase{kCxl, CxlEvent::VirtualSwitch, "40D26425-3396-4C4D-A5DA-3D47263AF425", "Virtual Switch"},
        TypeCase{kCxl, CxlEvent::MldPort, "8DC44363-0C96-4710-B7BF-04BB99534C3F", "MLD Port"},
        TypeCase{kCxl, CxlEvent::DynamicCapacity, "CA95AFA7-F183-4018-8C2F-95268E101A2A", "Dynamic Capacity"}),
    [] (const auto &Info) { return ParamName (Info.param.Name); });

//
// Refused section types leave the block as it was.
//
struct RefusedType {
  Cper::Bytes16 Type;
  std::string   Text;
};

void PrintTo (const RefusedType &Case, std::ostream *Out) {
  *Out << Case.Text;
}

class PopulateGhessRefusedType : public PopulateGhess, public ::testing::WithParamInterface<RefusedType> {};

TEST_P (PopulateGhessRefusedType, UnsupportedAndUntouched) {
  const auto Before = Bytes (SciBlock (), kSciBlockLength);
  EXPECT_EQ (Populate (Record ({.SectionType = GetParam ().Type})), EFI_UNSUPPORTED);
  EXPECT_EQ (Bytes (SciBlock (), kSciBlockLength), Before);
  EXPECT_EQ (Lines ().back (), L (P + "ERROR CPER Descriptor->SectionType GUID " + GetParam ().Text +
                                  " not recognized type, aborting..."));
}

INSTANTIATE_TEST_SUITE_P (Types,
                          PopulateGhessRefusedType,
                          ::testing::Values (RefusedType{Cper::VmwarePageRetireSectionType (),
                                                         "330F1140-72A5-11DF-9690-0002A5D5C51B"},
                                             // the CXL identifier laid out as an EFI GUID prints the same text
                                             RefusedType{Cper::CxlEventIdentifierAsEfiGuid (CxlEvent::GeneralMedia),
                                                         "FBCD0A77-C260-417F-85A9-088B1621EBA6"},
                                             RefusedType{Cper::Bytes16{0x16, 0x3D, 0x9E, 0xE1, 0x11, 0xBC, 0xE4, 0x11,
                                                                       0x9C, 0xAA, 0xC2, 0x05, 0x1D, 0x5D, 0x46, 0xB0},
                                                         "E19E3D16-BC11-11E4-9CAA-C2051D5D46B0"}),
                          [] (const auto &Info) { return "Guid" + Info.param.Text.substr (0, 8); });

TEST_F (PopulateGhess, NullArgumentsAndZeroLengthRefusedInOrder) {
  CPER_RECORD *R = Record ({});
  EXPECT_EQ (VornApeiLoggingElogPopulateGhess (NULL, NULL, NULL, 0), EFI_INVALID_PARAMETER);
  EXPECT_EQ (VornApeiLoggingElogPopulateGhess (Protocol (), NULL, NULL, 0), EFI_INVALID_PARAMETER);
  EXPECT_EQ (VornApeiLoggingElogPopulateGhess (Protocol (), R, NULL, 0), EFI_INVALID_PARAMETER);
  EXPECT_EQ (VornApeiLoggingElogPopulateGhess (Protocol (), R, SciBlock (), 0), EFI_INVALID_PARAMETER);
  EXPECT_EQ (Lines (),
             (std::vector<std::string>{
                 L (P + "ERROR pThis *EFI_VORN_APEI_LOGGING_SMM_PROTOCOL is null on entry, aborting..."),
                 L (P + "ERROR pCper is null on entry, aborting..."),
                 L (P + "ERROR pGesb is null on entry, aborting..."), L (P + "ERROR GesbLength == 0, aborting...")}));
  EXPECT_EQ (SciBlock ()->DataLength, 0u);
}

//
// FRU fields: valid bits are ORed in, fields the record does not vouch for
// keep what the block held, the timestamp bit is never set.
//
class PopulateGhessFru : public PopulateGhess, public ::testing::WithParamInterface<std::pair<bool, bool>> {};

TEST_P (PopulateGhessFru, OnlyValidFieldsCopied) {
  const auto [WithId, WithText] = GetParam ();
  std::memset ((UINT8 *)SciBlock () + 20, 0x50, 72);
  RecordSpec Spec;
  if (WithId) {
    Spec.FruId = Cper::Bytes16{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  }
  if (WithText) {
    Spec.FruText = "DIMM P0 CH A SLOT 1";
  }
  ASSERT_EQ (Populate (Record (Spec)), EFI_SUCCESS);
  auto *E = (GENERIC_ERROR_DATA_ENTRY *)((UINT8 *)SciBlock () + 20);
  EXPECT_EQ (E->ValidationBits, 0x50 | (WithId ? 1 : 0) | (WithText ? 2 : 0));
  EXPECT_EQ (Bytes (E->FruId, 16), WithId ? Bytes (Spec.FruId->data (), 16) : std::vector<UINT8> (16, 0x50));
  EXPECT_EQ (Bytes (E->FruText, 20), WithText ? Bytes ("DIMM P0 CH A SLOT 1", 20) : std::vector<UINT8> (20, 0x50));
}

INSTANTIATE_TEST_SUITE_P (
    Fru,
    PopulateGhessFru,
    ::testing::Values (std::pair{false, false}, std::pair{true, false}, std::pair{false, true}, std::pair{true, true}),
    [] (const auto &Info) {
      return std::string (Info.param.first ? "Id" : "NoId") + (Info.param.second ? "Text" : "NoText");
    });

//
// The unit-test switch raises Recoverable to Fatal only in diagnostic mode.
//
struct OverrideCase {
  BOOLEAN Switch;
  UINT32  Mode;
  UINT32  HeaderSeverity;
  UINT32  GesbSeverity;
  UINT32  GedeSeverity;
};

void PrintTo (const OverrideCase &Case, std::ostream *Out) {
  *Out << Format ("Switch%s_Mode%u_Severity%u", Case.Switch ? "On" : "Off", Case.Mode, Case.HeaderSeverity);
}

class PopulateGhessOverride : public PopulateGhess, public ::testing::WithParamInterface<OverrideCase> {};

TEST_P (PopulateGhessOverride, RecoverableToFatal) {
  const auto &C                                            = GetParam ();
  mPrivateDataVornApeiLogging.ErstUnitTestSeverityOverride = C.Switch;
  mPrivateDataVornApeiLogging.RasErrorLoggingMode          = C.Mode;
  ASSERT_EQ (Populate (Record ({.HeaderSeverity = C.HeaderSeverity, .SectionSeverity = 0})), EFI_SUCCESS);
  auto *E = (GENERIC_ERROR_DATA_ENTRY *)((UINT8 *)SciBlock () + 20);
  EXPECT_EQ (SciBlock ()->ErrorSeverity, C.GesbSeverity);
  EXPECT_EQ (E->ErrorSeverity, C.GedeSeverity);
  EXPECT_EQ (StatusWord (SciBlock ()), 0x13u);
  EXPECT_EQ (
      Logged (P +
              "RAS diagnostic mode - Override GESB Severity Recoverable 0 to Fatal 1 for unit testing ERST support"),
      C.GesbSeverity != C.HeaderSeverity);
  EXPECT_EQ (
      Logged (P +
              "RAS diagnostic mode - Override GEDE Severity Recoverable 0 to Fatal 1 for unit testing ERST support"),
      C.GedeSeverity == 1);
}

INSTANTIATE_TEST_SUITE_P (Switch,
                          PopulateGhessOverride,
                          ::testing::Values (OverrideCase{TRUE, 1, 0, 1, 1},
                                             OverrideCase{FALSE, 1, 0, 0, 0},
                                             OverrideCase{TRUE, 0, 0, 0, 0},
                                             OverrideCase{TRUE, 1, 2, 2, 1}),
                          ::testing::PrintToStringParamName ());

//
// With debug code on, the three dumps follow the block, the entry and the
// copied data.
//
class PopulateGhessDumps : public PopulateGhess {
protected:
  bool DumpsEnabled () const override {
    return true;
  }
};

TEST_F (PopulateGhessDumps, DumpsBlockEntryAndSectionInOrder) {
  ASSERT_EQ (Populate (Record ({})), EFI_SUCCESS);
  const std::string Out   = Host::SerialOutput ();
  const auto        Count = Out.find (P + "New     ErrorDataEntryCount = 1");
  const auto        Block = Out.find ("WHEA Generic Error Status Block data");
  const auto        Entry = Out.find ("WHEA Generic Error Data Entry data ");
  const auto        Copy  = Out.find (P + "Copying UEFI CPER error section");
  const auto        Exit  = Out.find (P + "Exiting");
  ASSERT_NE (Block, std::string::npos);
  ASSERT_NE (Entry, std::string::npos);
  EXPECT_LT (Count, Block);
  EXPECT_LT (Block, Entry);
  EXPECT_LT (Entry, Copy);
  EXPECT_LT (Copy, Exit);
  EXPECT_GT (Exit - Copy, 200u) << "section data dump between the copy and the exit";
}

} // namespace

/** @file
  Section body printers: the memory section line by line, the decodes of
  every other section kind, the IA32/X64 check and register context
  printers walking variable-size structures, CXL protocol agent addressing
  and raw register data, and the NULL check each printer shares.
**/
#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Handlers/CperBuilder.h"
#include <CperSections.h>
#include <Library/DebugLib.h>
#include <Library/ElogBaseLib.h>
#include <Library/ElogCperDump.h>

#include "TestMachine.h"

namespace {

using Lines = std::vector<std::string>;

class CperSectionDumpTest : public MachineTest {
protected:
  void SetUp () override {
    MachineTest::SetUp ();
    mPrivateDataVornElogBase.SerDbgLevel = DEBUG_INFO;
  }

  static Lines Logged (const Lines &Texts) {
    Lines Out;
    for (const std::string &Text : Texts) {
      Out.push_back (Line (0, Text));
    }

    return Out;
  }

  // Expected lines that must appear, in this order, among the logged ones.
  static ::testing::AssertionResult InOrder (const Lines &Expected) {
    const Lines All = SerialLines ();
    auto        At  = All.begin ();
    for (const std::string &Text : Expected) {
      At = std::find (At, All.end (), Line (0, Text));
      if (At == All.end ()) {
        return ::testing::AssertionFailure () << "missing or out of order: \"" << Text << "\"";
      }

      ++At;
    }

    return ::testing::AssertionSuccess ();
  }

  static UINT8 *Place (const std::vector<UINT8> &Bytes) {
    UINT8 *Copy = Host::At<UINT8> (Host::AllocateSmram (Bytes.size ()));
    std::memcpy (Copy, Bytes.data (), Bytes.size ());
    return Copy;
  }

  template <typename T> static void Put (std::vector<UINT8> &Bytes, size_t Offset, T Value) {
    std::memcpy (Bytes.data () + Offset, &Value, sizeof (Value));
  }
};

TEST_F (CperSectionDumpTest, MemorySectionPrintsEveryField) {
  Cper::RecordSpec Spec;
  CPER_RECORD     *Record = Cper::PlaceInSmram (Cper::BuildRecord (Spec));

  DisplayCperSectionMemory (DEBUG_INFO, Record->Section);

  EXPECT_EQ (
      SerialLines (),
      Logged ({"CPER platform memory error section data",
               "     Validation Bits                 = 0x00000000000043FF",
               "       Bit[00] Error Status",
               "       Bit[01] Physical Address",
               "       Bit[02] Physical Address Mask",
               "       Bit[03] Node",
               "       Bit[04] Card",
               "       Bit[05] Module",
               "       Bit[06] Bank",
               "       Bit[07] Device",
               "       Bit[08] Row",
               "       Bit[09] Column",
               "       Bit[14] Memory Error Type",
               "     Error Status                    = 0x0000000000000400 (ERR_MEM storage error in memory (DRAM))",
               "     Physical Address                = 0x0000000123456780",
               "     Physical Address Mask           = 0xFFFFFFFFFFFFFFC0",
               "     Node                            = 0x0000",
               "     Card                            = 0x0001",
               "     Module                          = 0x0002",
               "     Bank                            = 0x0003",
               "       Bank Group                    = 0x00",
               "       Bank Address                  = 0x03",
               "     Device                          = 0x0004",
               "     Row                             = 0x1234",
               "     Column                          = 0x0056",
               "     Bit Position                    = 0x0000",
               "     Requestor ID                    = 0x0000000000000000",
               "     Responder ID                    = 0x0000000000000000",
               "     Target ID                       = 0x0000000000000000",
               "     Memory Error Type               = 0x02 (Single-bit ECC)",
               "     Extended                        = 0x00",
               "       Chip Identification           = 0x0",
               "     Rank Number                     = 0x0000",
               "     Card Handle (SMBIOS Type 16)    = 0x0000",
               "     Module Handle (SMBIOS Type 17)  = 0x0000"}));
}

// An error status whose valid bit is clear is not named, so a zero status
// does not raise an unrecognized-type error; unknown codes name "Reserved".
TEST_F (CperSectionDumpTest, MemorySectionWithoutValidErrorStatus) {
  std::vector<UINT8> Body (sizeof (CPER_SECTION_MEMORY), 0);
  Body[offsetof (CPER_SECTION_MEMORY, ErrorType)] = 0x10;
  Body[offsetof (CPER_SECTION_MEMORY, Extended)]  = 0xA3;
  Put<UINT16> (Body, offsetof (CPER_SECTION_MEMORY, Bank), 0x0205);

  DisplayCperSectionMemory (DEBUG_INFO, Place (Body));

  EXPECT_TRUE (InOrder ({"     Error Status                    = 0x0000000000000000 ()",
                         "       Bank Group                    = 0x02", "       Bank Address                  = 0x05",
                         "     Memory Error Type               = 0x10 (Reserved)",
                         "     Extended                        = 0xA3", "       Bit[00] Row Bit 16",
                         "       Bit[01] Row Bit 17", "       Chip Identification           = 0x5"}));
  for (const std::string &Logged : SerialLines ()) {
    EXPECT_EQ (Logged.find ("ERROR"), std::string::npos) << Logged;
  }
}

struct KindCase {
  std::string                         Name;
  Cper::SectionKind                   Kind;
  std::function<void (UINTN, VOID *)> Printer;
  Lines                               Expected;
};

void PrintTo (const KindCase &Case, std::ostream *Out) {
  *Out << Case.Name;
}

class SectionKindTest : public CperSectionDumpTest, public ::testing::WithParamInterface<KindCase> {};

TEST_P (SectionKindTest, DecodesTheBuiltSection) {
  Cper::RecordSpec Spec;
  Spec.Kind           = GetParam ().Kind;
  CPER_RECORD *Record = Cper::PlaceInSmram (Cper::BuildRecord (Spec));

  GetParam ().Printer (DEBUG_INFO, Record->Section);

  EXPECT_TRUE (InOrder (GetParam ().Expected));
}

INSTANTIATE_TEST_SUITE_P (
    Kinds,
    SectionKindTest,
    ::testing::Values (
        KindCase{"ProcessorGeneric",
                 Cper::SectionKind::ProcessorGeneric,
                 DisplayCperSectionProcessor,
                 {"CPER processor generic error section data", "       Bit[09] Target Address",
                  "       Bit[12] Instruction IP", "     Processor Type                  = 0x00 (IA32/X64)",
                  "     Processor ISA                   = 0x02 (X64)", "     Error Type                      = 0x01",
                  "       Bit[00] Cache Error", "     Operation                       = 0x01 (Data Read)",
                  "       Bit[00] Restartable", "     Level                           = 0x02",
                  "     CPU Brand String                = AMD EPYC 9654 96-Core Processor",
                  "     Processor ID                    = 0x0000000000000010",
                  "     Instruction IP                  = 0xFFFFFFFF81234567"}},
        KindCase{
            "ProcessorSpecific",
            Cper::SectionKind::ProcessorSpecific,
            DisplayCperSectionProcessorSpecific,
            {"     Error Information Count         = 0x01 (1)", "     Context Information Count       = 0x01 (1)",
             "CPER IA32/X64 processor error information structure 0",
             "     Error Structure Type            = A55701F5-E3EF-43DE-AC72-249B573FAD2C (IA32/X64 Cache Check Structure)",
             "     Check Info                      = 0x00000000008D003F",
             "       Transaction Type              = 0x1 (Data Access)",
             "       Operation                     = 0x3 (Data Read)", "       Level                         = 0x2",
             "     Target Address                  = 0x0000000123456780"}},
        KindCase{"Pcie",
                 Cper::SectionKind::Pcie,
                 DisplayCperSectionPcie,
                 {"     Port Type                       = 0x00000004 (Root Port)",
                  "       Major Version                 = 0x04", "       Command                       = 0x0547",
                  "       Status                        = 0x0010", "     Class Code                      = 0x060400",
                  "     Slot Number                     = 0x0002", "     Capability Structure            = 60 bytes",
                  "       +0x0000 = 0x00420010 0x00000000 0x00000000 0x00000000", "       +0x0030 = 0x00000000",
                  "       +0x0038 = 0x00000000", "     AER Info                        = 96 bytes",
                  "       +0x0000 = 0x14820001 0x00004000 0x00000000 0x00000000",
                  "       +0x0050 = 0x00000000 0x00000000 0x00000000 0x00000000"}},
        KindCase{"PciComponent",
                 Cper::SectionKind::PciComponent,
                 DisplayCperSectionPciComponent,
                 {"     Error Status                    = 0x0000000000001000 (ERR_BUS error detected in the bus)",
                  "     Class Code                      = 0x0C0330", "     Bus                             = 0x05",
                  "     Register Pair[00] Address       = 0x00000000F7300000",
                  "     Register Pair[00] Value         = 0x00000000DEADBEEF",
                  "     Register Pair[01] Address       = 0x0000000000000CF8",
                  "     Register Pair[01] Value         = 0x0000000080000000"}},
        KindCase{"CxlProtocolByBusDeviceFunction",
                 Cper::SectionKind::CxlProtocol,
                 DisplayCperSectionCxlProtocol,
                 {"     Agent Type                      = 0x02 (CXL 2.0 Device)",
                  "     Agent Address                   = 0x0000000000800000",
                  "       Segment                       = 0x0000", "       Bus                           = 0x80",
                  "     Class Code                      = 0x0502",
                  "     Device Serial Number            = 0x0011223344556677",
                  "     CXL DVSEC                       = 0 bytes", "     CXL Error Log                   = 0 bytes"}},
        KindCase{
            "CxlComponent",
            Cper::SectionKind::CxlComponent,
            DisplayCperSectionCxlComponent,
            {"     Length                          = 0x000000A0 (160)", "       Bit[02] Component Event Log",
             "     Bus                             = 0x80",
             "     Event Record Identifier         = FBCD0A77-C260-417F-85A9-088B1621EBA6 (General Media Event Record)",
             "     Event Record Length             = 0x80 (128)",
             "       Event Record Severity         = 0x0 (Informational)",
             "     Event Record Handle             = 0x0001",
             "     Event Record Timestamp          = 0x17A1B2C3D4E5F600",
             "     Event Record Data               = 80 bytes",
             "       +0x0040 = 0x00000000 0x00000000 0x00000000 0x00000000"}}),
    [] (const auto &Info) { return Info.param.Name; });

// Two error information structures (bus and MS checks) and three context
// structures of different sizes: each is found after the one before it.
TEST_F (CperSectionDumpTest, ProcessorSpecificWalksChecksAndContexts) {
  const EFI_GUID     Bus = {0x1CF3F8B3, 0xC5B1, 0x49A2, {0xAA, 0x59, 0x5E, 0xEF, 0x92, 0xFF, 0xA6, 0x3C}};
  const EFI_GUID     Ms  = {0x48AB7F57, 0xDC34, 0x4F6C, {0xA7, 0xD3, 0xB0, 0xB5, 0xB0, 0xA7, 0x43, 0x14}};
  std::vector<UINT8> Body (1016, 0);
  Put<UINT64> (Body, 0, 0x3 | (2 << 2) | (3 << 8));
  Put<EFI_GUID> (Body, 64, Bus);
  Put<UINT64> (Body, 64 + 16, 1);
  Put<UINT64> (Body, 64 + 24,
               0x7FFULL | (2ULL << 16) | (1ULL << 18) | (1ULL << 25) | (1ULL << 26) | (1ULL << 29) | (1ULL << 30) |
                   (1ULL << 32) | (2ULL << 33));
  Put<EFI_GUID> (Body, 128, Ms);
  Put<UINT64> (Body, 128 + 16, 1);
  Put<UINT64> (Body, 128 + 24, 0x3FULL | (3ULL << 16) | (1ULL << 19) | (1ULL << 23));
  Put<UINT16> (Body, 192, CPER_REGISTER_CONTEXT_X64);
  Put<UINT16> (Body, 194, sizeof (CPER_X64_REGISTER_STATE));
  Put<UINT64> (Body, 208 + offsetof (CPER_X64_REGISTER_STATE, Rax), 0x1111);
  Put<UINT16> (Body, 208 + offsetof (CPER_X64_REGISTER_STATE, Cs), 0x10);
  Put<UINT64> (Body, 208 + offsetof (CPER_X64_REGISTER_STATE, Rip), 0xFFFF800012345678ULL);
  Put<UINT64> (Body, 208 + offsetof (CPER_X64_REGISTER_STATE, Cr8), 0xF);
  Put<UINT16> (Body, 208 + offsetof (CPER_X64_REGISTER_STATE, Tr), 0x40);
  Put<UINT16> (Body, 452, CPER_REGISTER_CONTEXT_FXSAVE);
  Put<UINT16> (Body, 454, 512);
  Put<UINT16> (Body, 980, CPER_REGISTER_CONTEXT_MSR);
  Put<UINT16> (Body, 982, 20);
  Put<UINT32> (Body, 984, 0xC0000080);
  for (UINT32 Word = 0; Word < 5; Word++) {
    Put<UINT32> (Body, 996 + 4 * Word, Word + 1);
  }

  DisplayCperSectionProcessorSpecific (DEBUG_INFO, Place (Body));

  EXPECT_TRUE (InOrder (
      {"     Error Information Count         = 0x02 (2)",
       "     Context Information Count       = 0x03 (3)",
       "CPER IA32/X64 processor error information structure 0",
       "     Error Structure Type            = 1CF3F8B3-C5B1-49A2-AA59-5EEF92FFA63C (IA32/X64 Bus Check Structure)",
       "       Check Validation Bits         = 0x07FF",
       "       Transaction Type              = 0x2 (Generic)",
       "       Operation                     = 0x1 (Generic Read)",
       "       Level                         = 0x0",
       "       Context Corrupt               = 0x1",
       "       Error Uncorrected             = 0x1",
       "       Precise IP                    = 0x0",
       "       Restartable IP                = 0x0",
       "       Overflow                      = 0x1",
       "       Participation Type            = 0x1 (Local Processor Responded to Request)",
       "       Time Out                      = 0x1",
       "       Address Space                 = 0x2 (I/O)",
       "CPER IA32/X64 processor error information structure 1",
       "     Error Structure Type            = 48AB7F57-DC34-4F6C-A7D3-B0B5B0A74314 (IA32/X64 MS Check Field Description)",
       "       Error Type                    = 0x3 (External Error)",
       "       Context Corrupt               = 0x1",
       "       Error Uncorrected             = 0x0",
       "       Overflow                      = 0x1",
       "CPER IA32/X64 processor context information structure 0",
       "     Register Context Type           = 0x0003 (64 Bit Mode Execution Context)",
       "     Register Array Size             = 0x00F4 (244)",
       "       RAX                           = 0x0000000000001111",
       "       CS                            = 0x0010",
       "       RIP                           = 0xFFFF800012345678",
       "       CR8                           = 0x000000000000000F",
       "       TR                            = 0x0040",
       "CPER IA32/X64 processor context information structure 1",
       "     Register Context Type           = 0x0004 (FXSAVE Context)",
       "       FXSAVE register context is not supported",
       "CPER IA32/X64 processor context information structure 2",
       "     Register Context Type           = 0x0001 (MSR Registers)",
       "     Register Array Size             = 0x0014 (20)",
       "     MSR Address                     = 0xC0000080",
       "     Register Array                  = 20 bytes",
       "       +0x0000 = 0x00000001 0x00000002 0x00000003 0x00000004",
       "       +0x0010 = 0x00000005"}));
}

// A register state shorter than its layout prints raw, never past the array.
TEST_F (CperSectionDumpTest, ShortRegisterStatePrintsRaw) {
  std::vector<UINT8> Body (64 + 16 + 6, 0);
  Put<UINT64> (Body, 0, 1 << 8);
  Put<UINT16> (Body, 64, CPER_REGISTER_CONTEXT_IA32_DEBUG);
  Put<UINT16> (Body, 66, 6);
  Put<UINT32> (Body, 80, 0xDDCCBBAA);
  Body[84] = 0x11;
  Body[85] = 0x22;

  DisplayCperSectionProcessorSpecific (DEBUG_INFO, Place (Body));

  const Lines All = SerialLines ();
  ASSERT_GE (All.size (), 4u);
  EXPECT_EQ (Lines (All.end () - 4, All.end ()),
             Logged ({"     Register Array                  = 6 bytes", "       +0x0000 = 0xDDCCBBAA",
                      "       +0x0004 = 0x11", "       +0x0005 = 0x22"}));
}

TEST_F (CperSectionDumpTest, CxlDownstreamPortIsAddressedByRcrbAndCarriesDvsecAndLog) {
  std::vector<UINT8> Body (sizeof (CPER_SECTION_CXL_PROTOCOL) + 6 + 8, 0);
  Put<UINT64> (Body, 0, 0x63);
  Body[offsetof (CPER_SECTION_CXL_PROTOCOL, AgentType)] = CPER_CXL_AGENT_CXL11_DOWNSTREAM_PORT;
  Put<UINT64> (Body, offsetof (CPER_SECTION_CXL_PROTOCOL, AgentAddress), 0xFED80000);
  Put<UINT16> (Body, offsetof (CPER_SECTION_CXL_PROTOCOL, DeviceId.Slot), 5 << 3);
  Put<UINT16> (Body, offsetof (CPER_SECTION_CXL_PROTOCOL, DvsecLength), 6);
  Put<UINT16> (Body, offsetof (CPER_SECTION_CXL_PROTOCOL, ErrorLogLength), 8);
  for (UINT8 Byte = 0; Byte < 6; Byte++) {
    Body[sizeof (CPER_SECTION_CXL_PROTOCOL) + Byte] = Byte + 1;
  }

  Put<UINT32> (Body, sizeof (CPER_SECTION_CXL_PROTOCOL) + 6, 0xAABBCCDD);
  Put<UINT32> (Body, sizeof (CPER_SECTION_CXL_PROTOCOL) + 10, 0x11223344);

  DisplayCperSectionCxlProtocol (DEBUG_INFO, Place (Body));

  const Lines All = SerialLines ();
  EXPECT_TRUE (
      InOrder ({"       Bit[00] Agent Type", "       Bit[01] Agent Address", "       Bit[05] CXL DVSEC",
                "       Bit[06] CXL Error Log", "     Agent Type                      = 0x01 (CXL 1.1 Downstream Port)",
                "     RCRB Base Address               = 0x00000000FED80000",
                "     Vendor ID                       = 0x0000", "     Slot Number                     = 0x0005"}));
  ASSERT_GE (All.size (), 9u);
  EXPECT_EQ (
      Lines (All.end () - 9, All.end ()),
      Logged ({"     CXL DVSEC Length                = 0x0006 (6)", "     CXL Error Log Length            = 0x0008 (8)",
               "     CXL DVSEC                       = 6 bytes", "       +0x0000 = 0x04030201", "       +0x0004 = 0x05",
               "       +0x0005 = 0x06", "     CXL Error Log                   = 8 bytes", "       +0x0000 = 0xAABBCCDD",
               "       +0x0004 = 0x11223344"}));
}

struct NullCase {
  std::string                         Name;
  std::function<void (UINTN, VOID *)> Printer;
};

void PrintTo (const NullCase &Case, std::ostream *Out) {
  *Out << Case.Name;
}

class SectionNullTest : public CperSectionDumpTest, public ::testing::WithParamInterface<NullCase> {};

TEST_P (SectionNullTest, RefusesANullSection) {
  GetParam ().Printer (DEBUG_INFO, nullptr);
  EXPECT_EQ (SerialLines (), Logged ({GetParam ().Name + ": ERROR pSection is NULL, aborting..."}));
}

INSTANTIATE_TEST_SUITE_P (
    Printers,
    SectionNullTest,
    ::testing::Values (NullCase{"DisplayCperSectionProcessor", DisplayCperSectionProcessor},
                       NullCase{"DisplayCperSectionProcessorSpecific", DisplayCperSectionProcessorSpecific},
                       NullCase{"DisplayCperSectionMemory", DisplayCperSectionMemory},
                       NullCase{"DisplayCperSectionPcie", DisplayCperSectionPcie},
                       NullCase{"DisplayCperSectionPciComponent", DisplayCperSectionPciComponent},
                       NullCase{"DisplayCperSectionCxlProtocol", DisplayCperSectionCxlProtocol},
                       NullCase{"DisplayCperSectionCxlComponent", DisplayCperSectionCxlComponent}),
    [] (const auto &Info) { return Info.param.Name; });

} // namespace

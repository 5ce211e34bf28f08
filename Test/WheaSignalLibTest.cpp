/** @file
  The WHEA signal library: the exact FCH register sequences behind the SCI
  and the NMI, their log lines, and the library's own debug levels.
**/
#include <GhesFixture.h>
#include <TestFormat.h>

#include <Library/ElogBaseLib.h>
#include <Library/WheaSignalLib.h>

namespace {

using Host::Access;
using Host::AccessKind;

constexpr UINT64 kSciData  = 0xFED8021C;
constexpr UINT64 kStatus1  = 0xFED80284;
constexpr UINT64 kControl8 = 0xFED802C0;
constexpr UINT64 kTrig0    = 0xFED80298;
constexpr UINT64 kScratch3 = 0x74; // bus 0, device 0, function 0, offset 0x74

Access Rd (UINT64 Address, UINT32 Value) {
  return {AccessKind::MmioRead, Address, 4, Value};
}
Access Wr (UINT64 Address, UINT32 Value) {
  return {AccessKind::MmioWrite, Address, 4, Value};
}

using WheaSignalLib = GhesFixture;

//
// SCI: a pulse on eventstatus22, then the cause ORed into the scratch
// register only when there is one.
//
struct SciCase {
  UINT32              SciData;
  UINT32              Cause;
  UINT32              Scratch;
  std::vector<Access> Trace;
  UINT32              ScratchAfter;
  UINT64              Scis; // the FCH raises the SCI on a rising bit 22 only
};

void PrintTo (const SciCase &Case, std::ostream *Out) {
  *Out << Format ("SciData%08X_Cause%X", Case.SciData, Case.Cause);
}

class WheaSci : public GhesFixture, public ::testing::WithParamInterface<SciCase> {};

TEST_P (WheaSci, PulseThenCause) {
  const auto &C = GetParam ();
  Host::SetMmio32 (kSciData, C.SciData);
  Host::SetPciConfig32 (kScratch3, C.Scratch);
  Host::ClearTrace ();
  EXPECT_EQ (VornTriggerWheaSci (NULL, NULL, C.Cause), EFI_SUCCESS);
  EXPECT_EQ (Host::Trace (), C.Trace);
  EXPECT_EQ (Host::GetPciConfig32 (kScratch3), C.ScratchAfter);
  EXPECT_EQ (Host::SciCount (), C.Scis);
}

INSTANTIATE_TEST_SUITE_P (
    Causes,
    WheaSci,
    ::testing::Values (
        SciCase{0x00000001, 0, 0x2, {Rd (kSciData, 0x1), Wr (kSciData, 0x00400001), Wr (kSciData, 0x1)}, 0x2, 1},
        // a bit 22 already set is left cleared; the cause bits accumulate
        SciCase{0x00400000,
                0x5,
                0x2,
                {Rd (kSciData, 0x00400000),
                 Wr (kSciData, 0x00400000),
                 Wr (kSciData, 0),
                 {AccessKind::PciRead, kScratch3, 4, 0x2},
                 {AccessKind::PciWrite, kScratch3, 4, 0x7}},
                0x7,
                0}),
    ::testing::PrintToStringParamName ());

TEST_F (WheaSignalLib, SciLinesShowAddressAndValue) {
  Host::SetMmio32 (kSciData, 0x80);
  Host::SetPciConfig32 (kScratch3, 0x10);
  ASSERT_EQ (VornTriggerWheaSci (NULL, NULL, 0x3), EFI_SUCCESS);
  const std::string S = "VornTriggerWheaSci: ";
  EXPECT_EQ (
      Lines (),
      (std::vector<std::string>{
          L (S + "Rd MMIO @ 0xFED8021C = 0x00000080 (FCH::SMI::SOFTWARESCIDATA)"),
          L (S + "Wr MMIO @ 0xFED8021C = 0x00400080 (FCH::SMI::SOFTWARESCIDATA Bit[22] assert eventstatus22)"),
          L (S + "Wr MMIO @ 0xFED8021C = 0x00000080 (FCH::SMI::SOFTWARESCIDATA Bit[22] de-assert eventstatus22)"),
          L (S + "Wr Skt0 Die0 NBCFG_SCRATCH_3 SciCause = 0x00000013")}));
}

//
// NMI: clear the status, route FakeSts0 to NMI clearing only bit 20, then
// re-arm the trigger with bit 28 set.
//
struct NmiCase {
  UINT32 Status1;
  UINT32 Control8;
  UINT32 Trig0;
  UINT32 Control8Cleared;
  UINT32 Trig0Deasserted;
};

void PrintTo (const NmiCase &Case, std::ostream *Out) {
  *Out << Format ("Control%08X_Trigger%08X", Case.Control8, Case.Trig0);
}

class WheaNmi : public GhesFixture, public ::testing::WithParamInterface<NmiCase> {};

TEST_P (WheaNmi, ExactSequence) {
  const auto &C = GetParam ();
  Host::SetMmio32 (kStatus1, C.Status1);
  Host::SetMmio32 (kControl8, C.Control8);
  Host::SetMmio32 (kTrig0, C.Trig0);
  Host::ClearTrace ();
  EXPECT_EQ (VornTriggerWheaNmi (NULL, NULL), EFI_SUCCESS);
  EXPECT_EQ (Host::Trace (),
             (std::vector<Access>{Rd (kStatus1, C.Status1), Wr (kStatus1, 0x2), Rd (kControl8, C.Control8),
                                  Wr (kControl8, C.Control8Cleared), Wr (kControl8, C.Control8Cleared | 0x00200000),
                                  Rd (kTrig0, C.Trig0), Wr (kTrig0, C.Trig0Deasserted),
                                  Wr (kTrig0, C.Trig0Deasserted | 0x02000000)}));
  EXPECT_EQ (Host::NmiCount (), 1u);
}

INSTANTIATE_TEST_SUITE_P (Registers,
                          WheaNmi,
                          ::testing::Values (NmiCase{0xFFFFFFFF, 0x00300000, 0x00000000, 0x00200000, 0x10000000},
                                             NmiCase{0x00000000, 0x00000000, 0x02000000, 0x00000000, 0x10000000},
                                             NmiCase{0x00000002, 0x00100005, 0xF2000001, 0x00000005, 0xF0000001}),
                          ::testing::PrintToStringParamName ());

TEST_F (WheaSignalLib, NmiLinesShowAddressAndValue) {
  Host::SetMmio32 (kControl8, 0x00300000);
  ASSERT_EQ (VornTriggerWheaNmi (NULL, NULL), EFI_SUCCESS);
  const std::string N = "VornTriggerWheaNmi: ";
  EXPECT_EQ (
      Lines (),
      (std::vector<std::string>{
          L (N + "Rd MMIO @ 0xFED80284 = 0x00000000 (FCH::SMI::SMISTATUS1)"),
          L (N + "Wr MMIO @ 0xFED80284 = 0x00000002 (FCH::SMI::SMISTATUS1 Bit[1] clear fakests0_event33)"),
          L (N + "Rd MMIO @ 0xFED802C0 = 0x00300000 (FCH::SMI::SMICONTROL8)"),
          L (N +
             "Wr MMIO @ 0xFED802C0 = 0x00200000 (FCH::SMI::SMICONTROL8 Bit[21:20] disable FakeSts0 interrupt generation)"),
          L (N +
             "Wr MMIO @ 0xFED802C0 = 0x00200000 (FCH::SMI::SMICONTROL8 configure Bit[21:20] FakeSts0 10b NMI interrupt generation)"),
          L (N + "Rd MMIO @ 0xFED80298 = 0x00000000 (FCH::SMI::SMITRIG0)"),
          L (N +
             "Wr MMIO @ 0xFED80298 = 0x10000000 (FCH::SMI::SMITRIG0 configure Bit[25] FakeSts0 0b de-assert NMI generation)"),
          L (N +
             "Wr MMIO @ 0xFED80298 = 0x12000000 (FCH::SMI::SMITRIG0 configure Bit[25] FakeSts0 1b assert NMI generation)")}));
}

TEST_F (WheaSignalLib, ProgramOnlyLogs) {
  EXPECT_EQ (VornProgramWheaSignals (NULL, NULL, TRUE), EFI_SUCCESS);
  EXPECT_EQ (VornProgramWheaSignals (NULL, NULL, FALSE), EFI_SUCCESS);
  EXPECT_TRUE (Host::Trace ().empty ());
  EXPECT_EQ (Lines (), (std::vector<std::string>{L ("VornProgramWheaSignals: EnableWhea = 1"),
                                                 L ("VornProgramWheaSignals: EnableWhea = 0")}));
}

TEST_F (WheaSignalLib, LogsAtItsOwnLevel) {
  mPrivateDataWheaSignalLib.SerDbgLevel   = 0x00400000; // verbose: not printed on this platform
  mPrivateDataVornApeiLogging.SerDbgLevel = 0x40;
  ASSERT_EQ (VornTriggerWheaNmi (NULL, NULL), EFI_SUCCESS);
  EXPECT_EQ (Host::Trace (AccessKind::MmioWrite).size (), 5u);
  EXPECT_TRUE (Lines ().empty ());
}

} // namespace

/** @file
  The WHEA signal library: the exact FCH register sequences behind the SCI
  and the NMI, and the library's own debug level.
**/
#include <GhesFixture.h>

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
// SCI: a pulse on eventstatus22 (the FCH raises the SCI on a rising bit 22
// only), then the cause ORed into the scratch register when there is one.
//
TEST_F (WheaSignalLib, SciPulsesThenHandsOverTheCause) {
  Host::SetMmio32 (kSciData, 0x00000001);
  Host::SetPciConfig32 (kScratch3, 0x2);
  Host::ClearTrace ();
  EXPECT_EQ (VornTriggerWheaSci (NULL, NULL, 0), EFI_SUCCESS);
  EXPECT_EQ (Host::Trace (), (std::vector<Access>{Rd (kSciData, 0x1), Wr (kSciData, 0x00400001), Wr (kSciData, 0x1)}));
  EXPECT_EQ (Host::SciCount (), 1u);

  // A bit 22 already set is left cleared; the cause bits accumulate.
  Host::SetMmio32 (kSciData, 0x00400000);
  Host::ClearTrace ();
  EXPECT_EQ (VornTriggerWheaSci (NULL, NULL, 0x5), EFI_SUCCESS);
  EXPECT_EQ (Host::Trace (), (std::vector<Access>{Rd (kSciData, 0x00400000),
                                                  Wr (kSciData, 0x00400000),
                                                  Wr (kSciData, 0),
                                                  {AccessKind::PciRead, kScratch3, 4, 0x2},
                                                  {AccessKind::PciWrite, kScratch3, 4, 0x7}}));
  EXPECT_EQ (Host::SciCount (), 1u);
}

//
// NMI: clear the status, route FakeSts0 to NMI clearing only bit 20, then
// re-arm the trigger with bit 28 set.
//
TEST_F (WheaSignalLib, NmiClearsRoutesAndRearms) {
  const struct {
    UINT32 Status1, Control8, Trig0, Control8Cleared, Trig0Deasserted;
  } Cases[] = {{0xFFFFFFFF, 0x00300000, 0x00000000, 0x00200000, 0x10000000},
               {0x00000000, 0x00000000, 0x02000000, 0x00000000, 0x10000000},
               {0x00000002, 0x00100005, 0xF2000001, 0x00000005, 0xF0000001}};
  for (const auto &C : Cases) {
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
  }
  EXPECT_EQ (Host::NmiCount (), 3u);
}

TEST_F (WheaSignalLib, ProgrammingOnlyLogsAtTheLibrarysOwnLevel) {
  EXPECT_EQ (VornProgramWheaSignals (NULL, NULL, TRUE), EFI_SUCCESS);
  EXPECT_TRUE (Host::Trace ().empty ());
  EXPECT_EQ (Lines (), (std::vector<std::string>{L ("VornProgramWheaSignals: EnableWhea = 1")}));

  ClearLog ();
  mPrivateDataWheaSignalLib.SerDbgLevel   = 0x00400000; // verbose: not printed on this platform
  mPrivateDataVornApeiLogging.SerDbgLevel = 0x40;
  ASSERT_EQ (VornTriggerWheaNmi (NULL, NULL), EFI_SUCCESS);
  EXPECT_EQ (Host::Trace (AccessKind::MmioWrite).size (), 5u);
  EXPECT_TRUE (Lines ().empty ());
}

} // namespace

/** @file
  The debug log sink and the serial layer under it: UART programming from the
  CMOS baud setting, the shared record, per-processor prefixes, the level
  filter, truncation, assertions and whole-line locking between processors.
**/
#include <algorithm>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "TestFormat.h"
#include "TestMachine.h"
#include "Builder/ModuleImage.h"

#include <Library/DebugLib.h>
#include <Library/SerialPortLib.h>
#include "../Library/VornMultiThreadedDebugLibSerialPort/VornMultiThreadedDebugLibInternal.h"

namespace {

using Host::Access;
using Host::AccessKind;

Access In (UINT64 Port, UINT64 Value) {
  return {AccessKind::IoRead, Port, 1, Value};
}

Access Out (UINT64 Port, UINT64 Value) {
  return {AccessKind::IoWrite, Port, 1, Value};
}

// What programming one UART from reset looks like on the bus.
void AppendProgramming (std::vector<Access> &Trace, UINT64 Base, UINT32 Divisor) {
  Trace.insert (Trace.end (), {In (Base + 5, 0x60), Out (Base + 3, 0x80), Out (Base + 0, Divisor & 0xFF),
                               Out (Base + 1, Divisor >> 8), Out (Base + 3, 0x03), Out (Base + 2, 0x00),
                               Out (Base + 2, 0x01), Out (Base + 1, 0x00), Out (Base + 4, 0x00)});
}

// Reading back the divisor latch of a UART already in 8N1.
void AppendDivisorCheck (std::vector<Access> &Trace, UINT64 Base, UINT32 Current) {
  Trace.insert (Trace.end (), {In (Base + 3, 0x03), Out (Base + 3, 0x83), In (Base + 0, Current & 0xFF),
                               In (Base + 1, Current >> 8), Out (Base + 3, 0x03)});
}

// Runs fn with serial port accesses traced from a clean trace.
template <typename Fn> std::vector<Access> TraceOf (Fn &&Body) {
  Host::TraceSerialPorts (true);
  Host::ClearTrace ();
  Body ();
  return Host::Trace ();
}

struct BaudCase {
  UINT8  Cmos;
  UINT32 Divisor;
};

void PrintTo (const BaudCase &Case, std::ostream *Out) {
  *Out << Format ("Cmos%02X_Divisor%u", Case.Cmos, Case.Divisor);
}

class SerialInitTest : public MachineTest, public ::testing::WithParamInterface<BaudCase> {
protected:
  Host::MachineConfig MachineConfiguration () const override {
    Host::MachineConfig Config;
    Config.CmosBaudSelect = GetParam ().Cmos;
    return Config;
  }
};

TEST_P (SerialInitTest, ProgramsBothUartsFromCmos) {
  Host::PowerOn (MachineConfiguration ());
  ModuleImageLoad ();

  std::vector<Access> Expected = {Out (0x70, 0x6F), In (0x71, GetParam ().Cmos), In (0x3FB, 0x00)};
  AppendProgramming (Expected, 0x3F8, GetParam ().Divisor);
  Expected.push_back (In (0x2FB, 0x00));
  AppendProgramming (Expected, 0x2F8, GetParam ().Divisor);

  EXPECT_EQ (TraceOf ([] {
               EXPECT_EQ (VornMultiThreadedDebugLibConstructor (Host::ImageHandle (), Host::SystemTable ()),
                          EFI_SUCCESS);
             }),
             Expected);

  // A second start finds both ports set up and only reads them back.
  Expected = {Out (0x70, 0x6F), In (0x71, GetParam ().Cmos)};
  AppendDivisorCheck (Expected, 0x3F8, GetParam ().Divisor);
  AppendDivisorCheck (Expected, 0x2F8, GetParam ().Divisor);
  EXPECT_EQ (TraceOf ([] { EXPECT_EQ (SerialPortInitialize (), EFI_SUCCESS); }), Expected);
}

INSTANTIATE_TEST_SUITE_P (
    BaudSelect,
    SerialInitTest,
    ::testing::Values (BaudCase{0x00, 1}, BaudCase{0x06, 12}, BaudCase{0x01, 1}, BaudCase{0xFA, 2}),
    ::testing::PrintToStringParamName ());

class DebugSinkTest : public MachineTest {};

TEST_F (DebugSinkTest, BaudChangeReprogramsAfterDivisorCheck) {
  Host::SetCmos (0x6F, 0x06);
  std::vector<Access> Expected = {Out (0x70, 0x6F), In (0x71, 0x06)};
  for (UINT64 Base : {0x3F8, 0x2F8}) {
    AppendDivisorCheck (Expected, Base, 1);
    AppendProgramming (Expected, Base, 12);
  }

  EXPECT_EQ (TraceOf ([] { EXPECT_EQ (SerialPortInitialize (), EFI_SUCCESS); }), Expected);
}

TEST_F (DebugSinkTest, WriteSendsFifoSizedChunksToBothPorts) {
  const std::string   Text     = "0123456789ABCDEFghij";
  std::vector<Access> Expected = {In (0x3FA, 0xC1)};
  for (size_t Start = 0; Start < Text.size (); Start += 16) {
    Expected.push_back (In (0x3FD, 0x60));
    Expected.push_back (In (0x2FD, 0x60));
    for (UINT64 Port : {0x3F8, 0x2F8}) {
      for (char Byte : Text.substr (Start, 16))
        Expected.push_back (Out (Port, (UINT8)Byte));
    }
  }

  UINTN Written = 0;
  EXPECT_EQ (TraceOf ([&] { Written = SerialPortWrite ((UINT8 *)Text.data (), Text.size ()); }), Expected);
  EXPECT_EQ (Written, Text.size ());
  EXPECT_EQ (Host::SerialOutput (), Text);
  EXPECT_EQ (Host::SerialBytesWritten (Host::kCom2), Text.size ());
}

TEST_F (DebugSinkTest, WriteBeforeFifoEnabledSendsNothing) {
  Host::PowerOn (MachineConfiguration ());
  Host::ClearSerialOutput ();
  UINT8 Byte = 'x';
  EXPECT_EQ (TraceOf ([&] { EXPECT_EQ (SerialPortWrite (&Byte, 1), 0U); }), std::vector<Access> ({In (0x3FA, 0x01)}));
  EXPECT_EQ (Host::SerialBytesWritten (), 0U);
}

TEST_F (DebugSinkTest, SharedRecordHoldsEveryProcessorAndIsReused) {
  VORN_MT_DEBUG_SHARED_DATA *Record = nullptr;
  ASSERT_EQ (Host::Smst ()->SmmLocateProtocol (&gVornMtDebugSharedDataGuid, nullptr, (VOID **)&Record), EFI_SUCCESS);
  ASSERT_EQ (Record, mVornMtDebugSharedData);
  EXPECT_EQ (Record->Lock, 1U);
  ASSERT_NE (Record->ProcessorInfo, nullptr);
  for (UINTN Cpu = 0; Cpu < Host::NumberOfCpus (); Cpu++) {
    const EFI_PROCESSOR_INFORMATION &Info     = Record->ProcessorInfo[Cpu];
    const EFI_CPU_PHYSICAL_LOCATION  Location = Host::CpuLocation (Cpu);
    EXPECT_EQ (Info.ProcessorId, Host::ApicId (Cpu)) << Cpu;
    EXPECT_EQ (std::tie (Info.Location.Package, Info.Location.Core, Info.Location.Thread),
               std::tie (Location.Package, Location.Core, Location.Thread))
        << Cpu;
  }

  // A second module starts with its own zeroed library data.
  ModuleImageLoad ();
  EXPECT_EQ (VornMultiThreadedDebugLibConstructor (Host::ImageHandle (), Host::SystemTable ()), EFI_SUCCESS);
  EXPECT_EQ (mVornMtDebugSharedData, Record);

  EFI_HANDLE Handles[4];
  UINTN      Size = sizeof (Handles);
  ASSERT_EQ (Host::Smst ()->SmmLocateHandle (ByProtocol, &gVornMtDebugSharedDataGuid, nullptr, &Size, Handles),
             EFI_SUCCESS);
  EXPECT_EQ (Size, sizeof (EFI_HANDLE));

  Host::SetCurrentCpu (3);
  DEBUG ((DEBUG_INFO, "%a: second module\n", "Fn"));
  EXPECT_EQ (SerialLines (), std::vector<std::string> ({Line (3, "Fn: second module")}));
}

TEST_F (DebugSinkTest, EveryProcessorPrintsItsOwnPrefix) {
  std::vector<std::string> Expected;
  for (UINTN Cpu = 0; Cpu < Host::NumberOfCpus (); Cpu++) {
    Host::SetCurrentCpu (Cpu);
    DEBUG ((DEBUG_INFO, "%a: Status = %r\n", "Fn", EFI_NOT_FOUND));
    Expected.push_back (Line (Cpu, "Fn: Status = Not Found"));
  }

  EXPECT_EQ (SerialLines (), Expected);
}

TEST_F (DebugSinkTest, LongMessageCutTo255AndEmptyMessageSkipped) {
  const std::string Long (300, 'm');
  DEBUG ((DEBUG_INFO, "%a", Long.c_str ()));
  DEBUG ((DEBUG_INFO, "%a", ""));
  EXPECT_EQ (Host::SerialOutput (), CpuPrefix (0) + Long.substr (0, 255));
}

class OutsideSmmTest : public MachineTest {
protected:
  Host::MachineConfig MachineConfiguration () const override {
    Host::MachineConfig Config;
    Config.InSmm = FALSE;
    return Config;
  }
};

TEST_F (OutsideSmmTest, PrintsWithoutPrefixOrSharedRecord) {
  VORN_MT_DEBUG_SHARED_DATA *Record = nullptr;
  EXPECT_EQ (Host::Smst ()->SmmLocateProtocol (&gVornMtDebugSharedDataGuid, nullptr, (VOID **)&Record), EFI_NOT_FOUND);
  EXPECT_EQ (mVornMtDebugSharedData, nullptr);

  Host::SetCurrentCpu (5);
  DEBUG ((DEBUG_INFO, "%a: outside\n", "Fn"));
  EXPECT_EQ (Host::SerialOutput (), "Fn: outside\r\n");
}

struct LevelCase {
  UINT32 PlatformLevel;
  UINTN  MessageLevel;
  bool   Printed;
};

void PrintTo (const LevelCase &Case, std::ostream *Out) {
  *Out << Format ("Enabled%08X_Level%08X_%s", Case.PlatformLevel, static_cast<UINT32> (Case.MessageLevel),
                  Case.Printed ? "Printed" : "Dropped");
}

class LevelFilterTest : public MachineTest, public ::testing::WithParamInterface<LevelCase> {
protected:
  Host::MachineConfig MachineConfiguration () const override {
    Host::MachineConfig Config;
    Config.DebugPrintErrorLevel = GetParam ().PlatformLevel;
    return Config;
  }
};

TEST_P (LevelFilterTest, PrintsOnlyLevelsThePlatformEnables) {
  DEBUG ((GetParam ().MessageLevel, "%a: level\n", "Fn"));
  EXPECT_EQ (Host::SerialOutput (), GetParam ().Printed ? Line (0, "Fn: level\r\n") : "");
}

INSTANTIATE_TEST_SUITE_P (Levels,
                          LevelFilterTest,
                          ::testing::Values (LevelCase{0x80000040, DEBUG_INFO, true},
                                             LevelCase{0x80000000, DEBUG_INFO, false},
                                             LevelCase{0x80000000, DEBUG_ERROR, true},
                                             LevelCase{0x00400001, DEBUG_VERBOSE, true},
                                             LevelCase{0x00000000, DEBUG_ERROR, false}),
                          ::testing::PrintToStringParamName ());

TEST_F (DebugSinkTest, AssertionPrintsOneLineAndBreaks) {
  const UINT64 Before = Host::BreakpointCount ();
  int          Value  = 0;
  Host::SetCurrentCpu (2);
  const int AssertLine = __LINE__ + 1;
  ASSERT (Value == 1);
  DebugPrint (DEBUG_INFO, nullptr);

  EXPECT_EQ (
      SerialLines (),
      std::vector<std::string> ({
          Line (2, "ASSERT [VornApeiLoggingSmm] DebugSinkTest.cpp(" + std::to_string (AssertLine) + "): Value == 1"),
          Line (2, "ASSERT [VornApeiLoggingSmm] VornMultiThreadedDebugLib(437): Format != ((void *) 0)"),
      }));
  EXPECT_EQ (Host::BreakpointCount (), Before + 2);
}

class NoBreakpointTest : public MachineTest {
protected:
  Host::MachineConfig MachineConfiguration () const override {
    Host::MachineConfig Config;
    Config.DebugPropertyMask = 0x0F;
    return Config;
  }
};

TEST_F (NoBreakpointTest, AssertionReturnsWithoutBreakOrDeadLoopBits) {
  const UINT64 Before = Host::BreakpointCount ();
  DebugAssert ("File.c", 12, "Ptr != ((void *) 0)");
  EXPECT_EQ (SerialLines (),
             std::vector<std::string> ({Line (0, "ASSERT [VornApeiLoggingSmm] File.c(12): Ptr != ((void *) 0)")}));
  EXPECT_EQ (Host::BreakpointCount (), Before);
}

struct ConstructorFault {
  const char   *Name;
  Host::Service Which;
  Host::Fault   What;
  EFI_STATUS    Expected;
};

void PrintTo (const ConstructorFault &Case, std::ostream *Out) {
  *Out << Case.Name;
}

class SinkConstructorFaultTest : public MachineTest, public ::testing::WithParamInterface<ConstructorFault> {};

TEST_P (SinkConstructorFaultTest, ReturnsStatusAndPublishesNothing) {
  Host::PowerOn (MachineConfiguration ());
  ModuleImageLoad ();
  Host::SetFault (GetParam ().Which, GetParam ().What);
  EXPECT_EQ (VornMultiThreadedDebugLibConstructor (Host::ImageHandle (), Host::SystemTable ()), GetParam ().Expected);
  Host::ClearFaults ();

  VORN_MT_DEBUG_SHARED_DATA *Record = nullptr;
  EXPECT_EQ (Host::Smst ()->SmmLocateProtocol (&gVornMtDebugSharedDataGuid, nullptr, (VOID **)&Record), EFI_NOT_FOUND);
  EXPECT_EQ (mVornMtDebugSharedData, nullptr);
}

INSTANTIATE_TEST_SUITE_P (
    Faults,
    SinkConstructorFaultTest,
    ::testing::Values (
        ConstructorFault{"SmmBase2Absent", Host::Service::SmmBase2, {Host::FaultKind::Absent}, EFI_NOT_FOUND},
        ConstructorFault{"CpuServiceAbsent", Host::Service::SmmCpuService, {Host::FaultKind::Absent}, EFI_NOT_FOUND},
        ConstructorFault{"RecordPoolFails", Host::Service::SmmAllocatePool, {}, EFI_OUT_OF_RESOURCES},
        ConstructorFault{"TablePoolFails",
                         Host::Service::SmmAllocatePool,
                         {Host::FaultKind::Fail, EFI_DEVICE_ERROR, 1},
                         EFI_OUT_OF_RESOURCES},
        ConstructorFault{"InstallFails", Host::Service::SmmInstallProtocolInterface, {}, EFI_ABORTED}),
    [] (const ::testing::TestParamInfo<ConstructorFault> &Info) { return std::string (Info.param.Name); });

TEST_F (DebugSinkTest, LinesOfTwoProcessorsNeverInterleave) {
  constexpr int kLinesPerCpu = 400;
  const UINTN   Cpus[2]      = {1, 14};
  auto          Printer      = [&] (UINTN Cpu) {
    Host::SetCurrentCpu (Cpu);
    for (int Index = 0; Index < kLinesPerCpu; Index++) {
      DEBUG ((DEBUG_INFO, "%a: line %d from processor %d, long enough to span several FIFO chunks\n", "Fn", Index,
              (int)Cpu));
    }
  };

  std::thread First (Printer, Cpus[0]);
  std::thread Second (Printer, Cpus[1]);
  First.join ();
  Second.join ();

  // Each processor's lines arrive whole and in its own order.
  int                            Next[2] = {0, 0};
  const std::vector<std::string> Lines   = SerialLines ();
  ASSERT_EQ (Lines.size (), 2U * kLinesPerCpu);
  for (const std::string &Text : Lines) {
    const int Which = (Text.rfind (CpuPrefix (Cpus[0]), 0) == 0) ? 0 : 1;
    ASSERT_EQ (Text,
               Line (Cpus[Which], "Fn: line " + std::to_string (Next[Which]) + " from processor " +
                                      std::to_string (Cpus[Which]) + ", long enough to span several FIFO chunks"));
    Next[Which]++;
  }
}

} // namespace

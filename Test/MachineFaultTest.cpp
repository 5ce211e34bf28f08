/** @file
  Contained machine faults: module code that reads outside the machine's
  memory or never returns ends its entry with a MachineFault, the flash keeps
  what was programmed before, and the next boot works as after a reset. Host
  bugs are not contained. Entries from two host threads run one at a time.
**/
#include <alloca.h>
#include <pthread.h>
#include <sys/mman.h>

#include <cstring>
#include <thread>
#include <iostream>

#include <gtest/gtest.h>

#include <Firmware.h>
#include <SpiFlash.h>
#include <VornsimShell.h>

#include "Builder/AcpiRoot.h"
#include "Builder/Boot.h"
#include "Builder/ModuleImage.h"
#include "Builder/FlashImage.h"
#include "Decode/ErstStoreReader.h"
#include "Handlers/CperBuilder.h"
#include "Handlers/ErrorHandlerAgent.h"
#include "Os/ErstDriver.h"
#include "Os/OsApei.h"

#include <Library/DebugLib.h>
#include <VornApeiLoggingSmm.h>

namespace {

using Host::MachineFaultKind;

constexpr UINT64 kStored[] = {1, 2, 3, 4, 5};

Host::MachineConfig Machine () {
  Host::MachineConfig Config = Sim::DefaultMachine ();
  Config.WatchdogLines       = 5000; // a runaway is stopped quickly
  Config.WatchdogSeconds     = 1;
  return Config;
}

Sim::BootResult Boot () {
  Sim::BootOptions Options;
  Options.Machine = Machine ();
  return Sim::Boot (Options);
}

std::vector<UINT8> Record (Cper::SectionKind Kind, UINT64 RecordId) {
  Cper::RecordSpec Spec;
  Spec.Kind     = Kind;
  Spec.RecordId = RecordId;
  return Cper::BuildRecord (Spec);
}

//
// A record with one 32-bit field overwritten, as the malformed records the
// issue met: a first section 0xFFFFFFF0 bytes into the record, a PCI
// component section claiming four billion register pairs.
//
std::vector<UINT8> Patched (Cper::SectionKind Kind, UINT64 RecordId, size_t Offset, UINT32 Value) {
  std::vector<UINT8> Bytes = Record (Kind, RecordId);
  std::memcpy (Bytes.data () + Offset, &Value, sizeof (Value));
  return Bytes;
}

std::vector<UINT8> FarSectionRecord (UINT64 RecordId) {
  return Patched (Cper::SectionKind::Memory, RecordId, sizeof (EFI_COMMON_ERROR_RECORD_HEADER), 0xFFFFFFF0);
}

std::vector<UINT8> Image () {
  const auto Flash = Host::Flash::Image ();
  return {Flash.begin (), Flash.end ()};
}

std::vector<UINT64> ListedAfterBoot () {
  const Sim::BootResult Booted = Boot ();
  EXPECT_EQ (Booted.Status, EFI_SUCCESS);
  return Sim::ErstDriver (Booted.Platform.Erst).List (Sim::ErstDriver::kListLimit, nullptr, true).Ids;
}

//
// Record 3's section moves far away and record 4 is cleared: the next
// start-up defragments, rewrites 1 and 2, then faults on 3.
//
void DamageThirdClearFourth () {
  const auto   Store = Sim::ReadErstStore (*Sim::FindErrorLogVolume ());
  const UINT32 Far   = 0xFFFFFFF0;
  const UINT8  Clear = ERST_RECORD_CLEAR_FLAG_VALUE;
  Host::Flash::Poke (Store.Records[2].Header.OsRecordAddress + sizeof (EFI_COMMON_ERROR_RECORD_HEADER),
                     {reinterpret_cast<const UINT8 *> (&Far), sizeof (Far)});
  Host::Flash::Poke (Store.Records[3].Header.OsRecordFlagsAddress +
                         offsetof (ERST_ERROR_RECORD_FLAGS, RecordClearPerOspm),
                     {&Clear, 1});
}

//
// Start-up over the default tables after Patch changed them; the first
// error source is the NMI one, whose status block a fatal record fills.
//
std::vector<UINT8> mHostBytes (64, 0x5A);

UINT64 HostAddress (const std::vector<UINT8> &Bytes) {
  return reinterpret_cast<UINT64> (Bytes.data ());
}

void StartWith (void (*Patch) (const Sim::AcpiPlatform &)) {
  Host::PowerOn (Machine ());
  ModuleImageLoad ();
  const Sim::AcpiPlatform Platform = Sim::BuildDefaultAcpiPlatform ();
  Patch (Platform);
  Host::FirmwareScope Firmware (Host::EntryKind::ModuleEntry);
  _ModuleEntryPoint (Host::ImageHandle (), Host::SystemTable ());
}

//
// The first GHES's Error Status Address names host memory: the lookup's
// read must fault there, not read it.
//
void StartWithHostStatusAddress () {
  StartWith ([] (const Sim::AcpiPlatform &Platform) {
    auto *const  Hest  = Host::At<UINT8> (Platform.Hest);
    const UINT64 Named = Platform.StatusBlocks.front ().StatusAddressRegister;
    const UINT64 Host  = HostAddress (mHostBytes);
    for (UINT8 *At = Hest; At != Hest + reinterpret_cast<EFI_ACPI_DESCRIPTION_HEADER *> (Hest)->Length; At++) {
      if (std::memcmp (At, &Named, sizeof (Named)) == 0) {
        std::memcpy (At, &Host, sizeof (Host));
      }
    }
  });
}

//
// The HEST claims 4 GiB and a fourth source; the SCI and page-retire sources
// move up and the third turns into an NMI structure whose step lands on a
// host page above the window holding the NMI source. The walk must fault
// there, not take it.
//
constexpr UINT64 kAboveWindow = 0x60000000;

void StartWithHestWalkAboveWindow () {
  StartWith ([] (const Sim::AcpiPlatform &Platform) {
    static auto *const Page =
        static_cast<UINT8 *> (mmap (reinterpret_cast<void *> (kAboveWindow), 0x1000, PROT_READ | PROT_WRITE,
                                    MAP_FIXED_NOREPLACE | MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_EQ (reinterpret_cast<UINT64> (Page), kAboveWindow);
    constexpr size_t Size  = sizeof (EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE);
    auto *const      Hest  = Host::At<EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_HEADER> (Platform.Hest);
    UINT8 *const     First = reinterpret_cast<UINT8 *> (Hest + 1);
    UINT8 *const     Last  = First + 2 * Size;
    std::memcpy (Page, First, Size);
    std::memmove (First, First + Size, 2 * Size);
    const UINT16 Nmi  = EFI_ACPI_6_3_IA32_ARCHITECTURE_NMI_ERROR;
    const UINT32 Step = static_cast<UINT32> (kAboveWindow - reinterpret_cast<UINT64> (Last) - 18);
    std::memcpy (Last, &Nmi, sizeof (Nmi));
    std::memcpy (Last + 14, &Step, sizeof (Step));
    Hest->Header.Length    = 0xFFFFFFFF;
    Hest->ErrorSourceCount = 4;
  });
}

//
// The NMI status block's Error Status Address register holds a host
// address, then the OS enables APEI: a fatal record must fault on the block.
//
void StartWithHostStatusBlock () {
  StartWith ([] (const Sim::AcpiPlatform &Platform) {
    *Host::At<UINT64> (Platform.StatusBlocks.front ().StatusAddressRegister) = HostAddress (mHostBytes);
  });
  Sim::OsEnableApei ();
}

//
// A module print on a stack with less than 512 bytes left (the stack taken
// without the sanitizer's bookkeeping, which needs stack of its own; no
// cleanup here, which would need stack to unwind).
//
__attribute__ ((no_sanitize_address)) void PrintOnLastBytesOfStack () {
  pthread_attr_t Attributes;
  void          *Low;
  size_t         Size;
  pthread_getattr_np (pthread_self (), &Attributes);
  pthread_attr_getstack (&Attributes, &Low, &Size);
  pthread_attr_destroy (&Attributes);
  UINT8 *Sp;
  asm volatile("mov %%rsp, %0" : "=r"(Sp));
  auto *Used = static_cast<volatile UINT8 *> (alloca (Sp - static_cast<UINT8 *> (Low) - 512));
  Used[0]    = 0;
  DebugPrint (DEBUG_ERROR, "%a\n", "the stack runs out");
}

//
// The OS's error-log buffer is host memory holding a good record.
//
const std::vector<UINT8> mHostRecord = Record (Cper::SectionKind::Memory, 6);

void ErstWriteFromHostMemory () {
  Boot ();
  mPrivateDataVornApeiLogging.pErstParameterBlock->ErrorLogAddressRange = HostAddress (mHostRecord);
  mPrivateDataVornApeiLogging.pErstParameterBlock->LogOffset            = 0;
  mPrivateDataVornApeiLogging.pErstParameterBlock->Command              = ERST_PERSISTENT_SET_RECORD;
  Host::RaiseSwSmi (0x9C, 0);
}

void RecordAtNonCanonicalAddress () {
  Host::FirmwareScope Firmware (Host::EntryKind::HandlerSmi, "ElogRecord call");
  mVornApeiLoggingSmmProtocol.ElogRecord (
      &mVornApeiLoggingSmmProtocol, reinterpret_cast<CPER_RECORD *> (0x8000000000000000), EFI_GENERIC_ERROR_FATAL);
}

void PrintOnAThreadsLastBytes () {
  Boot ();
  std::optional<Host::MachineFault> Fault;
  std::thread ([&Fault] {
    Fault = Host::Contained ([] {
      Host::FirmwareScope Firmware (Host::EntryKind::HostPrinter, "a printer");
      PrintOnLastBytesOfStack ();
    });
  }).join ();
  throw Fault.value ();
}

template <typename Action> Host::MachineFault FaultOf (Action &&Act) {
  const std::optional<Host::MachineFault> Fault = Host::Contained (Act);
  EXPECT_TRUE (Fault.has_value ()) << "no machine fault";
  return Fault.value_or (Host::MachineFault ());
}

bool Through (const Host::MachineFault &Fault, const std::string &Function) {
  for (const Host::CodeLocation &Frame : Fault.Where (8)) {
    if (Frame.Function == Function) {
      return true;
    }
  }

  return false;
}

//
// One case: what is done to the stored records or the platform, then what
// faults, and what the next boot must find.
//
struct FaultCase {
  const char *Name;
  void (*Arrange) (); // after records 1 to 5 were stored
  void (*Act) ();
  MachineFaultKind    Kind;
  const char         *Function; // on the faulting stack
  bool                FlashUnchanged;
  std::vector<UINT64> ListedAfter;
  UINT64              Address = 0; // reported; 0: not checked
};

class MachineFaultTest : public ::testing::TestWithParam<FaultCase> {
protected:
  void SetUp () override {
    Host::Flash::AttachMemory (FlashImage::BuildDefault ());
    Sim::ErstDriver Os (Boot ().Platform.Erst);
    for (UINT64 Id : kStored) {
      ASSERT_EQ (Os.Write (Record (Cper::SectionKind::Memory, Id)), Sim::ErstResult::Success);
    }
  }

  void TearDown () override {
    Host::Flash::SetOptions ({});
    Host::SetSerialSink (nullptr);
  }
};

TEST_P (MachineFaultTest, FaultIsReportedAndTheNextBootWorks) {
  const FaultCase &Case = GetParam ();
  Case.Arrange ();
  const std::vector<UINT8> Before = Image ();

  const Host::MachineFault Fault = FaultOf (Case.Act);
  EXPECT_EQ (Fault.Kind, Case.Kind) << Fault.what ();
  EXPECT_TRUE ((Case.Address == 0) || (Fault.Address == Case.Address)) << Fault.what ();
  EXPECT_TRUE (Through (Fault, Case.Function)) << Fault.what ();
  EXPECT_FALSE (Host::InFirmware ());
  EXPECT_TRUE (Host::Flash::ProgramFaults ().empty ());
  if (Case.FlashUnchanged) {
    EXPECT_EQ (Image (), Before);
  }

  Host::Flash::SetOptions ({});
  EXPECT_EQ (ListedAfterBoot (), Case.ListedAfter);
}

INSTANTIATE_TEST_SUITE_P (
    IssueCases,
    MachineFaultTest,
    ::testing::Values (
        FaultCase{"ErstWriteOfFarSection",
                  [] {},
                  [] { Sim::ErstDriver (Boot ().Platform.Erst).Write (FarSectionRecord (6)); },
                  MachineFaultKind::Read,
                  "DisplayCperSectionMemory",
                  true,
                  {1, 2, 3, 4, 5}},
        FaultCase{"InjectOfEndlessPairs",
                  [] {},
                  [] {
                    Boot ();
                    Sim::OsEnableApei ();
                    Sim::ErrorHandlerAgent ().Report (
                        Patched (Cper::SectionKind::PciComponent, 7, 200 + 32, 0xFFFFFFFF),
                        EFI_GENERIC_ERROR_RECOVERABLE);
                  },
                  MachineFaultKind::Watchdog,
                  "DisplayCperSectionPciComponent",
                  false, // enabling APEI marked the records obsolete first
                  {}},
        FaultCase{"DefragmentationOfFarSection",
                  DamageThirdClearFourth,
                  [] { Boot (); },
                  MachineFaultKind::Read,
                  "DisplayCperSectionMemory",
                  false,
                  {1, 2}},
        FaultCase{"ApeiEnableWithoutVolumeBlocks",
                  [] { Host::Flash::SetOptions ({.InstallSpiProtocol = TRUE, .InstallVolumeProtocols = FALSE}); },
                  [] {
                    Boot ();
                    Sim::OsEnableApei ();
                  },
                  MachineFaultKind::Read,
                  "VornApeiLoggingErstMarkObsoleteRecords",
                  true,
                  {1, 2, 3, 4, 5}},
        FaultCase{"StatusAddressInHostMemory",
                  [] {},
                  StartWithHostStatusAddress,
                  MachineFaultKind::Read,
                  "VornApeiLoggingFindHestGhess",
                  true,
                  {1, 2, 3, 4, 5},
                  reinterpret_cast<UINT64> (mHostBytes.data ())},
        FaultCase{"HestWalkAboveTheWindow",
                  [] {},
                  StartWithHestWalkAboveWindow,
                  MachineFaultKind::Read,
                  "VornApeiLoggingFindHestGhess",
                  true,
                  {1, 2, 3, 4, 5},
                  kAboveWindow},
        FaultCase{
            "StatusBlockInHostMemory",
            StartWithHostStatusBlock, // enabling APEI marks the records obsolete
            [] { Sim::ErrorHandlerAgent ().Report (Record (Cper::SectionKind::Memory, 7), EFI_GENERIC_ERROR_FATAL); },
            MachineFaultKind::Read,
            "VornApeiLoggingElogRecord",
            true,
            {},
            HostAddress (mHostBytes)},
        FaultCase{"ErstWriteFromHostMemory",
                  [] {},
                  ErstWriteFromHostMemory,
                  MachineFaultKind::Read,
                  "VornApeiLoggingErstElogSwSmiCallback",
                  true,
                  {1, 2, 3, 4, 5},
                  HostAddress (mHostRecord) + OFFSET_OF (EFI_COMMON_ERROR_RECORD_HEADER, RecordID)},
        FaultCase{"RecordAtNonCanonicalAddress",
                  [] {
                    Boot ();
                    Sim::OsEnableApei ();
                  },
                  RecordAtNonCanonicalAddress,
                  MachineFaultKind::GeneralProtection,
                  "VornApeiLoggingElogRecord",
                  true,
                  {}},
        FaultCase{"StackRunsOut",
                  [] {},
                  PrintOnAThreadsLastBytes,
                  MachineFaultKind::StackOverflow,
                  "DebugPrint",
                  true,
                  {1, 2, 3, 4, 5}}),
    [] (const auto &Info) { return std::string (Info.param.Name); });

//
// vornsim reports the fault, what and where, and exits with status 1; the
// image file keeps what defragmentation had programmed before it faulted.
//
TEST (MachineFaultReportTest, VornsimReportsAndTheImageKeepsWhatWasProgrammed) {
  VornsimShell Vornsim;
  for (UINT64 Id : kStored) {
    ASSERT_EQ (Vornsim ("erst write --generate --id " + std::to_string (Id)).Status, 0);
  }

  Host::Flash::AttachMemory (Vornsim.Read ("vornsim-flash.img"));
  Host::PowerOn ();
  DamageThirdClearFourth ();
  Vornsim.Write ("vornsim-flash.img", Image ());

  const VornsimShell::Result Faulted = Vornsim ("reboot");
  EXPECT_EQ (Faulted.Status, 1);
  for (const char *Text : {"vornsim: machine fault: read at ", "the module entry on processor 0",
                           "in DisplayCperSectionMemory (Library/ElogBaseLib/CperSectionDumpMemory.cpp:",
                           "on hardware this resets the machine"}) {
    EXPECT_NE (Faulted.Err.find (Text), std::string::npos) << Text << "\n" << Faulted.Err;
  }

  const std::vector<std::string> Listed = Vornsim ("erst list --all").Out;
  ASSERT_GE (Listed.size (), 2U);
  EXPECT_EQ (std::vector<std::string> (Listed.end () - 2, Listed.end ()),
             (std::vector<std::string>{"os:   0x0000000000000001", "os:   0x0000000000000002"}));
}

//
// A loop that prints nothing is stopped by the processor-time budget, in the
// middle of module code.
//
TEST (MachineFaultWatchdogTest, SilentLoopIsStoppedByProcessorTime) {
  Host::PowerOn (Machine ());
  const Host::MachineFault Fault = FaultOf ([] {
    Host::FirmwareScope Firmware (Host::EntryKind::HostPrinter, "a checksum loop");
    for (;;) {
      VornApeiLoggingCalculateChecksum (reinterpret_cast<UINT8 *> (Host::kSmramBase), 0x100000);
    }
  });

  EXPECT_EQ (Fault.Kind, MachineFaultKind::Watchdog);
  EXPECT_NE (Fault.Reason.find ("processor time"), std::string::npos) << Fault.what ();
  EXPECT_TRUE (Through (Fault, "VornApeiLoggingCalculateChecksum")) << Fault.what ();
}

//
// A host bug inside an entry still crashes: only module code is contained.
//
TEST (MachineFaultDeathTest, HostFaultInsideAnEntryCrashes) {
  Host::PowerOn (Machine ());
  EXPECT_DEATH (
      {
        Host::FirmwareScope Firmware (Host::EntryKind::HostPrinter, "a host bug");
        *reinterpret_cast<volatile UINT32 *> (0x14000000) = 1; // past boot-services memory
      },
      "");
}

//
// Two processors raising the ERST SMI at once: one handler runs at a time,
// so the store's counters match what is on flash.
//
TEST (SmiSerialisationTest, TwoThreadsWritingKeepTheStoreConsistent) {
  constexpr int kWritesPerThread = 40;
  Host::Flash::AttachMemory (FlashImage::BuildDefault ());
  const Sim::BootResult Booted = Boot (); // the default print level makes each SMI long enough to overlap
  Sim::ErstDriver       Os (Booted.Platform.Erst);
  const auto            Bytes = Record (Cper::SectionKind::Memory, 9);
  std::memcpy (reinterpret_cast<void *> (Os.ErrorLog ().Base), Bytes.data (), Bytes.size ());

  //
  // The OS put the command in place once; each processor only raises the SMI.
  //
  Os.Interpreter ().Reset ();
  Os.Interpreter ().Run (EFI_ACPI_6_3_ERST_BEGIN_WRITE_OPERATION);
  auto Raise = [] (UINTN Cpu) {
    for (int Write = 0; Write < kWritesPerThread; Write++) {
      Host::RaiseSwSmi (0x9C, Cpu);
    }
  };
  std::thread First (Raise, 1);
  std::thread Second (Raise, 2);
  First.join ();
  Second.join ();

  const auto Store = Sim::ReadErstStore (*Sim::FindErrorLogVolume ());
  EXPECT_EQ (Store.Records.size (), 2U * kWritesPerThread);
  EXPECT_EQ (mPrivateDataVornApeiLogging.pErstParameterBlock->RecordCount, 2U * kWritesPerThread);
  EXPECT_EQ (mPrivateDataVornApeiLogging.pErstSpiStoreInformation->SpiAddressStartAvailableStorage, Store.End);
}

} // namespace

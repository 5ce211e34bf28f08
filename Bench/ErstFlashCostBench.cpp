/** @file
  What each ERST command and each start-up phase of the record store costs
  in SPI flash work and in serial log, for stores of 0, 100 and 1000
  records. Wall time on the host says little; the counters say what the
  module asks of the part, and the modelled times what that costs on a
  typical SPI NOR device behind a 115200-baud console:

    page program      0.4 ms per 256-byte page (each program operation costs
                      the pages it touches)
    sector erase      45 ms per 4 KiB sector
    block erase       150 ms per 64 KiB block, used for every 64 KiB-aligned
                      64 KiB span inside an erase
    read              50 MHz single I/O: 6.25 MB/s
    serial            86.8 us per byte
**/
#include <cstring>
#include <functional>
#include <map>
#include <stdexcept>
#include <vector>

#include <benchmark/benchmark.h>

#include <Guid/WheaElogFv.h>
#include <SpiFlash.h>
#include <VornApeiLoggingSmm.h>

#include "Builder/Boot.h"
#include "Handlers/CperBuilder.h"
#include "Os/ErstDriver.h"
#include "Builder/FlashImage.h"

namespace {

constexpr double kPageProgramMs  = 0.4;
constexpr UINT64 kPageSize       = 256;
constexpr double kSectorEraseMs  = 45.0;
constexpr double kBlockEraseMs   = 150.0;
constexpr UINT64 kBlockSize      = 0x10000;
constexpr double kReadBytesPerMs = 6250.0;
constexpr double kUartByteMs     = 0.0868;

// The default error-log volume holds about 350 records of the size used
// here; the bench moves it to the erased 512 KiB at 0xE80000.
constexpr UINT64 kElogOffset = 0xE80000;
constexpr UINT32 kElogBlocks = 128;

//
// Modelled time of the flash operations seen through the SPI protocol.
//
struct FlashTime {
  double ProgramMs = 0;
  double EraseMs   = 0;
  double ReadMs    = 0;
};

FlashTime             mTime;
VORN_SMM_SPI_PROTOCOL mOriginal;

EFI_STATUS EFIAPI TapErase (CONST VORN_SMM_SPI_PROTOCOL *This, UINT64 Address, UINT32 NumBytes) {
  for (UINT64 At = Address, End = Address + NumBytes; At < End;) {
    const bool Block = (At % kBlockSize == 0) && (End - At >= kBlockSize);
    mTime.EraseMs += Block ? kBlockEraseMs : kSectorEraseMs;
    At += Block ? kBlockSize : Host::Flash::kSectorSize;
  }
  return mOriginal.Erase (This, Address, NumBytes);
}

EFI_STATUS EFIAPI TapWrite (CONST VORN_SMM_SPI_PROTOCOL *This, UINT64 Address, UINT32 NumBytes, UINT8 *Buffer) {
  if (NumBytes != 0) {
    mTime.ProgramMs +=
        kPageProgramMs * static_cast<double> ((Address + NumBytes - 1) / kPageSize - Address / kPageSize + 1);
  }
  return mOriginal.Write (This, Address, NumBytes, Buffer);
}

EFI_STATUS EFIAPI TapRead (CONST VORN_SMM_SPI_PROTOCOL *This, UINT64 Address, UINT32 NumBytes, UINT8 *Buffer) {
  mTime.ReadMs += static_cast<double> (NumBytes) / kReadBytesPerMs;
  return mOriginal.Read (This, Address, NumBytes, Buffer);
}

//
// Routes the installed SPI protocol through the taps; runs after every
// power-on, once the flash protocols are installed.
//
void TapSpiProtocol () {
  VORN_SMM_SPI_PROTOCOL *Spi = nullptr;
  if (Host::Smst ()->SmmLocateProtocol (&gVornSmmSpiProtocolGuid, nullptr, reinterpret_cast<VOID **> (&Spi)) !=
      EFI_SUCCESS) {
    return;
  }
  mOriginal  = *Spi;
  Spi->Erase = TapErase;
  Spi->Write = TapWrite;
  Spi->Read  = TapRead;
}

std::vector<UINT8> BenchImage () {
  std::vector<FlashImage::VolumeSpec> Layout = FlashImage::DefaultLayout ();
  for (FlashImage::VolumeSpec &Volume : Layout) {
    if (Volume.Offset == FlashImage::kElogVolumeOffset) {
      Volume.Offset         = kElogOffset;
      Volume.NumberOfBlocks = kElogBlocks;
    }
  }
  return FlashImage::Build (Host::Flash::kDefaultSize, Layout);
}

std::vector<UINT8> Record (UINT64 RecordId) {
  Cper::RecordSpec Spec;
  Spec.RecordId = RecordId;
  return Cper::BuildRecord (Spec);
}

//
// Boots on Image; the driver is the OS's view of the patched ERST.
//
Sim::ErstDriver BootOn (std::span<const UINT8> Image, UINT32 PrintLevel) {
  Host::Flash::AttachMemory (Image);
  Host::AddPowerOnHook ("ErstFlashCostBenchTap", TapSpiProtocol);
  Sim::BootOptions Options;
  Options.Machine.DebugPrintErrorLevel = PrintLevel;
  const Sim::BootResult Booted         = Sim::Boot (Options);
  return Sim::ErstDriver (Booted.Platform.Erst);
}

//
// Flash images holding Count records 1..Count, built once per count
// through the module with errors-only logging.
//
const std::vector<UINT8> &Store (UINT64 Count) {
  static std::map<UINT64, std::vector<UINT8>> Stores;
  if (auto Found = Stores.find (Count); Found != Stores.end ()) {
    return Found->second;
  }
  const std::vector<UINT8> Empty = BenchImage ();
  {
    Sim::ErstDriver Os = BootOn (Empty, 0x80000000);
    for (UINT64 Id = 1; Id <= Count; Id++) {
      if (Os.Write (Record (Id)) != Sim::ErstResult::Success) {
        throw std::runtime_error ("the bench store does not take its records");
      }
    }
  }
  const auto Image = Host::Flash::Image ();
  return Stores.emplace (Count, std::vector<UINT8> (Image.begin (), Image.end ())).first->second;
}

//
// Marks every other record obsolete (as firmware does after the OS
// enables APEI) and lets discovery count them, so defragmentation has work.
//
void MarkEveryOtherRecord () {
  const ERST_SPI_STORE_INFORMATION *Info   = mPrivateDataVornApeiLogging.pErstSpiStoreInformation;
  UINT64                            Header = Info->SpiAddressStartErstErrorRecordRegion;
  for (UINT64 Index = 0; Header < Info->SpiAddressStartAvailableStorage; Index++) {
    ERST_ERROR_RECORD_HEADER Record;
    const auto               Bytes = Host::Flash::Peek (Header, sizeof (Record));
    std::memcpy (&Record, Bytes.data (), sizeof (Record));
    if (Index % 2 == 0) {
      VornApeiLoggingErstSetRecordClearPerBios (Record.OsRecordFlagsAddress);
    }
    Header = Record.NextRecordHeaderAddress;
  }
  VornApeiLoggingGetErstPersistentStoreData ();
}

//
// One measured step on a freshly booted store of state.range(0) records:
// Prepare runs unmeasured, Act is what the counters report.
//
void Measure (benchmark::State                              &State,
              const std::function<void (Sim::ErstDriver &)> &Prepare,
              const std::function<void (Sim::ErstDriver &)> &Act) {
  const std::vector<UINT8> &Image = Store (static_cast<UINT64> (State.range (0)));
  Host::Flash::Counters     Before;
  Host::Flash::Counters     After;
  UINT64                    Serial = 0;

  for (auto _ : State) {
    State.PauseTiming ();
    Sim::ErstDriver Os = BootOn (Image, Host::MachineConfig ().DebugPrintErrorLevel);
    Prepare (Os);
    Before            = Host::Flash::Count ();
    mTime             = FlashTime ();
    const UINT64 Uart = Host::SerialBytesWritten ();
    State.ResumeTiming ();

    Act (Os);

    State.PauseTiming ();
    After  = Host::Flash::Count ();
    Serial = Host::SerialBytesWritten () - Uart;
    Host::SetSerialSink (nullptr);
    Host::ClearSerialOutput ();
    State.ResumeTiming ();
  }

  State.counters["reads"]       = static_cast<double> (After.Read.Operations - Before.Read.Operations);
  State.counters["read_bytes"]  = static_cast<double> (After.Read.Bytes - Before.Read.Bytes);
  State.counters["programs"]    = static_cast<double> (After.Program.Operations - Before.Program.Operations);
  State.counters["prog_bytes"]  = static_cast<double> (After.Program.Bytes - Before.Program.Bytes);
  State.counters["erases"]      = static_cast<double> (After.Erase.Operations - Before.Erase.Operations);
  State.counters["erase_bytes"] = static_cast<double> (After.Erase.Bytes - Before.Erase.Bytes);
  State.counters["flash_ms"]    = mTime.ProgramMs + mTime.EraseMs + mTime.ReadMs;
  State.counters["uart_bytes"]  = static_cast<double> (Serial);
  State.counters["uart_ms"]     = static_cast<double> (Serial) * kUartByteMs;
}

void Nothing (Sim::ErstDriver &) {}

// A record in the middle of the store; identifier 1 when it is empty.
UINT64 Middle (const benchmark::State &State) {
  return static_cast<UINT64> (State.range (0)) / 2 + 1;
}

void ErstWrite (benchmark::State &State) {
  const UINT64 Id = static_cast<UINT64> (State.range (0)) + 1;
  Measure (State, Nothing, [Id] (Sim::ErstDriver &Os) { Os.Write (Record (Id)); });
}

void ErstRead (benchmark::State &State) {
  const UINT64 Id = Middle (State);
  Measure (State, Nothing, [Id] (Sim::ErstDriver &Os) { Os.Read (Id); });
}

void ErstClear (benchmark::State &State) {
  const UINT64 Id = Middle (State);
  Measure (State, Nothing, [Id] (Sim::ErstDriver &Os) { Os.Clear (Id); });
}

void ErstCount (benchmark::State &State) {
  Measure (State, Nothing, [] (Sim::ErstDriver &Os) { benchmark::DoNotOptimize (Os.RecordCount ()); });
}

void ErstListStep (benchmark::State &State) {
  Measure (State, Nothing, [] (Sim::ErstDriver &Os) {
    const UINT64 Id = Os.RecordId ();
    if (Id != Sim::ErstDriver::kNoRecord) {
      Os.Read (Id);
    }
  });
}

void StartupDiscovery (benchmark::State &State) {
  Measure (State, Nothing, [] (Sim::ErstDriver &) { VornApeiLoggingGetErstPersistentStoreData (); });
}

void StartupDefragmentHalfCleared (benchmark::State &State) {
  Measure (
      State, [] (Sim::ErstDriver &) { MarkEveryOtherRecord (); },
      [] (Sim::ErstDriver &) { VornApeiLoggingErstDefragment (mPrivateDataVornApeiLogging.SerDbgLevelConstructor); });
}

void StartupClearAll (benchmark::State &State) {
  Measure (State, Nothing, [] (Sim::ErstDriver &) {
    VornApeiLoggingClearEntirePStore (mPrivateDataVornApeiLogging.SerDbgLevelConstructor);
  });
}

#define ERST_COST_BENCHMARK(Function) \
  BENCHMARK (Function)->Arg (0)->Arg (100)->Arg (1000)->Iterations (1)->Unit (benchmark::kMillisecond)

ERST_COST_BENCHMARK (ErstWrite);
ERST_COST_BENCHMARK (ErstRead);
ERST_COST_BENCHMARK (ErstClear);
ERST_COST_BENCHMARK (ErstCount);
ERST_COST_BENCHMARK (ErstListStep);
ERST_COST_BENCHMARK (StartupDiscovery);
ERST_COST_BENCHMARK (StartupDefragmentHalfCleared);
ERST_COST_BENCHMARK (StartupClearAll);

} // namespace

BENCHMARK_MAIN ();

/** @file
  What reporting one error costs a platform handler: ElogRecord plus
  ElogSignalSci for a 1 KiB memory section, at the production print level
  (errors only) and at the default one (info and errors), beside a 1 KiB
  memcpy and a DEBUG call whose level is off.

  Between iterations, untimed, the OS acknowledges the block and the handler
  clears it, so every record is accepted. Each measured operation is a
  function of its own, so that 'valgrind --tool=callgrind
  --toggle-collect=Bench*' counts its instructions per call where hardware
  counters are unavailable.
**/
#include <cstring>

#include <benchmark/benchmark.h>

#include <Host.h>
#include <Library/DebugLib.h>
#include <SpiFlash.h>

#include "Builder/Boot.h"
#include "Handlers/CperBuilder.h"
#include "Builder/FlashImage.h"
#include "Os/OsApei.h"

namespace {

constexpr UINT32 kProductionLevel = 0x80000000; // errors only
constexpr UINT32 kDefaultLevel    = 0x80000040; // info and errors
constexpr UINT32 kSectionLength   = 1024;
constexpr UINT32 kCorrected       = EFI_GENERIC_ERROR_CORRECTED;

struct Machine {
  EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *Protocol       = nullptr;
  CPER_RECORD                        *Record         = nullptr;
  GENERIC_ERROR_STATUS               *SciBlock       = nullptr;
  UINT32                              SciBlockLength = 0;
};

//
// Boots the module at the given print level with the OS's APEI enabled and
// a corrected memory record with a 1 KiB section in SMRAM.
//
Machine Boot (UINT32 PrintLevel) {
  Host::Flash::AttachMemory (FlashImage::BuildDefault ());
  Sim::BootOptions Options;
  Options.Machine.DebugPrintErrorLevel = PrintLevel;
  const Sim::BootResult Booted         = Sim::Boot (Options);
  Sim::OsEnableApei ();

  Machine M;
  Host::Smst ()->SmmLocateProtocol (&gEfiVornApeiLoggingSmmProtocolGuid, nullptr,
                                    reinterpret_cast<VOID **> (&M.Protocol));
  Cper::RecordSpec Spec;
  Spec.BodyLength  = kSectionLength;
  M.Record         = Cper::PlaceInSmram (Cper::BuildRecord (Spec));
  const auto &Sci  = Booted.Platform.StatusBlocks[1]; // source 8
  M.SciBlock       = Host::At<GENERIC_ERROR_STATUS> (Sci.StatusBlock);
  M.SciBlockLength = Sci.StatusBlockLength;
  Host::ClearSerialOutput ();
  return M;
}

//
// The OS acknowledges, the handler clears, and the logs the models keep are
// dropped so that memory stays flat.
//
void Reclaim (const Machine &M) {
  M.SciBlock->BlockStatus = {};
  M.Protocol->ElogClear (M.Protocol, M.SciBlock, M.SciBlockLength);
  Host::ClearSerialOutput ();
  Host::ClearTrace ();
}

__attribute__ ((noinline)) EFI_STATUS BenchRecordAndSignalSci (const Machine &M) {
  const EFI_STATUS Status = M.Protocol->ElogRecord (M.Protocol, M.Record, kCorrected);
  return EFI_ERROR (Status) ? Status : M.Protocol->ElogSignalSci (M.Protocol, 0);
}

__attribute__ ((noinline)) void BenchMemcpy (UINT8 *Destination, const UINT8 *Source) {
  std::memcpy (Destination, Source, kSectionLength);
  benchmark::ClobberMemory ();
}

__attribute__ ((noinline)) void BenchDisabledDebug (UINT32 Value) {
  DEBUG ((DEBUG_INFO, "%a: disabled level, value 0x%08x\n", __func__, Value));
}

void RecordAndSignalSci (benchmark::State &State, UINT32 PrintLevel) {
  const Machine M = Boot (PrintLevel);
  for (auto _ : State) {
    const EFI_STATUS Status = BenchRecordAndSignalSci (M);
    State.PauseTiming ();
    // A record dropped for lack of room still answers success: check the block.
    if (EFI_ERROR (Status) || M.SciBlock->DataLength != sizeof (GENERIC_ERROR_DATA_ENTRY) + kSectionLength) {
      State.SkipWithError ("the record was not accepted");
      break;
    }
    Reclaim (M);
    State.ResumeTiming ();
  }
  State.SetBytesProcessed (static_cast<int64_t> (State.iterations ()) * kSectionLength);
}

void ProductionLevel (benchmark::State &State) {
  RecordAndSignalSci (State, kProductionLevel);
}

void DefaultLevel (benchmark::State &State) {
  RecordAndSignalSci (State, kDefaultLevel);
}

void Memcpy1KiB (benchmark::State &State) {
  static UINT8 Source[kSectionLength];
  static UINT8 Destination[kSectionLength];
  std::memset (Source, 0x5A, sizeof (Source));
  for (auto _ : State) {
    BenchMemcpy (Destination, Source);
  }
  State.SetBytesProcessed (static_cast<int64_t> (State.iterations ()) * kSectionLength);
}

void DisabledDebug (benchmark::State &State) {
  Boot (kProductionLevel);
  UINT32 Value = 0;
  for (auto _ : State) {
    BenchDisabledDebug (Value++);
  }
  // A disabled call must print nothing.
  if (!Host::SerialOutput ().empty ()) {
    State.SkipWithError ("a DEBUG call below the print level printed");
  }
}

} // namespace

BENCHMARK (ProductionLevel)->Name ("ElogRecord+ElogSignalSci/1KiB/errors-only");
BENCHMARK (DefaultLevel)->Name ("ElogRecord+ElogSignalSci/1KiB/info-and-errors");
BENCHMARK (Memcpy1KiB)->Name ("memcpy/1KiB");
BENCHMARK (DisabledDebug)->Name ("DEBUG/level-disabled");

BENCHMARK_MAIN ();

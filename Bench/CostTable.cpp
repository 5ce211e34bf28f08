/** @file
  The operations of the cost table, each beside its floor: a 1 KiB memcpy
  and three register accesses for reporting an error, glibc's vsnprintf for
  the formatter, memcpy for CopyMem, and for the ERST steps the same flash
  operations replayed through the SPI protocol alone.
**/
#include "BenchRows.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <Host.h>
#include <SpiFlash.h>
#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>
#include <Library/IoLib.h>
#include <Library/PrintLib.h>
#include <Library/WheaSignalLib.h>
#include <VornApeiLoggingSmm.h>

#include "Builder/Boot.h"
#include "Builder/FlashImage.h"
#include "ErstSmi.h"
#include "ErstStores.h"
#include "FlashModel.h"
#include "Handlers/CperBuilder.h"
#include "Measure.h"
#include "Os/OsApei.h"

namespace Bench {

namespace {

constexpr UINT32 kSectionLength = 1024;
constexpr UINT64 kStoreSize     = 1000;
constexpr UINTN  kRepeat        = 100;

//
// The two lines the formatter is measured on, as the module prints them and
// in glibc's spelling.
//
#define LONG_LINE_FORMAT(Text)                                                                             \
  Text ": EFI_ACPI_6_3_GENERIC_ERROR_STATUS_STRUCTURE Length 0x%016lx [GESB/GEDE/GED]DataLength 0x%016lx " \
       "RawDataLength 0x%016lx RawDataOffset 0x%016lx\n"
#define SHORT_LINE_FORMAT(Text) Text ": Current ErrorDataEntryCount = %d (of 5 entries)\n"

__attribute__ ((noinline)) UINTN EdkPrint (CHAR8 *Buffer, UINTN Size, const CHAR8 *Format, ...) {
  va_list Marker;
  va_start (Marker, Format);
  const UINTN Count = AsciiVSPrint (Buffer, Size, Format, Marker);
  va_end (Marker);
  return Count;
}

__attribute__ ((noinline)) int GlibcPrint (char *Buffer, size_t Size, const char *Format, ...) {
  va_list Marker;
  va_start (Marker, Format);
  const int Count = std::vsnprintf (Buffer, Size, Format, Marker);
  va_end (Marker);
  return Count;
}

__attribute__ ((noinline)) void DisabledDebug (UINT32 Value) {
  DEBUG ((DEBUG_INFO, "%a: disabled level, value 0x%08x\n", __func__, Value));
}

__attribute__ ((noinline)) void Memcpy (UINT8 *Destination, const UINT8 *Source, UINTN Length) {
  std::memcpy (Destination, Source, Length);
  asm volatile("" ::: "memory");
}

__attribute__ ((noinline)) void CopyMemOnce (UINT8 *Destination, const UINT8 *Source, UINTN Length) {
  CopyMem (Destination, Source, Length);
  asm volatile("" ::: "memory");
}

//
// The register accesses an SCI needs: read the software SCI data, set and
// clear the event status.
//
__attribute__ ((noinline)) void SciRegisterAccesses () {
  const UINT32 Value = MmioRead32 (FCH_SMI_SOFTWARESCIDATA);
  MmioWrite32 (FCH_SMI_SOFTWARESCIDATA, Value);
  MmioWrite32 (FCH_SMI_SOFTWARESCIDATA, Value);
}

void Floors () {
  static UINT8 Source[kSectionLength];
  static UINT8 Destination[kSectionLength];
  std::memset (Source, 0x5A, sizeof (Source));
  Count ("memcpy-1KiB", kRepeat, [] { Memcpy (Destination, Source, sizeof (Source)); });
  Count ("CopyMem-1KiB", kRepeat, [] { CopyMemOnce (Destination, Source, sizeof (Source)); });

  static char Line[256];
  Count ("AsciiVSPrint-long", kRepeat, [] {
    EdkPrint (Line, sizeof (Line), LONG_LINE_FORMAT ("%a"), "VornApeiLoggingElogRecord", 0x14ULL, 0x448ULL, 0ULL,
              0x2000ULL);
  });
  Note ("AsciiVSPrint-long", "chars", static_cast<double> (std::strlen (Line)));
  Count ("vsnprintf-long", kRepeat, [] {
    GlibcPrint (Line, sizeof (Line), LONG_LINE_FORMAT ("%s"), "VornApeiLoggingElogRecord", 0x14ULL, 0x448ULL, 0ULL,
                0x2000ULL);
  });
  Count ("AsciiVSPrint-short", kRepeat,
         [] { EdkPrint (Line, sizeof (Line), SHORT_LINE_FORMAT ("%a"), "VornApeiLoggingElogPopulateGhess", 3); });
  Note ("AsciiVSPrint-short", "chars", static_cast<double> (std::strlen (Line)));
  Count ("vsnprintf-short", kRepeat,
         [] { GlibcPrint (Line, sizeof (Line), SHORT_LINE_FORMAT ("%s"), "VornApeiLoggingElogPopulateGhess", 3); });
}

//
// ElogRecord and ElogSignalSci for a corrected memory error with a 1 KiB
// section, the OS acknowledging between calls.
//
void ReportOneError (const std::string &Row, const BenchBuild &Build) {
  Host::Flash::AttachMemory (FlashImage::BuildDefault ());
  Sim::BootOptions Options;
  Options.Machine.DebugPrintErrorLevel = Build.PrintLevel;
  Options.Machine.DebugPropertyMask    = Build.PropertyMask;
  const Sim::BootResult Booted         = Sim::Boot (Options);
  Sim::OsEnableApei ();

  EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *Protocol = nullptr;
  Host::Smst ()->SmmLocateProtocol (&gEfiVornApeiLoggingSmmProtocolGuid, nullptr,
                                    reinterpret_cast<VOID **> (&Protocol));
  Cper::RecordSpec Spec;
  Spec.BodyLength              = kSectionLength;
  CPER_RECORD          *Record = Cper::PlaceInSmram (Cper::BuildRecord (Spec));
  const auto           &Sci    = Booted.Platform.StatusBlocks[1];
  GENERIC_ERROR_STATUS *Block  = Host::At<GENERIC_ERROR_STATUS> (Sci.StatusBlock);

  auto Report = [&] {
    Require (Protocol->ElogRecord (Protocol, Record, EFI_GENERIC_ERROR_CORRECTED) == EFI_SUCCESS &&
                 Protocol->ElogSignalSci (Protocol, 0) == EFI_SUCCESS,
             "the error was not reported");
  };
  auto Acknowledge = [&] {
    Require (Block->DataLength == sizeof (GENERIC_ERROR_DATA_ENTRY) + kSectionLength, "the record was not accepted");
    Block->BlockStatus = {};
    Protocol->ElogClear (Protocol, Block, Sci.StatusBlockLength);
    Host::ClearSerialOutput ();
    Host::ClearTrace ();
  };

  Report ();
  Acknowledge ();
  const UINT64 Uart = Host::SerialBytesWritten ();
  Count (Row, 1, Report);
  Note (Row, "uart_bytes", static_cast<double> (Host::SerialBytesWritten () - Uart));
  Acknowledge ();
}

void ErstSteps (const std::string &Level, const BenchBuild &Build) {
  const std::vector<UINT8> &Image = StoreImage (kStoreSize);
  MeasureErstStep ("discovery-1F/" + Level, Image, Build, false, true,
                   [] { VornApeiLoggingGetErstPersistentStoreData (); });
  MeasureErstStep ("discovery-1B/" + Level, Image, BenchBuild{Build.PrintLevel, 0x1B}, false, true,
                   [] { VornApeiLoggingGetErstPersistentStoreData (); });
  MeasureErstStep ("read-middle/" + Level, Image, Build, false, true, [] {
    ErstPrepare (1, kStoreSize / 2 + 1);
    Require (ErstRaise () == 0, "the middle record was not read");
  });
  //
  // At the default level defragmentation writes hundreds of megabytes of
  // log; its instructions are counted at the production level only.
  //
  MeasureErstStep ("defragment/" + Level, Image, Build, true, Build.PrintLevel == kProductionLevel,
                   [] { VornApeiLoggingErstDefragment (mPrivateDataVornApeiLogging.SerDbgLevelConstructor); });
}

//
// The steps the record index changes, without and with it, at the
// production level; an enumeration beside the header reads it needs.
//
void IndexedSteps () {
  const std::vector<UINT8> &Image = StoreImage (kStoreSize);
  for (const bool Indexed : {false, true}) {
    const BenchBuild  Build{.RecordIndex = Indexed};
    const std::string Suffix = Indexed ? "-index" : "";
    MeasureErstStep ("enumeration" + Suffix, Image, Build, false, true, [] { ErstEnumerate (kStoreSize); });
    if (Indexed) {
      MeasureErstStep ("discovery" + Suffix, Image, Build, false, true,
                       [] { VornApeiLoggingGetErstPersistentStoreData (); });
      MeasureErstStep ("read-middle" + Suffix, Image, Build, false, true, [] {
        ErstPrepare (1, kStoreSize / 2 + 1);
        Require (ErstRaise () == 0, "the middle record was not read");
      });
      MeasureErstStep ("defragment" + Suffix, Image, Build, true, true,
                       [] { VornApeiLoggingErstDefragment (mPrivateDataVornApeiLogging.SerDbgLevelConstructor); });
    }
  }

  BootOn (Image, BenchBuild ());
  const FlashWork Floor = EnumerationHeaderReads ();
  Note ("enumeration-floor", "flash_ops", static_cast<double> (Floor.Reads));
  Count ("enumeration-floor", 1, [&] { ReplayFlashWork (Floor); });
}

} // namespace

void CostTable () {
  Floors ();
  SciRegisterAccesses ();
  Count ("registers-3", kRepeat, [] { SciRegisterAccesses (); });

  BootOn (EmptyStoreImage (), BenchBuild ());
  UINT32 Value = 0;
  Count ("debug-filtered", kRepeat * 10, [&] { DisabledDebug (Value++); });
  Require (Host::SerialOutput ().empty (), "a DEBUG line below the print level printed");

  for (const auto &[Level, PrintLevel] : {std::pair<std::string, UINT32>{"production", kProductionLevel},
                                          std::pair<std::string, UINT32>{"default", kDefaultLevel}}) {
    ReportOneError ("elog-1F/" + Level, BenchBuild{PrintLevel, 0x1F});
    ReportOneError ("elog-1B/" + Level, BenchBuild{PrintLevel, 0x1B});
    ErstSteps (Level, BenchBuild{PrintLevel, 0x1F});
  }

  IndexedSteps ();
}

} // namespace Bench

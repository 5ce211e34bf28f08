/** @file
  Flash images holding ERST stores of a chosen size, and booting on them.
**/
#pragma once

#include <cstring>
#include <span>
#include <string>
#include <vector>

#include <Host.h>
#include <SpiFlash.h>
#include <Uefi.h>

#include "FlashModel.h"
#include "Measure.h"
#include "Os/ErstDriver.h"

namespace Bench {

constexpr UINT32 kProductionLevel = 0x80000000; // errors only
constexpr UINT32 kDefaultLevel    = 0x80000040; // info and errors

//
// What a boot is configured with: the print level and the module build's
// debug property mask (0x1F as fixed, 0x1B with debug code off).
//
struct BenchBuild {
  UINT32 PrintLevel   = kProductionLevel;
  UINT8  PropertyMask = 0x1F;
  bool   RecordIndex  = false;
};

//
// The default flash image with the error-log volume moved to an erased 1 MiB
// so that 2,000 records of 280 bytes fit.
//
std::vector<UINT8> EmptyStoreImage ();

//
// The image after the OS wrote records 1..Count; images are built in order
// of size, each from the last, so asking for growing counts costs one write
// per record.
//
const std::vector<UINT8> &StoreImage (UINT64 Count);

//
// Boots on Image, with the SPI protocol routed through the flash model when
// Tapped; the driver is the OS's view of the patched ERST.
//
Sim::ErstDriver BootOn (std::span<const UINT8> Image, const BenchBuild &Build, bool Tapped = true);

//
// The record the OS writes with identifier RecordId.
//
std::vector<UINT8> Record (UINT64 RecordId);

//
// Marks every other record obsolete, as the firmware does once the OS has
// enabled APEI, and lets discovery count them: defragmentation then has half
// the store to drop.
//
void MarkEveryOtherRecord ();

//
// The least flash work a whole enumeration of the booted store needs: each
// record's header and flags read once, and the header slot after the last.
//
FlashWork EnumerationHeaderReads ();

//
// The figures of one ERST step on a freshly booted store: its instructions
// (when asked) on the plain SPI protocol, so that the model's bookkeeping is
// not counted; then, booted again, its serial bytes and flash work through
// the model, and the instructions of that flash work replayed alone.
//
template <typename Fn>
void MeasureErstStep (const std::string     &Row,
                      std::span<const UINT8> Image,
                      const BenchBuild      &Build,
                      bool                   HalfObsolete,
                      bool                   Instructions,
                      Fn                   &&Step) {
  auto Prepare = [&] (bool Tapped) {
    BootOn (Image, Build, Tapped);
    if (HalfObsolete) {
      MarkEveryOtherRecord ();
    }
  };

  if (Instructions) {
    Prepare (false);
    Count (Row, 1, Step);
    Host::ClearSerialOutput ();
  }

  Prepare (true);
  const std::vector<UINT8> Before (Host::Flash::Image ().begin (), Host::Flash::Image ().end ());
  TakeFlashWork ();
  const UINT64 Uart = Host::SerialBytesWritten ();
  Step ();
  Note (Row, "uart_bytes", static_cast<double> (Host::SerialBytesWritten () - Uart));
  const FlashWork Work = TakeFlashWork ();
  Note (Row, "flash_ms", Work.ModeledMs);
  Note (Row, "flash_ops", static_cast<double> (Work.Reads + Work.Programs + Work.Erases));
  Host::ClearSerialOutput ();

  if (Instructions) {
    std::memcpy (Host::Flash::Image ().data (), Before.data (), Before.size ());
    Count (Row + "/flash", 1, [&] { ReplayFlashWork (Work); });
  }
}

} // namespace Bench

/** @file
  The SPI flash as the bench sees it: every operation the module asks of the
  part is timed with typical SPI NOR figures and logged, so that the same
  operations can be replayed alone as the floor of a measured step.

    page program      0.4 ms per 256-byte page a program touches
    sector erase      45 ms per 4 KiB sector
    block erase       150 ms per 64 KiB-aligned 64 KiB span of an erase
    read              50 MHz single I/O: 6.25 MB/s
**/
#pragma once

#include <vector>

#include <Uefi.h>

namespace Bench {

struct FlashOperation {
  enum Kind { Read, Program, Erase } What;
  UINT64             Address;
  UINT32             Length;
  std::vector<UINT8> Data; // what a program wrote
};

struct FlashWork {
  double                      ModeledMs = 0;
  UINT64                      Reads     = 0;
  UINT64                      Programs  = 0;
  UINT64                      Erases    = 0;
  std::vector<FlashOperation> Log;
};

//
// Routes the SPI protocol of the machine as booted through the model.
//
void TapFlash ();

//
// Starts a new account of flash work and returns the one that ends.
//
FlashWork TakeFlashWork ();

//
// Performs the logged operations again through the platform's own SPI
// protocol, with nothing of the module around them.
//
void ReplayFlashWork (const FlashWork &Work);

} // namespace Bench

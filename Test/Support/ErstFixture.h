/** @file
  A machine with the default flash image and ERST, on which the ERST
  suites set the store up, drive it directly or as the OS does through the
  ERST software SMI, cut flash operations and reboot.
**/
#pragma once

#include <string>
#include <vector>

#include <TestMachine.h>

#include "Builder/AcpiErst.h"

#include <VornApeiLoggingSmm.h>

class ErstFixture : public MachineTest {
protected:
  //
  // Flash addresses of the default error-log volume and its store.
  //
  static UINT64           Volume ();
  static UINT64           StoreHeader (); // volume + FV header + extended header
  static UINT64           Records ();     // first record header
  static constexpr UINT64 kVolumeLength   = 0x20000;
  static constexpr UINT64 kHeaderAndFlags = 84;

  void SetUp () override;

  //
  // Builds the platform's ERST and runs the module's ERST set-up on it.
  //
  EFI_STATUS UpdateErst ();

  //
  // Power cycle on the same flash image with a fresh module image; flash
  // failures are armed after it, for the set-up that follows.
  //
  void PowerCycle ();

  //
  // PowerCycle, then the ERST set-up (discovery, clear, defragmentation).
  //
  EFI_STATUS Reboot ();

  static VORN_ERST_PARAMETER_REGION *Region ();
  static ERST_SPI_STORE_INFORMATION *Info ();
  UINT64                             ErstTable () const {
                                return mErst;
  }
  const std::vector<Sim::ErstRegisterPlacement> &ErstRegisters () const {
    return mPlacements;
  }

  //
  // A single-section CPER record of exactly Length bytes.
  //
  static std::vector<UINT8> CperRecord (UINT64 RecordId, UINT32 Length);

  //
  // Copies a record into the OS error-log buffer at LogOffset; returns its
  // address.
  //
  static UINT64 PlaceRecord (const std::vector<UINT8> &Record, UINT32 LogOffset = 0);

  //
  // Stores a record through the module's write; returns the ERST status.
  //
  static UINT64 WriteRecord (UINT64 RecordId, UINT32 Length);

  //
  // What the OS does: command, identifier and offset into the region, then
  // the ERST software SMI.
  //
  static void OsCommand (UINT64 Command, UINT64 RecordId = 0, UINT32 LogOffset = 0);

  //
  // Flash contents.
  //
  static std::vector<UINT8>       Flash (UINT64 Address, UINT64 Length);
  static ERST_ERROR_RECORD_HEADER HeaderAt (UINT64 Address);
  static std::vector<UINT64>      StoredIds (); // walks the chain on flash

  //
  // Log helpers: the whole line as CPU 0 prints it, and the lines printed
  // since the last ClearLog.
  //
  static std::string              Fmt (const char *Format, ...) __attribute__ ((format (printf, 1, 2)));
  static bool                     Logged (const std::string &Text);
  static std::vector<std::string> LinesContaining (const std::string &Part);
  static void                     ClearLog ();

  //
  // Every buffer a flash access logged lies in module data or simulated
  // memory, never on the host stack or heap, so the log is the same on
  // every run.
  //
  static void ExpectFixedFlashBuffers ();

  static UINT8 Checksum (const std::vector<UINT8> &Bytes);

private:
  void                                    StartModuleServices ();
  UINT64                                  mErst = 0;
  std::vector<Sim::ErstRegisterPlacement> mPlacements;
};

/** @file
  The module's printers run for the host without booting the module: the
  platform powered on, the module image loaded, and on processor 0 the
  library constructors in the firmware's order up to the error-log base
  library, whose debug levels some section printers use (the debug log sink
  comes first). Lines therefore come out as the serial log shows them,
  processor prefix included.
**/
#pragma once

#include <ostream>
#include <vector>

#include <Uefi.h>

namespace Sim {

class FirmwarePrinter {
public:
  //
  // Powers on with the flash as attached; the constructors' own lines are
  // dropped, everything printed afterwards goes to Serial.
  //
  explicit FirmwarePrinter (std::ostream &Serial);
  ~FirmwarePrinter ();

  FirmwarePrinter (const FirmwarePrinter &)            = delete;
  FirmwarePrinter &operator= (const FirmwarePrinter &) = delete;

  //
  // Copies Record into SMRAM, where firmware holds the records it prints,
  // and prints it with DisplayCperRecord at the info level. Record must
  // have passed CheckRecord with RecordCheck::Sections. Every record reuses
  // one buffer, grown to the largest, so no number of records runs the
  // machine's SMRAM out.
  //
  void PrintCperRecord (const std::vector<UINT8> &Record);

  //
  // Detaches and flushes Serial; throws when it could not be written.
  //
  void Finish ();

private:
  std::ostream &mSerial;
  UINT64        mPlacement     = 0;
  UINT64        mPlacementSize = 0;
};

} // namespace Sim

/** @file
  A platform error handler, as another SMM driver of the platform: it builds
  a single-section CPER record in SMRAM, finds the logging protocol through
  the SMST, records the error and raises the notification that makes the OS
  read the status block. The module does not say which block it chose, so
  the handler applies the routing rule itself, as every caller must.
**/
#pragma once

#include <string>
#include <vector>

#include <Uefi.h>
#include <Protocol/VornApeiLoggingSmm.h>

namespace Sim {

enum class Notification { None, Sci, Nmi };

const char *NotificationName (Notification Which);

//
// The notification a record goes with: Fatal to the NMI block; Recoverable
// PCIe, CXL protocol and CXL component sections to the NMI block too;
// everything else to the SCI block.
//
Notification RouteRecord (const CPER_RECORD &Record, UINT32 ErrorSeverity);

//
// What one handler run came to. Statuses of calls not made stay EFI_SUCCESS
// with the matching flag false.
//
struct HandlerReport {
  EFI_STATUS   Locate        = EFI_SUCCESS; // SmmLocateProtocol
  BOOLEAN      OsLoaded      = FALSE;       // what ElogIsApeiOsLoaded answered
  bool         Recorded      = false;       // ElogRecord (or the page-retire call) was made
  EFI_STATUS   Record        = EFI_SUCCESS;
  Notification Signal        = Notification::None; // the signal raised, if any
  EFI_STATUS   SignalStatus  = EFI_SUCCESS;
  UINT64       RecordAddress = 0; // the CPER record in SMRAM; 0 for page retire
};

class ErrorHandlerAgent {
public:
  //
  // The handler runs as an SMI handler on processor Cpu.
  //
  explicit ErrorHandlerAgent (UINTN Cpu = 0);

  //
  // Copies Record (a whole single-section CPER record) into SMRAM and
  // reports it: ElogIsApeiOsLoaded, ElogRecord with ErrorSeverity, then
  // ElogSignalNmi or ElogSignalSci by the routing rule. Nothing is recorded
  // while the OS has not enabled APEI, and nothing is signalled when the
  // record was refused.
  //
  HandlerReport Report (const std::vector<UINT8> &Record, UINT32 ErrorSeverity);

  //
  // The same for a record already in SMRAM.
  //
  HandlerReport Report (CPER_RECORD *Placed, UINT32 ErrorSeverity);

  //
  // Asks for the page holding PhysicalAddress to be retired
  // (ElogRecordMemoryPageRetire, then ElogSignalSci). FruText is cut to the
  // 20 bytes the record holds.
  //
  HandlerReport RetirePage (UINT64 PhysicalAddress, const std::string &FruText, UINT64 ErrorStatusCount);

  //
  // ElogClearAll: the handler reclaims the blocks the OS has acknowledged.
  //
  EFI_STATUS ClearAll ();

private:
  EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *Locate (HandlerReport &Report);
  void Signal (EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *Protocol, Notification Which, HandlerReport &Report);

  UINTN mCpu;
};

} // namespace Sim

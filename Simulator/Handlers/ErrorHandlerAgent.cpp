/** @file
  The platform error handler agent.
**/
#include "Handlers/ErrorHandlerAgent.h"

#include <algorithm>
#include <cstring>

#include <Firmware.h>
#include <Host.h>

#include "Handlers/CperBuilder.h"

namespace Sim {

namespace {

// The OS reader here walks every SCI block on each SCI, so the handler hands
// over no cause bits.
constexpr UINT32 kSciCause = 0;

constexpr size_t kFruTextLength = VORN_CPER_FRU_TEXT_LENGTH;

//
// The handler's SMI runs on its processor; the caller's processor comes back
// afterwards.
//
class OnProcessor {
public:
  explicit OnProcessor (UINTN Cpu) : mPrevious (Host::CurrentCpu ()) {
    Host::SetCurrentCpu (Cpu);
  }
  ~OnProcessor () {
    Host::SetCurrentCpu (mPrevious);
  }
  OnProcessor (const OnProcessor &)            = delete;
  OnProcessor &operator= (const OnProcessor &) = delete;

private:
  UINTN mPrevious;
};

} // namespace

const char *NotificationName (Notification Which) {
  switch (Which) {
    case Notification::Sci:
      return "SCI";
    case Notification::Nmi:
      return "NMI";
    case Notification::None:
      break;
  }
  return "none";
}

Notification RouteRecord (const CPER_RECORD &Record, UINT32 ErrorSeverity) {
  return VornCperSignalsNmi (&Record, ErrorSeverity) ? Notification::Nmi : Notification::Sci;
}

ErrorHandlerAgent::ErrorHandlerAgent (UINTN Cpu) : mCpu (Cpu) {}

EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *ErrorHandlerAgent::Locate (HandlerReport &Report) {
  EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *Protocol = nullptr;
  Report.Locate = Host::Smst ()->SmmLocateProtocol (&gEfiVornApeiLoggingSmmProtocolGuid, nullptr,
                                                    reinterpret_cast<VOID **> (&Protocol));
  if (EFI_ERROR (Report.Locate) || Protocol == nullptr) {
    return nullptr;
  }
  if (EFI_ERROR (Protocol->ElogIsApeiOsLoaded (&Report.OsLoaded))) {
    Report.OsLoaded = FALSE;
  }
  return Protocol;
}

void ErrorHandlerAgent::Signal (EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *Protocol,
                                Notification                        Which,
                                HandlerReport                      &Report) {
  Report.Signal = Which;
  Report.SignalStatus =
      Which == Notification::Nmi ? Protocol->ElogSignalNmi (Protocol) : Protocol->ElogSignalSci (Protocol, kSciCause);
}

HandlerReport ErrorHandlerAgent::Report (const std::vector<UINT8> &Record, UINT32 ErrorSeverity) {
  return Report (Cper::PlaceInSmram (Record), ErrorSeverity);
}

HandlerReport ErrorHandlerAgent::Report (CPER_RECORD *Cper, UINT32 ErrorSeverity) {
  OnProcessor         Smi (mCpu);
  Host::FirmwareScope Firmware (Host::EntryKind::HandlerSmi, "ElogRecord call");
  HandlerReport       Result;
  Result.RecordAddress = reinterpret_cast<UINT64> (Cper);

  EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *Protocol = Locate (Result);
  if (Protocol == nullptr || !Result.OsLoaded) {
    return Result;
  }
  Result.Recorded = true;
  Result.Record   = Protocol->ElogRecord (Protocol, Cper, ErrorSeverity);
  if (!EFI_ERROR (Result.Record)) {
    Signal (Protocol, RouteRecord (*Cper, ErrorSeverity), Result);
  }
  return Result;
}

HandlerReport
ErrorHandlerAgent::RetirePage (UINT64 PhysicalAddress, const std::string &FruText, UINT64 ErrorStatusCount) {
  OnProcessor         Smi (mCpu);
  Host::FirmwareScope Firmware (Host::EntryKind::HandlerSmi, "ElogRecordMemoryPageRetire call");
  HandlerReport       Result;
  CHAR8               Fru[kFruTextLength] = {};
  std::memcpy (Fru, FruText.data (), std::min (FruText.size (), sizeof (Fru)));

  EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *Protocol = Locate (Result);
  if (Protocol == nullptr || !Result.OsLoaded) {
    return Result;
  }
  Result.Recorded = true;
  Result.Record   = Protocol->ElogRecordMemoryPageRetire (Protocol, nullptr, Fru, PhysicalAddress, ErrorStatusCount);
  if (!EFI_ERROR (Result.Record)) {
    Signal (Protocol, Notification::Sci, Result);
  }
  return Result;
}

EFI_STATUS ErrorHandlerAgent::ClearAll () {
  OnProcessor                         Smi (mCpu);
  Host::FirmwareScope                 Firmware (Host::EntryKind::HandlerSmi, "ElogClearAll call");
  HandlerReport                       Result;
  EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *Protocol = Locate (Result);
  if (Protocol == nullptr) {
    return EFI_ERROR (Result.Locate) ? Result.Locate : EFI_NOT_FOUND;
  }
  return Protocol->ElogClearAll (Protocol);
}

} // namespace Sim

/** @file
  A machine on which the error-log protocol runs as after start-up: debug
  levels copied, the NMI, SCI and VMware page-retire status blocks in
  reserved memory in their cleared state, and the APEI OS loaded.
**/
#pragma once

#include <string>
#include <vector>

#include <TestMachine.h>

#include "Handlers/CperBuilder.h"
#include <VornApeiLoggingSmm.h>

class GhesFixture : public MachineTest {
protected:
  static constexpr UINT32 kNmiBlockLength    = 0x1000;
  static constexpr UINT32 kSciBlockLength    = 0x2000;
  static constexpr UINT32 kVmwareBlockLength = 0x1000;

  //
  // Dumps (debug code) off unless a suite turns them on, so that whole logs
  // hold only the lines of the routine under test.
  //
  Host::MachineConfig MachineConfiguration () const override;
  virtual bool        DumpsEnabled () const {
           return false;
  }

  void SetUp () override;

  static EFI_VORN_APEI_LOGGING_SMM_PROTOCOL *Protocol () {
    return &mVornApeiLoggingSmmProtocol;
  }
  static GENERIC_ERROR_STATUS *NmiBlock ();
  static GENERIC_ERROR_STATUS *SciBlock ();
  static GENERIC_ERROR_STATUS *VmwareBlock ();

  //
  // A record built by the CPER builder, placed in SMRAM.
  //
  static CPER_RECORD *Record (const Cper::RecordSpec &Spec);

  //
  // Block bytes, for comparing a whole block before and after a call.
  //
  static std::vector<UINT8> Bytes (const void *Address, size_t Length);

  //
  // Whole log lines as processor 0 prints them, and the lines printed since
  // the last ClearLog.
  //
  static std::string L (const std::string &Text) {
    return Line (0, Text);
  }
  static std::string              Fmt (const char *Format, ...) __attribute__ ((format (printf, 1, 2)));
  static std::vector<std::string> Lines () {
    return SerialLines ();
  }
  static void ClearLog ();
};

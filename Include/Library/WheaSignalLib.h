/** @file
  WHEA signal library: raises the APEI SCI and NMI through the FCH SMI
  registers and the root-complex scratch register that carries SCI causes.
**/
#pragma once

#include <Uefi.h>
#include <Pi/PiSmmCis.h>
#include <Protocol/SmmBase2.h>

//
// FCH SMI block registers (32-bit MMIO).
//
#define FCH_SMI_SOFTWARESCIDATA 0xFED8021C
#define FCH_SMI_SMISTATUS1      0xFED80284
#define FCH_SMI_SMICONTROL8     0xFED802C0
#define FCH_SMI_SMITRIG0        0xFED80298

#define FCH_SMI_SOFTWARESCIDATA_EVENTSTATUS22      0x00400000
#define FCH_SMI_SMISTATUS1_FAKESTS0_EVENT33        0x00000002
#define FCH_SMI_SMICONTROL8_FAKESTS0_ROUTING_BIT20 0x00100000
#define FCH_SMI_SMICONTROL8_FAKESTS0_ROUTING_BIT21 0x00200000
#define FCH_SMI_SMITRIG0_FAKESTS0_TRIGGER          0x02000000
#define FCH_SMI_SMITRIG0_BIT28                     0x10000000

//
// NBCFG_SCRATCH_3 of socket 0, die 0: bus 0, device 0, function 0, offset 0x74.
//
#define NBCFG_SCRATCH_3_OFFSET 0x74

//
// The library's own copy of the module's debug levels.
//
typedef struct {
  UINT64 SerDbgLevelConstructor;
  UINT64 SerDbgLevel;
  UINT64 SerDbgLevelDetailed;
} VORN_WHEA_SIGNAL_LIB_PRIVATE_DATA;

extern VORN_WHEA_SIGNAL_LIB_PRIVATE_DATA mPrivateDataWheaSignalLib;

extern "C" EFI_STATUS EFIAPI WheaSignalLibConstructor (IN EFI_HANDLE ImageHandle, IN EFI_SYSTEM_TABLE *SystemTable);

EFI_STATUS VornProgramWheaSignals (IN EFI_SMM_BASE2_PROTOCOL *pSmmBase2Protocol,
                                   IN EFI_SMM_SYSTEM_TABLE2  *pSmst,
                                   IN BOOLEAN                 EnableWhea);
EFI_STATUS
VornTriggerWheaSci (IN EFI_SMM_BASE2_PROTOCOL *pSmmBase2Protocol, IN EFI_SMM_SYSTEM_TABLE2 *pSmst, IN UINT32 SciCause);
EFI_STATUS VornTriggerWheaNmi (IN EFI_SMM_BASE2_PROTOCOL *pSmmBase2Protocol, IN EFI_SMM_SYSTEM_TABLE2 *pSmst);

/** @file
  WHEA signals on QEMU's q35: the NMI is an IPI from the local APIC; there is
  no FCH and no software SCI, so the SCI source is declared polled in the HEST
  and raising it has nothing to do.
**/
#include <Library/WheaSignalLib.h>

#include <Library/BaseLib.h>
#include <Library/DebugLib.h>
#include <Library/IoLib.h>
#include <Library/LocalApicLib.h>
#include <Register/Intel/LocalApic.h>

/**
  Nothing raises an SCI here: the OS polls the SCI source on its timer.
**/
EFI_STATUS
VornTriggerWheaSci (IN EFI_SMM_BASE2_PROTOCOL *pSmmBase2Protocol, IN EFI_SMM_SYSTEM_TABLE2 *pSmst, IN UINT32 SciCause) {
  (VOID) pSmmBase2Protocol;
  (VOID) pSmst;

  DEBUG ((mPrivateDataWheaSignalLib.SerDbgLevel, "%a: SCI source polled by the OS, SciCause 0x%08x not signalled\n",
          __func__, SciCause));
  return EFI_SUCCESS;
}

/**
  Sends an NMI to this processor's own APIC ID. SMM holds it back until the
  processor leaves SMM, so the OS takes it once the status block is complete.
  The self shorthand does not carry NMIs, so the IPI is addressed physically,
  in whichever mode (xAPIC or x2APIC) the OS left the APIC.
**/
EFI_STATUS
VornTriggerWheaNmi (IN EFI_SMM_BASE2_PROTOCOL *pSmmBase2Protocol, IN EFI_SMM_SYSTEM_TABLE2 *pSmst) {
  LOCAL_APIC_ICR_LOW IcrLow;
  UINT32             ApicId;
  UINTN              ApicBase;

  (VOID) pSmmBase2Protocol;
  (VOID) pSmst;

  ApicId                   = GetApicId ();
  IcrLow.Uint32            = 0;
  IcrLow.Bits.DeliveryMode = LOCAL_APIC_DELIVERY_MODE_NMI;
  IcrLow.Bits.Level        = 1;
  DEBUG ((mPrivateDataWheaSignalLib.SerDbgLevel, "%a: NMI IPI to APIC ID 0x%08x (ICR low 0x%08x)\n", __func__, ApicId,
          IcrLow.Uint32));

  if (GetApicMode () == LOCAL_APIC_MODE_X2APIC) {
    AsmWriteMsr64 (X2APIC_MSR_ICR_ADDRESS, LShiftU64 (ApicId, 32) | IcrLow.Uint32);
  } else {
    ApicBase = GetLocalApicBaseAddress ();
    MmioWrite32 (ApicBase + XAPIC_ICR_HIGH_OFFSET, ApicId << 24);
    MmioWrite32 (ApicBase + XAPIC_ICR_LOW_OFFSET, IcrLow.Uint32);
  }

  return EFI_SUCCESS;
}

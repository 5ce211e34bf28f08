/** @file
  The FCH register sequences that raise the WHEA SCI and NMI.
**/
#include <Library/DebugLib.h>
#include <Library/IoLib.h>
#include <Library/PciExpressLib.h>
#include <Library/WheaSignalLib.h>

/**
  Pulses eventstatus22 to raise the SCI, then ORs SciCause into the scratch
  register the OS reads for the cause. Cause bits accumulate until the OS
  clears them.
**/
EFI_STATUS
VornTriggerWheaSci (IN EFI_SMM_BASE2_PROTOCOL *pSmmBase2Protocol, IN EFI_SMM_SYSTEM_TABLE2 *pSmst, IN UINT32 SciCause) {
  UINT32 Value;
  UINTN  ScratchAddress;

  (VOID) pSmmBase2Protocol;
  (VOID) pSmst;

  Value = MmioRead32 (FCH_SMI_SOFTWARESCIDATA);
  DEBUG ((mPrivateDataWheaSignalLib.SerDbgLevel, "%a: Rd MMIO @ 0x%08x = 0x%08x (FCH::SMI::SOFTWARESCIDATA)\n",
          __func__, FCH_SMI_SOFTWARESCIDATA, Value));

  Value |= FCH_SMI_SOFTWARESCIDATA_EVENTSTATUS22;
  DEBUG ((mPrivateDataWheaSignalLib.SerDbgLevel,
          "%a: Wr MMIO @ 0x%08x = 0x%08x (FCH::SMI::SOFTWARESCIDATA Bit[22] assert eventstatus22)\n", __func__,
          FCH_SMI_SOFTWARESCIDATA, Value));
  MmioWrite32 (FCH_SMI_SOFTWARESCIDATA, Value);

  Value &= ~(UINT32)FCH_SMI_SOFTWARESCIDATA_EVENTSTATUS22;
  DEBUG ((mPrivateDataWheaSignalLib.SerDbgLevel,
          "%a: Wr MMIO @ 0x%08x = 0x%08x (FCH::SMI::SOFTWARESCIDATA Bit[22] de-assert eventstatus22)\n", __func__,
          FCH_SMI_SOFTWARESCIDATA, Value));
  MmioWrite32 (FCH_SMI_SOFTWARESCIDATA, Value);

  if (SciCause == 0) {
    return EFI_SUCCESS;
  }

  ScratchAddress = PCI_EXPRESS_LIB_ADDRESS (0, 0, 0, NBCFG_SCRATCH_3_OFFSET);
  Value          = PciExpressRead32 (ScratchAddress) | SciCause;
  DEBUG (
      (mPrivateDataWheaSignalLib.SerDbgLevel, "%a: Wr Skt0 Die0 NBCFG_SCRATCH_3 SciCause = 0x%08x\n", __func__, Value));
  PciExpressWrite32 (ScratchAddress, Value);
  return EFI_SUCCESS;
}

/**
  Routes FakeSts0 to NMI and re-arms its trigger. The status bit is cleared
  first so that the NMI of the previous error does not mask this one.
**/
EFI_STATUS
VornTriggerWheaNmi (IN EFI_SMM_BASE2_PROTOCOL *pSmmBase2Protocol, IN EFI_SMM_SYSTEM_TABLE2 *pSmst) {
  UINT32 Value;

  (VOID) pSmmBase2Protocol;
  (VOID) pSmst;

  Value = MmioRead32 (FCH_SMI_SMISTATUS1);
  DEBUG ((mPrivateDataWheaSignalLib.SerDbgLevel, "%a: Rd MMIO @ 0x%08x = 0x%08x (FCH::SMI::SMISTATUS1)\n", __func__,
          FCH_SMI_SMISTATUS1, Value));

  //
  // Write-one-to-clear: only fakests0_event33 may be cleared here.
  //
  DEBUG ((mPrivateDataWheaSignalLib.SerDbgLevel,
          "%a: Wr MMIO @ 0x%08x = 0x%08x (FCH::SMI::SMISTATUS1 Bit[1] clear fakests0_event33)\n", __func__,
          FCH_SMI_SMISTATUS1, FCH_SMI_SMISTATUS1_FAKESTS0_EVENT33));
  MmioWrite32 (FCH_SMI_SMISTATUS1, FCH_SMI_SMISTATUS1_FAKESTS0_EVENT33);

  Value = MmioRead32 (FCH_SMI_SMICONTROL8);
  DEBUG ((mPrivateDataWheaSignalLib.SerDbgLevel, "%a: Rd MMIO @ 0x%08x = 0x%08x (FCH::SMI::SMICONTROL8)\n", __func__,
          FCH_SMI_SMICONTROL8, Value));

  //
  // Only bit 20 is cleared; bit 21 keeps its value until it is set below.
  //
  Value &= ~(UINT32)FCH_SMI_SMICONTROL8_FAKESTS0_ROUTING_BIT20;
  DEBUG ((mPrivateDataWheaSignalLib.SerDbgLevel,
          "%a: Wr MMIO @ 0x%08x = 0x%08x (FCH::SMI::SMICONTROL8 Bit[21:20] disable FakeSts0 interrupt generation)\n",
          __func__, FCH_SMI_SMICONTROL8, Value));
  MmioWrite32 (FCH_SMI_SMICONTROL8, Value);

  Value |= FCH_SMI_SMICONTROL8_FAKESTS0_ROUTING_BIT21;
  DEBUG ((
      mPrivateDataWheaSignalLib.SerDbgLevel,
      "%a: Wr MMIO @ 0x%08x = 0x%08x (FCH::SMI::SMICONTROL8 configure Bit[21:20] FakeSts0 10b NMI interrupt generation)\n",
      __func__, FCH_SMI_SMICONTROL8, Value));
  MmioWrite32 (FCH_SMI_SMICONTROL8, Value);

  Value = MmioRead32 (FCH_SMI_SMITRIG0);
  DEBUG ((mPrivateDataWheaSignalLib.SerDbgLevel, "%a: Rd MMIO @ 0x%08x = 0x%08x (FCH::SMI::SMITRIG0)\n", __func__,
          FCH_SMI_SMITRIG0, Value));

  Value = (Value | FCH_SMI_SMITRIG0_BIT28) & ~(UINT32)FCH_SMI_SMITRIG0_FAKESTS0_TRIGGER;
  DEBUG ((mPrivateDataWheaSignalLib.SerDbgLevel,
          "%a: Wr MMIO @ 0x%08x = 0x%08x (FCH::SMI::SMITRIG0 configure Bit[25] FakeSts0 0b de-assert NMI generation)\n",
          __func__, FCH_SMI_SMITRIG0, Value));
  MmioWrite32 (FCH_SMI_SMITRIG0, Value);

  Value |= FCH_SMI_SMITRIG0_FAKESTS0_TRIGGER;
  DEBUG ((mPrivateDataWheaSignalLib.SerDbgLevel,
          "%a: Wr MMIO @ 0x%08x = 0x%08x (FCH::SMI::SMITRIG0 configure Bit[25] FakeSts0 1b assert NMI generation)\n",
          __func__, FCH_SMI_SMITRIG0, Value));
  MmioWrite32 (FCH_SMI_SMITRIG0, Value);
  return EFI_SUCCESS;
}

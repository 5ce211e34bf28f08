/** @file
  Dump of the PCI Express error section.
**/
#include "CperDumpSupport.h"

#include <Library/DebugLib.h>

STATIC CONST CHAR8 *CONST mPcieValidationBitLines[] = {
    "       Bit[00] Port Type\n",
    "       Bit[01] Version\n",
    "       Bit[02] Command Status\n",
    "       Bit[03] Device ID\n",
    "       Bit[04] Device Serial Number\n",
    "       Bit[05] Bridge Control Status\n",
    "       Bit[06] Capability Structure\n",
    "       Bit[07] AER Info\n",
};

STATIC CONST CPER_CODE_TEXT mPciePortTypeTexts[] = {
    {0, "PCI Express End Point"},
    {1, "Legacy PCI End Point"},
    {4, "Root Port"},
    {5, "Upstream Switch Port"},
    {6, "Downstream Switch Port"},
    {7, "PCI Express to PCI/PCI-X Bridge"},
    {8, "PCI/PCI-X to PCI Express Bridge"},
    {9, "Root Complex Integrated Endpoint"},
    {10, "Root Complex Event Collector"},
};

STATIC CONST CPER_DUMP_FIELD mPcieDeviceIdFields[] = {
    CPER_DUMP_FIELD_OF (CPER_SECTION_PCIE, DeviceId.VendorId, "     Vendor ID                       = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_PCIE, DeviceId.DeviceId, "     Device ID                       = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_PCIE, DeviceId.ClassCode, "     Class Code                      = 0x%06x\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_PCIE, DeviceId.Function, "     Function                        = 0x%02x\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_PCIE, DeviceId.Device, "     Device                          = 0x%02x\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_PCIE, DeviceId.Segment, "     Segment                         = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (
        CPER_SECTION_PCIE, DeviceId.PrimaryOrDeviceBus, "     Primary Or Device Bus           = 0x%02x\n"),
    CPER_DUMP_FIELD_OF (CPER_SECTION_PCIE, DeviceId.SecondaryBus, "     Secondary Bus                   = 0x%02x\n"),
};

/**
  Prints a PCI Express error section field by field; the capability
  structure and the AER data print as raw register words.
**/
VOID DisplayCperSectionPcie (IN UINTN DebugLevel, IN VOID *pSection) {
  CPER_SECTION_PCIE *pPcie;

  if (CperDumpSectionIsNull (__func__, pSection)) {
    return;
  }

  pPcie = (CPER_SECTION_PCIE *)pSection;
  DEBUG ((DebugLevel, "CPER PCIe error section data\n"));
  DEBUG ((DebugLevel, "     Validation Bits                 = 0x%016lx\n", pPcie->ValidFields));
  CperDumpSetBits (DebugLevel, pPcie->ValidFields, mPcieValidationBitLines, ARRAY_SIZE (mPcieValidationBitLines));
  DEBUG ((DebugLevel, "     Port Type                       = 0x%08x (%a)\n", pPcie->PortType,
          CperLookupCodeName (mPciePortTypeTexts, ARRAY_SIZE (mPciePortTypeTexts), pPcie->PortType)));
  DEBUG ((DebugLevel, "     Version                         = 0x%08x\n", pPcie->Version));
  DEBUG ((DebugLevel, "       Major Version                 = 0x%02x\n", CPER_BITS (pPcie->Version, 8, 8)));
  DEBUG ((DebugLevel, "       Minor Version                 = 0x%02x\n", CPER_BITS (pPcie->Version, 0, 8)));
  DEBUG ((DebugLevel, "     Command Status                  = 0x%08x\n", pPcie->CommandStatus));
  DEBUG ((DebugLevel, "       Command                       = 0x%04x\n", CPER_BITS (pPcie->CommandStatus, 0, 16)));
  DEBUG ((DebugLevel, "       Status                        = 0x%04x\n", CPER_BITS (pPcie->CommandStatus, 16, 16)));
  CperDumpFields (DebugLevel, pPcie, mPcieDeviceIdFields, ARRAY_SIZE (mPcieDeviceIdFields));
  DEBUG ((DebugLevel, "     Slot Number                     = 0x%04x\n", CPER_BITS (pPcie->DeviceId.Slot, 3, 13)));
  DEBUG ((DebugLevel, "     Device Serial Number            = 0x%016lx\n", pPcie->SerialNumber));
  DEBUG ((DebugLevel, "     Bridge Control Status           = 0x%08x\n", pPcie->BridgeControlStatus));
  DEBUG (
      (DebugLevel, "       Secondary Status              = 0x%04x\n", CPER_BITS (pPcie->BridgeControlStatus, 0, 16)));
  DEBUG (
      (DebugLevel, "       Bridge Control                = 0x%04x\n", CPER_BITS (pPcie->BridgeControlStatus, 16, 16)));
  CperDumpRawData (DebugLevel, "     Capability Structure            = %d bytes\n", pPcie->Capability,
                   sizeof (pPcie->Capability));
  CperDumpRawData (DebugLevel, "     AER Info                        = %d bytes\n", pPcie->AerInfo,
                   sizeof (pPcie->AerInfo));
}

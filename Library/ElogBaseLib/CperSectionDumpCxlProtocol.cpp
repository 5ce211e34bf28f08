/** @file
  Dump of the CXL Protocol Error section.
**/
#include "CperDumpSupport.h"

#include <Library/DebugLib.h>

STATIC CONST CHAR8 *CONST mCxlProtocolValidationBitLines[] = {
    "       Bit[00] Agent Type\n",           "       Bit[01] Agent Address\n",        "       Bit[02] Device ID\n",
    "       Bit[03] Device Serial Number\n", "       Bit[04] Capability Structure\n", "       Bit[05] CXL DVSEC\n",
    "       Bit[06] CXL Error Log\n",
};

STATIC CONST CPER_CODE_TEXT mCxlAgentTypeTexts[] = {
    {0, "CXL 1.1 Device"},
    {1, "CXL 1.1 Downstream Port"},
    {2, "CXL 2.0 Device"},
    {3, "CXL 2.0 Logical Device"},
    {4, "CXL 2.0 Fabric Manager Managed Logical Device"},
    {5, "CXL 2.0 Root Port"},
    {6, "CXL 2.0 Downstream Switch Port"},
    {7, "CXL 2.0 Upstream Switch Port"},
};

STATIC CONST CPER_DUMP_FIELD mCxlProtocolDeviceFields[] = {
    CPER_DUMP_FIELD_OF (
        CPER_SECTION_CXL_PROTOCOL, DeviceId.VendorId, "     Vendor ID                       = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (
        CPER_SECTION_CXL_PROTOCOL, DeviceId.DeviceId, "     Device ID                       = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (
        CPER_SECTION_CXL_PROTOCOL, DeviceId.SubsystemVendorId, "     Subsystem Vendor ID             = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (
        CPER_SECTION_CXL_PROTOCOL, DeviceId.SubsystemId, "     Subsystem ID                    = 0x%04x\n"),
    CPER_DUMP_FIELD_OF (
        CPER_SECTION_CXL_PROTOCOL, DeviceId.ClassCode, "     Class Code                      = 0x%04x\n"),
};

STATIC CONST CPER_DUMP_FIELD mCxlProtocolLengthFields[] = {
    CPER_DUMP_FIELD_OF (CPER_SECTION_CXL_PROTOCOL, DvsecLength, "     CXL DVSEC Length                = 0x%04x (%d)\n"),
    CPER_DUMP_FIELD_OF (
        CPER_SECTION_CXL_PROTOCOL, ErrorLogLength, "     CXL Error Log Length            = 0x%04x (%d)\n"),
};

/**
  Prints a CXL Protocol Error section field by field. A CXL 1.1 downstream
  port is addressed by its RCRB base, every other agent by segment, bus,
  device and function. The capability structure, the DVSEC and the error
  log that follow the fixed part print as raw register words.
**/
VOID DisplayCperSectionCxlProtocol (IN UINTN DebugLevel, IN VOID *pSection) {
  CPER_SECTION_CXL_PROTOCOL *pProtocol;
  UINT8                     *pDvsec;

  if (CperDumpSectionIsNull (__func__, pSection)) {
    return;
  }

  pProtocol = (CPER_SECTION_CXL_PROTOCOL *)pSection;
  DEBUG ((DebugLevel, "CPER CXL protocol error section data\n"));
  DEBUG ((DebugLevel, "     Validation Bits                 = 0x%016lx\n", pProtocol->ValidFields));
  CperDumpSetBits (DebugLevel, pProtocol->ValidFields, mCxlProtocolValidationBitLines,
                   ARRAY_SIZE (mCxlProtocolValidationBitLines));
  DEBUG ((DebugLevel, "     Agent Type                      = 0x%02x (%a)\n", pProtocol->AgentType,
          CperLookupCodeName (mCxlAgentTypeTexts, ARRAY_SIZE (mCxlAgentTypeTexts), pProtocol->AgentType)));
  if (pProtocol->AgentType == CPER_CXL_AGENT_CXL11_DOWNSTREAM_PORT) {
    DEBUG ((DebugLevel, "     RCRB Base Address               = 0x%016lx\n", pProtocol->AgentAddress));
  } else {
    DEBUG ((DebugLevel, "     Agent Address                   = 0x%016lx\n", pProtocol->AgentAddress));
    DEBUG (
        (DebugLevel, "       Segment                       = 0x%04x\n", CPER_BITS (pProtocol->AgentAddress, 24, 16)));
    DEBUG ((DebugLevel, "       Bus                           = 0x%02x\n", CPER_BITS (pProtocol->AgentAddress, 16, 8)));
    DEBUG ((DebugLevel, "       Device                        = 0x%02x\n", CPER_BITS (pProtocol->AgentAddress, 8, 8)));
    DEBUG ((DebugLevel, "       Function                      = 0x%02x\n", CPER_BITS (pProtocol->AgentAddress, 0, 8)));
  }

  CperDumpFields (DebugLevel, pProtocol, mCxlProtocolDeviceFields, ARRAY_SIZE (mCxlProtocolDeviceFields));
  DEBUG ((DebugLevel, "     Slot Number                     = 0x%04x\n", CPER_BITS (pProtocol->DeviceId.Slot, 3, 13)));
  DEBUG ((DebugLevel, "     Device Serial Number            = 0x%016lx\n", pProtocol->SerialNumber));
  CperDumpRawData (DebugLevel, "     Capability Structure            = %d bytes\n", pProtocol->Capability,
                   sizeof (pProtocol->Capability));
  CperDumpFields (DebugLevel, pProtocol, mCxlProtocolLengthFields, ARRAY_SIZE (mCxlProtocolLengthFields));

  pDvsec = (UINT8 *)(pProtocol + 1);
  CperDumpRawData (DebugLevel, "     CXL DVSEC                       = %d bytes\n", pDvsec, pProtocol->DvsecLength);
  CperDumpRawData (DebugLevel, "     CXL Error Log                   = %d bytes\n", pDvsec + pProtocol->DvsecLength,
                   pProtocol->ErrorLogLength);
}

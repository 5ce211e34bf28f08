/** @file
  The WHEA _OSC hand-shake. When the OS asks for firmware-first error
  handling it calls \_SB._OSC with the WHEA UUID; the firmware answers by
  raising the APEI-enable software SMI (0x9E), after which the APEI logging
  module hands errors to the OS. To the platform-wide _OSC the platform
  grants APEI support only.
**/
DefinitionBlock ("QemuApeiOsc.aml", "SSDT", 2, "VORN  ", "APEIOSC ", 1)
{
  Scope (\_SB)
  {
    OperationRegion (APMC, SystemIO, 0xB2, 1)
    Field (APMC, ByteAcc, NoLock, Preserve)
    {
      SMIC, 8
    }

    Method (_OSC, 4, Serialized)
    {
      CreateDWordField (Arg3, 0, CDW1)

      If (Arg0 == ToUUID ("ed855e0c-6c90-47bf-a62a-26de0fc5ad5c")) {
        SMIC = 0x9E
        Return (Arg3)
      }

      If (Arg0 == ToUUID ("0811b06e-4a27-44f9-8d60-3cbbc22e7b48")) {
        CreateDWordField (Arg3, 4, CDW2)
        CDW2 &= 0x10
        Return (Arg3)
      }

      CDW1 |= 0x4
      Return (Arg3)
    }
  }
}

/** @file
  The identifiers a built record carries (section types, CXL component event
  identifiers, creator, notification types) and the signal a handler picks
  for a record.
**/
#include "CperBuilderInternal.h"

#include <Library/PcdLib.h>

STATIC CONST EFI_GUID mSectionTypes[VornCperSectionKindCount] = {
    {0xA5BC1114, 0x6F64, 0x4EDE, {0xB8, 0x63, 0x3E, 0x83, 0xED, 0x7C, 0x83, 0xB1}}, // platform memory
    {0xD995E954, 0xBBC1, 0x430F, {0xAD, 0x91, 0xB4, 0x4D, 0xCB, 0x3C, 0x6F, 0x35}}, // PCI Express
    {0x80B9EFB4, 0x52B5, 0x4DE3, {0xA7, 0x77, 0x68, 0x78, 0x4B, 0x77, 0x10, 0x48}}, // CXL protocol
    {0, 0, 0, {0}},                                                                 // CXL component: the event's
    {0x9876CCAD, 0x47B4, 0x4BDB, {0xB6, 0x5E, 0x16, 0xF1, 0x93, 0xC4, 0xF3, 0xDB}}, // processor generic
    {0xDC3EA0B0, 0xA144, 0x4797, {0xB9, 0x5B, 0x53, 0xFA, 0x24, 0x2B, 0x6E, 0x1D}}, // IA32/X64 processor
    {0xEB5E4685, 0xCA66, 0x4769, {0xB6, 0xA2, 0x26, 0x06, 0x8B, 0x00, 0x13, 0x26}}, // PCI component
};

STATIC CONST EFI_GUID mCxlEvents[VornCxlEventCount] = {
    {0xFBCD0A77, 0xC260, 0x417F, {0x85, 0xA9, 0x08, 0x8B, 0x16, 0x21, 0xEB, 0xA6}},
    {0x601DCBB3, 0x9C06, 0x4EAB, {0xB8, 0xAF, 0x4E, 0x9B, 0xFB, 0x5C, 0x96, 0x24}},
    {0xFE927475, 0xDD59, 0x4339, {0xA5, 0x86, 0x79, 0xBA, 0xB1, 0x13, 0xB7, 0x74}},
    {0xE71F3A40, 0x2D29, 0x4092, {0x8A, 0x39, 0x4D, 0x1C, 0x96, 0x6C, 0x7C, 0x65}},
    {0x77CF9271, 0x9C02, 0x470B, {0x9F, 0xE4, 0xBC, 0x7B, 0x75, 0xF2, 0xDA, 0x97}},
    {0x40D26425, 0x3396, 0x4C4D, {0xA5, 0xDA, 0x3D, 0x47, 0x26, 0x3A, 0xF4, 0x25}},
    {0x8DC44363, 0x0C96, 0x4710, {0xB7, 0xBF, 0x04, 0xBB, 0x99, 0x53, 0x4C, 0x3F}},
    {0xCA95AFA7, 0xF183, 0x4018, {0x8C, 0x2F, 0x95, 0x26, 0x8E, 0x10, 0x1A, 0x2A}},
};

STATIC CONST EFI_GUID mVmwarePageRetire = {
    0x330F1140, 0x72A5, 0x11DF, {0x96, 0x90, 0x00, 0x02, 0xA5, 0xD5, 0xC5, 0x1B}};
STATIC CONST EFI_GUID mNotifyMce  = {0xE8F56FFE, 0x919C, 0x4CC5, {0xBA, 0x88, 0x65, 0xAB, 0xE1, 0x49, 0x13, 0xBB}};
STATIC CONST EFI_GUID mNotifyCmc  = {0x2DCE8BB1, 0xBDD7, 0x450E, {0xB9, 0xAD, 0x9C, 0xF4, 0xEB, 0xD4, 0xF8, 0x90}};
STATIC CONST EFI_GUID mNotifyPcie = {0xCF93C01F, 0x1A16, 0x4DFC, {0xB8, 0xBC, 0x9C, 0x4D, 0xAF, 0x67, 0xC1, 0x04}};

CONST EFI_GUID gVornCperCreatorId = {0x4E4F5256, 0x5241, 0x5352, {0x53, 0x49, 0x4D, 0x45, 0x52, 0x52, 0x4F, 0x52}};

/**
  Guid's 16 bytes in UUID text order: the first three fields big-endian.
**/
STATIC VOID CperGuidToTextOrder (IN CONST EFI_GUID *Guid, OUT UINT8 *Bytes) {
  for (UINTN Index = 0; Index < 4; Index++) {
    Bytes[Index] = (UINT8)(Guid->Data1 >> (8 * (3 - Index)));
  }

  for (UINTN Index = 0; Index < 2; Index++) {
    Bytes[4 + Index] = (UINT8)(Guid->Data2 >> (8 * (1 - Index)));
    Bytes[6 + Index] = (UINT8)(Guid->Data3 >> (8 * (1 - Index)));
  }

  CopyMem (Bytes + 8, Guid->Data4, sizeof (Guid->Data4));
}

VOID VornCperCxlEventIdentifier (IN VORN_CXL_EVENT Event, OUT UINT8 *Identifier) {
  CperGuidToTextOrder (&mCxlEvents[Event], Identifier);
}

VOID VornCperCxlEventGuid (IN VORN_CXL_EVENT Event, OUT UINT8 *Guid) {
  CopyMem (Guid, &mCxlEvents[Event], sizeof (EFI_GUID));
}

VOID VornCperVmwarePageRetireSectionType (OUT UINT8 *Type) {
  CopyMem (Type, &mVmwarePageRetire, sizeof (EFI_GUID));
}

VOID VornCperCxlEventSectionType (IN VORN_CXL_EVENT Event, OUT UINT8 *Type) {
  if (FeaturePcdGet (PcdVornFixCxlGuid)) {
    VornCperCxlEventGuid (Event, Type);
  } else {
    VornCperCxlEventIdentifier (Event, Type);
  }
}

/**
  A CXL component section carries its event record's identifier as its type.
**/
VOID VornCperSectionType (IN VORN_CPER_SECTION_KIND Kind, IN VORN_CXL_EVENT Event, OUT UINT8 *Type) {
  if (Kind == VornCperCxlComponent) {
    VornCperCxlEventSectionType (Event, Type);
  } else {
    CopyMem (Type, &mSectionTypes[Kind], sizeof (EFI_GUID));
  }
}

/**
  PCIe, PCI and CXL link errors arrive as PCIe notifications; anything else
  as a machine check, corrected (CMC) or not (MCE).
**/
CONST EFI_GUID *CperNotificationType (IN VORN_CPER_SECTION_KIND Kind, IN UINT32 Severity) {
  switch (Kind) {
    case VornCperPcie:
    case VornCperPciComponent:
    case VornCperCxlProtocol:
      return &mNotifyPcie;
    default:
      return (Severity == EFI_GENERIC_ERROR_CORRECTED) ? &mNotifyCmc : &mNotifyMce;
  }
}

BOOLEAN
VornCperSignalsNmi (IN CONST CPER_RECORD *Record, IN UINT32 ErrorSeverity) {
  UINT8   Type[sizeof (EFI_GUID)];
  BOOLEAN NmiSection;

  if (ErrorSeverity == EFI_GENERIC_ERROR_FATAL) {
    return TRUE;
  }

  if (ErrorSeverity != EFI_GENERIC_ERROR_RECOVERABLE) {
    return FALSE;
  }

  NmiSection = CompareMem (&Record->Descriptor.SectionType, &mSectionTypes[VornCperPcie], sizeof (Type)) == 0 ||
               CompareMem (&Record->Descriptor.SectionType, &mSectionTypes[VornCperCxlProtocol], sizeof (Type)) == 0;
  for (UINTN Event = 0; (Event < VornCxlEventCount) && !NmiSection; Event++) {
    VornCperCxlEventSectionType ((VORN_CXL_EVENT)Event, Type);
    NmiSection = CompareMem (&Record->Descriptor.SectionType, Type, sizeof (Type)) == 0;
  }

  return NmiSection;
}

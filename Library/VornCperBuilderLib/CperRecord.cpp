/** @file
  Record assembly: the record header, the one section descriptor and the
  body, cut or padded to the spec's length.
**/
#include "CperBuilderInternal.h"

#include <CperSections.h>

#define CPER_HEADER_SIZE     sizeof (EFI_COMMON_ERROR_RECORD_HEADER)
#define CPER_DESCRIPTOR_SIZE sizeof (EFI_ERROR_SECTION_DESCRIPTOR)
#define CPER_BODY_OFFSET     (CPER_HEADER_SIZE + CPER_DESCRIPTOR_SIZE)

//
// Room for the longest natural body.
//
#define CPER_MAX_NATURAL_BODY 512

STATIC CONST EFI_ERROR_TIME_STAMP mDefaultTimeStamp = {0x56, 0x34, 0x12, 0x01, 0x17, 0x05, 0x24, 0x20};

VOID VornCperDefaultSpec (OUT VORN_CPER_RECORD_SPEC *Spec, IN VORN_CPER_SECTION_KIND Kind) {
  ZeroMem (Spec, sizeof (*Spec));
  Spec->Kind            = Kind;
  Spec->Event           = VornCxlGeneralMedia;
  Spec->HeaderSeverity  = EFI_GENERIC_ERROR_CORRECTED;
  Spec->SectionSeverity = EFI_GENERIC_ERROR_CORRECTED;
  Spec->PhysicalAddress = 0x0000000123456780ULL;
  Spec->RecordId        = 0x0000000100000001ULL;
  Spec->SectionFlags    = EFI_ERROR_SECTION_FLAGS_PRIMARY;
  Spec->TimeStamp       = mDefaultTimeStamp;
  Spec->BodyLength      = VORN_CPER_NATURAL_BODY_LENGTH;
  Spec->SectionOffset   = CPER_BODY_OFFSET;
}

/**
  The body length a spec asks for.
**/
STATIC UINT32 CperBodyLength (IN CONST VORN_CPER_RECORD_SPEC *Spec) {
  return (Spec->BodyLength == VORN_CPER_NATURAL_BODY_LENGTH) ? VornCperSectionBodyLength (Spec->Kind)
                                                             : Spec->BodyLength;
}

UINT32
VornCperRecordLength (IN CONST VORN_CPER_RECORD_SPEC *Spec) {
  return CPER_BODY_OFFSET + CperBodyLength (Spec);
}

EFI_STATUS
VornCperBuildRecord (IN CONST VORN_CPER_RECORD_SPEC *Spec, OUT UINT8 *Buffer, IN UINTN BufferSize) {
  UINT8  Natural[CPER_MAX_NATURAL_BODY];
  UINT32 NaturalLength;
  UINT32 BodyLength;
  UINT8 *Descriptor;
  UINT8  ValidMask;

  if ((Spec == NULL) || (Buffer == NULL) || (Spec->Kind >= VornCperSectionKindCount) ||
      (Spec->Event >= VornCxlEventCount)) {
    return EFI_INVALID_PARAMETER;
  }

  BodyLength = CperBodyLength (Spec);
  if (BufferSize < (UINTN)CPER_BODY_OFFSET + BodyLength) {
    return EFI_BUFFER_TOO_SMALL;
  }

  ZeroMem (Buffer, CPER_BODY_OFFSET + BodyLength);
  NaturalLength = VornCperSectionBodyLength (Spec->Kind);
  ZeroMem (Natural, sizeof (Natural));
  CperFillBody (Spec, Natural);
  CopyMem (Buffer + CPER_BODY_OFFSET, Natural, MIN (NaturalLength, BodyLength));
  for (UINT32 Index = NaturalLength; Index < BodyLength; Index++) {
    Buffer[CPER_BODY_OFFSET + Index] = (UINT8)Index;
  }

  CperPut32 (Buffer, 0, EFI_ERROR_RECORD_SIGNATURE_START);
  CperPut16 (Buffer, 4, EFI_ERROR_RECORD_REVISION);
  CperPut32 (Buffer, 6, EFI_ERROR_RECORD_SIGNATURE_END);
  CperPut16 (Buffer, 10, 1); // section count
  CperPut32 (Buffer, 12, Spec->HeaderSeverity);
  CperPut32 (Buffer, 16, EFI_ERROR_RECORD_HEADER_TIME_STAMP_VALID);
  CperPut32 (Buffer, 20, CPER_BODY_OFFSET + BodyLength);
  CopyMem (Buffer + 24, &Spec->TimeStamp, sizeof (Spec->TimeStamp));
  CopyMem (Buffer + 64, &gVornCperCreatorId, sizeof (EFI_GUID));
  CopyMem (Buffer + 80, CperNotificationType (Spec->Kind, Spec->SectionSeverity), sizeof (EFI_GUID));
  CperPut64 (Buffer, 96, Spec->RecordId);

  Descriptor = Buffer + CPER_HEADER_SIZE;
  ValidMask  = 0;
  if (Spec->FruId != NULL) {
    ValidMask |= EFI_ERROR_SECTION_FRU_ID_VALID;
    CopyMem (Descriptor + 32, Spec->FruId, sizeof (EFI_GUID));
  }

  if (Spec->FruText != NULL) {
    ValidMask |= EFI_ERROR_SECTION_FRU_STRING_VALID;
    CopyMem (Descriptor + 52, Spec->FruText, MIN (Spec->FruTextLength, VORN_CPER_FRU_TEXT_LENGTH));
  }

  CperPut32 (Descriptor, 0, Spec->SectionOffset);
  CperPut32 (Descriptor, 4, BodyLength);
  CperPut16 (Descriptor, 8, EFI_ERROR_SECTION_REVISION);
  CperPut8 (Descriptor, 10, ValidMask);
  CperPut32 (Descriptor, 12, Spec->SectionFlags);
  if (Spec->SectionType != NULL) {
    CopyMem (Descriptor + 16, Spec->SectionType, sizeof (EFI_GUID));
  } else {
    VornCperSectionType (Spec->Kind, Spec->Event, Descriptor + 16);
  }

  CperPut32 (Descriptor, 48, Spec->SectionSeverity);
  return EFI_SUCCESS;
}

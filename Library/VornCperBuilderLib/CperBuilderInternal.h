/** @file
  Little-endian stores into a record buffer, shared by the builder's files.
**/
#pragma once

#include <Library/VornCperBuilderLib.h>

#include <Library/BaseMemoryLib.h>

inline VOID CperPut8 (IN OUT UINT8 *Buffer, IN UINTN Offset, IN UINT8 Value) {
  Buffer[Offset] = Value;
}

inline VOID CperPut16 (IN OUT UINT8 *Buffer, IN UINTN Offset, IN UINT16 Value) {
  CopyMem (Buffer + Offset, &Value, sizeof (Value));
}

inline VOID CperPut32 (IN OUT UINT8 *Buffer, IN UINTN Offset, IN UINT32 Value) {
  CopyMem (Buffer + Offset, &Value, sizeof (Value));
}

inline VOID CperPut64 (IN OUT UINT8 *Buffer, IN UINTN Offset, IN UINT64 Value) {
  CopyMem (Buffer + Offset, &Value, sizeof (Value));
}

//
// Writes the natural body of Spec's kind into Body (VornCperSectionBodyLength
// bytes, zeroed by the caller).
//
VOID CperFillBody (IN CONST VORN_CPER_RECORD_SPEC *Spec, OUT UINT8 *Body);

//
// The notification type of a record of Kind with the section's Severity.
//
CONST EFI_GUID *CperNotificationType (IN VORN_CPER_SECTION_KIND Kind, IN UINT32 Severity);

//
// The record's creator.
//
extern CONST EFI_GUID gVornCperCreatorId;

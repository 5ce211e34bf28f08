/** @file
  Debug-log dumps of CPER records and of generic error status blocks, and the
  converters that name CPER codes.
**/
#pragma once

#include <Uefi.h>
#include <Guid/Cper.h>
#include <Protocol/VornApeiLoggingSmm.h>
#include <VmwarePageRetire.h>

//
// Converters: write one text into pBuffer (bounded by BufferSize).
//
EFI_STATUS ConvertCperSeverityToString (IN UINT32 ErrorSeverity, OUT CHAR8 *pBuffer, IN UINTN BufferSize);
BOOLEAN    CperSeverityIsKnown (IN UINT32 ErrorSeverity); // the converter would log nothing for it
EFI_STATUS ConvertCperSectionTypeGuidToString (IN EFI_GUID *pSectionType, OUT CHAR8 *pBuffer, IN UINTN BufferSize);
VOID ConvertErrorStructureTypeGuidToString (IN EFI_GUID *pErrorStructureType, OUT CHAR8 *pBuffer, IN UINTN BufferSize);
VOID ConvertRegisterContextTypeToString (IN UINT16 RegisterContextType, OUT CHAR8 *pBuffer, IN UINTN BufferSize);
VOID ConvertTransactionTypeToString (IN UINT8 TransactionType, OUT CHAR8 *pBuffer, IN UINTN BufferSize);
VOID ConvertOperationToString (IN UINT8 Operation, OUT CHAR8 *pBuffer, IN UINTN BufferSize);
VOID ConvertParticipationTypeToString (IN UINT8 ParticipationType, OUT CHAR8 *pBuffer, IN UINTN BufferSize);
VOID ConvertAddressSpaceToString (IN UINT8 AddressSpace, OUT CHAR8 *pBuffer, IN UINTN BufferSize);
VOID ConvertErrorTypeToString (IN UINT8 ErrorType, OUT CHAR8 *pBuffer, IN UINTN BufferSize);
VOID ConvertErrorStatusTypeToString (IN UINT64 *pUefiCperErrorStatus, OUT CHAR8 *pBuffer, IN UINTN BufferSize);

//
// CPER record printers.
//
VOID DisplayCperRecord (IN UINTN DebugLevel, IN VOID *pCperRecord);
VOID DisplayCperRecordHeader (IN UINTN DebugLevel, IN EFI_COMMON_ERROR_RECORD_HEADER *pCperHeader);
VOID DisplayCperSectionDescriptor (IN UINTN DebugLevel, IN EFI_ERROR_SECTION_DESCRIPTOR *pCperSectionDescriptor);
VOID DisplayCperSectionProcessor (IN UINTN DebugLevel, IN VOID *pSection);
VOID DisplayCperSectionProcessorSpecific (IN UINTN DebugLevel, IN VOID *pSection);
VOID DisplayCperSectionMemory (IN UINTN DebugLevel, IN VOID *pSection);
VOID DisplayCperSectionPcie (IN UINTN DebugLevel, IN VOID *pSection);
VOID DisplayCperSectionPciComponent (IN UINTN DebugLevel, IN VOID *pSection);
VOID DisplayCperSectionCxlProtocol (IN UINTN DebugLevel, IN VOID *pSection);
VOID DisplayCperSectionCxlComponent (IN UINTN DebugLevel, IN VOID *pSection);
VOID DisplayCperSectionMemoryPageRetire (IN UINTN                      DebugLevel,
                                         IN VMWARE_PAGE_RETIRE_RECORD *pCperSectionMemoryPageRetire);

//
// Generic error status block printers.
//
VOID DisplayWheaGenericErrorStatusBlock (IN UINTN DebugLevel, IN GENERIC_ERROR_STATUS *pGenericErrorStatusBlock);
VOID DisplayWheaGenericErrorStatusBlockVmwarePageRetire (IN UINTN                 DebugLevel,
                                                         IN GENERIC_ERROR_STATUS *pGenericErrorStatusBlock);
VOID DisplayWheaGenericErrorDataEntryv63 (IN UINTN DebugLevel, IN GENERIC_ERROR_DATA_ENTRY *pGenericErrorDataEntry);
VOID DisplayWheaGenericErrorDataEntryVmwarePageRetire (IN UINTN                          DebugLevel,
                                                       IN VMWARE_PAGE_RETIRE_DATA_ENTRY *pGenericErrorDataEntry);
VOID DisplayWheaGenericErrorData (IN UINTN DebugLevel, IN EFI_GUID *pSectionType, IN VOID *pErrorDataPtr);
VOID DisplayWheaGenericErrorDataOfLength (IN UINTN     DebugLevel,
                                          IN EFI_GUID *pSectionType,
                                          IN VOID     *pErrorDataPtr,
                                          IN UINT64    Length);

/** @file
  Walking the HEST error source structures to a generic hardware error
  source and following its Error Status Address to the status block.
**/
#include "VornApeiLoggingSmm.h"

#include <IndustryStandard/Acpi.h>
#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>
#include <Library/PcdLib.h>

//
// Offsets inside the variable-size IA-32 error source structures that decide
// how far the walk steps over them.
//
#define HEST_MCE_BANK_COUNT_OFFSET   32
#define HEST_CMC_BANK_COUNT_OFFSET   44
#define HEST_NMI_STEP_FIELD_OFFSET   14
#define HEST_MCE_FIXED_SIZE          40
#define HEST_CMC_FIXED_SIZE          48
#define HEST_NMI_FIXED_SIZE          18
#define HEST_MACHINE_CHECK_BANK_SIZE 28
#define HEST_PCIE_ROOT_PORT_AER_SIZE 48
#define HEST_PCIE_DEVICE_AER_SIZE    44
#define HEST_PCIE_BRIDGE_AER_SIZE    56

/**
  Returns in *pStep how far the walk moves past the error source structure
  at Cursor, or FALSE for a type the walk does not know.
**/
static BOOLEAN HestErrorSourceStep (IN UINT64 Cursor, OUT UINT32 *pStep) {
  UINT16 StructureType;
  UINT8  BankCount;
  UINT32 NmiField;

  CopyMem (&StructureType, (VOID *)(UINTN)Cursor, sizeof (StructureType));
  switch (StructureType) {
    case EFI_ACPI_6_3_IA32_ARCHITECTURE_MACHINE_CHECK_EXCEPTION:
      CopyMem (&BankCount, (VOID *)(UINTN)(Cursor + HEST_MCE_BANK_COUNT_OFFSET), sizeof (BankCount));
      *pStep = HEST_MCE_FIXED_SIZE + HEST_MACHINE_CHECK_BANK_SIZE * BankCount;
      return TRUE;
    case EFI_ACPI_6_3_IA32_ARCHITECTURE_CORRECTED_MACHINE_CHECK:
      CopyMem (&BankCount, (VOID *)(UINTN)(Cursor + HEST_CMC_BANK_COUNT_OFFSET), sizeof (BankCount));
      *pStep = HEST_CMC_FIXED_SIZE + HEST_MACHINE_CHECK_BANK_SIZE * BankCount;
      return TRUE;
    case EFI_ACPI_6_3_IA32_ARCHITECTURE_NMI_ERROR:
      //
      // Stepping by 18 plus the UINT32 at offset 14 is deliberate, although
      // it is not the 20-byte structure size: tables built for this walk
      // depend on it.
      //
      CopyMem (&NmiField, (VOID *)(UINTN)(Cursor + HEST_NMI_STEP_FIELD_OFFSET), sizeof (NmiField));
      *pStep = HEST_NMI_FIXED_SIZE + NmiField;
      return TRUE;
    case EFI_ACPI_6_3_PCI_EXPRESS_ROOT_PORT_AER:
      *pStep = HEST_PCIE_ROOT_PORT_AER_SIZE;
      return TRUE;
    case EFI_ACPI_6_3_PCI_EXPRESS_DEVICE_AER:
      *pStep = HEST_PCIE_DEVICE_AER_SIZE;
      return TRUE;
    case EFI_ACPI_6_3_PCI_EXPRESS_BRIDGE_AER:
      *pStep = HEST_PCIE_BRIDGE_AER_SIZE;
      return TRUE;
    case EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR:
      *pStep = sizeof (EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE);
      return TRUE;
    default:
      return FALSE;
  }
}

/**
  Whether the error source structure at Cursor lies wholly before HestEnd:
  its type, the fixed part the walk reads for that type, and the step the
  walk takes over it (a step that wraps is not inside).
**/
static BOOLEAN HestErrorSourceInside (IN UINT64 Cursor, IN UINT64 HestEnd) {
  UINT16 StructureType;
  UINT32 Fixed;
  UINT32 Step;

  if ((Cursor > HestEnd) || (HestEnd - Cursor < sizeof (StructureType))) {
    return FALSE;
  }

  CopyMem (&StructureType, (VOID *)(UINTN)Cursor, sizeof (StructureType));
  switch (StructureType) {
    case EFI_ACPI_6_3_IA32_ARCHITECTURE_MACHINE_CHECK_EXCEPTION:
      Fixed = HEST_MCE_FIXED_SIZE;
      break;
    case EFI_ACPI_6_3_IA32_ARCHITECTURE_CORRECTED_MACHINE_CHECK:
      Fixed = HEST_CMC_FIXED_SIZE;
      break;
    case EFI_ACPI_6_3_IA32_ARCHITECTURE_NMI_ERROR:
      Fixed = HEST_NMI_FIXED_SIZE;
      break;
    default:
      Fixed = 0; // the step is the whole structure
      break;
  }

  if (Fixed > HestEnd - Cursor) {
    return FALSE;
  }

  return !HestErrorSourceStep (Cursor, &Step) || ((Step >= Fixed) && (Step <= HestEnd - Cursor));
}

/**
  Whether the generic hardware error source at pGhess carries SourceId and
  RelatedSourceId, each read through the checked copy as the test needs it.
**/
STATIC BOOLEAN HestGhessIdsMatch (IN CONST EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE *pGhess,
                                  IN UINT16                                                      SourceId,
                                  IN UINT16                                                      RelatedSourceId) {
  UINT16 Id;

  CopyMem (&Id, &pGhess->SourceId, sizeof (Id));
  if (Id != SourceId) {
    return FALSE;
  }

  CopyMem (&Id, &pGhess->RelatedSourceId, sizeof (Id));
  return Id == RelatedSourceId;
}

/**
  Finds the generic hardware error source (type 9) with SourceId and
  RelatedSourceId in the HEST at pHestAddress and returns its status block
  address and length. Type is only reported. The Error Status Address is
  always read as a 64-bit system-memory register.
**/
EFI_STATUS
VornApeiLoggingFindHestGhess (IN VOID    *pHestAddress,
                              IN UINT16   Type,
                              IN UINT16   SourceId,
                              IN UINT16   RelatedSourceId,
                              OUT UINT64 *pGesb,
                              OUT UINT64 *pGesbLength) {
  EFI_STATUS                                            Status;
  UINT64                                                Level;
  EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_HEADER      *pHest;
  UINT32                                                HestLength;
  UINT32                                                ErrorSourceCount;
  UINT64                                                HestEnd;
  UINT64                                                Cursor;
  UINT32                                                Index;
  UINT32                                                Step;
  EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE *pGhess;
  EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE  Ghess;
  UINT16                                                StructureType;
  UINT64                                                GarRegister;

  Level = mPrivateDataVornApeiLogging.SerDbgLevelConstructor;

  if (pHestAddress == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pHestAddress is null on entry, aborting...\n", __func__));
    return EFI_INVALID_PARAMETER;
  }

  if (pGesbLength == NULL) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR pGesbLength is null on entry, aborting...\n", __func__));
    return EFI_INVALID_PARAMETER;
  }

  Status = EFI_NOT_FOUND;
  pHest  = (EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_HEADER *)pHestAddress;

  //
  // The table and every structure the walk reaches lie where the firmware
  // tables say, possibly outside the machine's memory: each field the walk
  // needs is read once, when it needs it, through the checked copy.
  //
  CopyMem (&HestLength, &pHest->Header.Length, sizeof (HestLength));

  DEBUG (
      (Level, "%a: On entry Type %d SourceId %d RelatedSourceId 0x%04x\n", __func__, Type, SourceId, RelatedSourceId));
  DEBUG ((Level, "%a: HEST @ 0x%016lx Length 0x%08x (%d)\n", __func__, (UINT64)(UINTN)pHest, HestLength, HestLength));
  //
  // With the switch the walk reads nothing past the table's Length.
  //
  if (FeaturePcdGet (PcdVornFixHestLength) && (HestLength < sizeof (EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_HEADER))) {
    DEBUG ((DEBUG_ERROR, "%a: ERROR HEST Length %d is shorter than its header, aborting...\n", __func__, HestLength));
    return EFI_BUFFER_TOO_SMALL;
  }

  CopyMem (&ErrorSourceCount, &pHest->ErrorSourceCount, sizeof (ErrorSourceCount));
  DEBUG ((Level, "%a: HEST Number of Error Sources %d\n", __func__, ErrorSourceCount));

  HestEnd = (UINT64)(UINTN)pHest + HestLength;
  Cursor  = (UINT64)(UINTN)pHest + sizeof (EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_HEADER);
  pGhess  = NULL;
  for (Index = 0; Index < ErrorSourceCount; Index++) {
    //
    // A cursor exactly at the end is still read.
    //
    if (Cursor > HestEnd) {
      DEBUG ((DEBUG_ERROR, "%a: ERROR Exceeded table length\n", __func__));
      return EFI_BUFFER_TOO_SMALL;
    }

    if (FeaturePcdGet (PcdVornFixHestLength) && !HestErrorSourceInside (Cursor, HestEnd)) {
      DEBUG ((DEBUG_ERROR, "%a: ERROR error source %d runs past the table's end, aborting...\n", __func__, Index));
      return EFI_BUFFER_TOO_SMALL;
    }

    pGhess = (EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE *)(UINTN)Cursor;
    CopyMem (&StructureType, &pGhess->Type, sizeof (StructureType));
    if ((StructureType == EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR) &&
        HestGhessIdsMatch (pGhess, SourceId, RelatedSourceId)) {
      break;
    }

    //
    // An unknown type leaves the cursor where it is, so every remaining
    // iteration reports the same structure and nothing behind it is found.
    //
    if (HestErrorSourceStep (Cursor, &Step)) {
      Cursor += Step;
    } else {
      DEBUG ((DEBUG_ERROR, "%a: ERROR Unrecognized error source %d, aborting...\n", __func__, StructureType));
      if (FeaturePcdGet (PcdVornFixHestLength)) {
        return EFI_NOT_FOUND;
      }

      Status = EFI_NOT_FOUND;
    }
  }

  if (Index == ErrorSourceCount) {
    return Status;
  }

  CopyMem (&Ghess, pGhess, sizeof (Ghess));
  DEBUG ((Level, "%a: Matching error source %d found, returning...\n", __func__, Index));
  DEBUG ((
      Level,
      "%a: GHESS @ 0x%016lx GAS @ 0x%016lx AddrSpaceId %d RegBitWidth %d RegBitOffset %d AccessSize %d Address 0x%016lx\n",
      __func__, (UINT64)(UINTN)pGhess, (UINT64)(UINTN)&pGhess->ErrorStatusAddress,
      Ghess.ErrorStatusAddress.AddressSpaceId, Ghess.ErrorStatusAddress.RegisterBitWidth,
      Ghess.ErrorStatusAddress.RegisterBitOffset, Ghess.ErrorStatusAddress.AccessSize,
      Ghess.ErrorStatusAddress.Address));

  if (Ghess.ErrorStatusAddress.Address == 0) {
    DEBUG ((DEBUG_ERROR, "%a: GHESS GAS Address is zero value, no Generic Address Register available, aborting...\n",
            __func__));
    return EFI_COMPROMISED_DATA;
  }

  CopyMem (&GarRegister, (VOID *)(UINTN)Ghess.ErrorStatusAddress.Address, sizeof (GarRegister));
  DEBUG ((Level, "%a: GHESS GAS Address 0x%016lx => GAR Register = 0x%016lx (Error Status Data Block GESB Address)\n",
          __func__, Ghess.ErrorStatusAddress.Address, GarRegister));
  if (GarRegister == 0) {
    DEBUG ((DEBUG_ERROR, "%a: GHESS GAR is NULL, unable to find Error Status Data Block, aborting...\n", __func__));
    return EFI_COMPROMISED_DATA;
  }

  //
  // The two 32-bit lengths are summed in 32 bits; a sum past 4 GiB wraps.
  //
  *pGesb       = GarRegister;
  *pGesbLength = (UINT32)(Ghess.ErrorStatusBlockLength + Ghess.MaxRawDataLength);
  return EFI_SUCCESS;
}

/** @file
  Finding an installed ACPI table by signature through the RSDP and its root
  tables.
**/
#include "VornApeiLoggingSmm.h"

#include <Guid/Acpi.h>
#include <IndustryStandard/Acpi.h>
#include <Library/BaseMemoryLib.h>
#include <Library/DebugLib.h>
#include <Library/UefiLib.h>

//
// A root table the locator scans: where it is, what it must be called, how
// wide its entries are, and the lines that describe it. The per-table line
// keeps the XSDT wording for both roots.
//
typedef struct {
  UINT64       Address;
  UINT32       Signature;
  UINT32       EntrySize;
  CONST CHAR8 *LengthMessage;
  CONST CHAR8 *EntryCountMessage;
  CONST CHAR8 *ScanMessage;
  CONST CHAR8 *EntryMessage;
} VORN_APEI_ROOT_TABLE_SCAN;

/**
  Returns in *Table the address of the first ACPI table whose signature is
  Signature, scanning the XSDT and then the RSDT. Tables are read in place;
  checksums are not verified and each root table's own Length is trusted.
**/
EFI_STATUS
VornApeiLoggingAcpiLocateTable (IN UINT32 Signature, OUT UINT64 *Table) {
  EFI_STATUS                                    Status;
  UINT64                                        Level;
  CHAR8                                         SignatureString[sizeof (UINT32) + 1];
  EFI_ACPI_2_0_ROOT_SYSTEM_DESCRIPTION_POINTER *pRsdp;
  VORN_APEI_ROOT_TABLE_SCAN                     Roots[2];
  UINTN                                         RootIndex;
  CONST VORN_APEI_ROOT_TABLE_SCAN              *pRoot;
  UINT32                                        RootSignature;
  UINT32                                        Length;
  UINT32                                        HeaderSize;
  UINT32                                        NumberTableEntries;
  UINT32                                        EntryIndex;
  UINT64                                        EntryAddress;
  UINT64                                        TableAddress;
  UINT32                                        TableSignature;

  Level = mPrivateDataVornApeiLogging.SerDbgLevelConstructor;

  CopyMem (SignatureString, &Signature, sizeof (Signature));
  SignatureString[sizeof (Signature)] = '\0';
  DEBUG (
      (Level, "%a: Searching ACPI tables for entry signature = 0x%08x (%a)\n", __func__, Signature, SignatureString));
  *Table = 0;

  Roots[0] = {0,
              EFI_ACPI_6_3_EXTENDED_SYSTEM_DESCRIPTION_TABLE_SIGNATURE,
              sizeof (UINT64),
              "%a: XSDT length = 0x%x (%d)\n",
              "%a: XSDT NumberTableEntries = 0x%x (%d)\n",
              "%a: Scanning XSDT for requested table signature\n",
              "%a: XSDT Entry @ 0x%lx = 0x%lx, Deferenced Table @ 0x%lx\n"};
  Roots[1] = {0,
              EFI_ACPI_6_3_ROOT_SYSTEM_DESCRIPTION_TABLE_SIGNATURE,
              sizeof (UINT32),
              "%a: RSDT length = 0x%x (%d)\n",
              "%a: RSDT NumberTableEntries = 0x%x (%d)\n",
              "%a: Scanning RSDT for requested table signature\n",
              "%a: RSDT Entry @ 0x%lx = 0x%lx, Deferenced Table @ 0x%lx\n"};

  //
  // An RSDP found under the ACPI 2.0 GUID is taken to carry an XSDT whatever
  // its Revision says.
  //
  Status = EfiGetSystemConfigurationTable (&gEfiAcpi20TableGuid, (VOID **)&pRsdp);
  if (!EFI_ERROR (Status) && (pRsdp != NULL)) {
    DEBUG ((Level, "%a: Retrieved RSD PTR Revision %d (RSDT & XSDT)\n", __func__, pRsdp->Revision));
    Roots[1].Address = pRsdp->RsdtAddress;
    Roots[0].Address = pRsdp->XsdtAddress;
  } else {
    Status = EfiGetSystemConfigurationTable (&gEfiAcpi10TableGuid, (VOID **)&pRsdp);
    if (!EFI_ERROR (Status) && (pRsdp != NULL)) {
      DEBUG ((Level, "%a: Retrieved RSD PTR Revision 1 (RSDT only)\n", __func__));
      Roots[1].Address = pRsdp->RsdtAddress;
    } else {
      DEBUG ((DEBUG_ERROR, "%a: ERROR %r retrieving RSD PTR\n", __func__, Status));
    }
  }

  DEBUG ((Level, "%a: RSDT at 0x%lx\n", __func__, Roots[1].Address));
  DEBUG ((Level, "%a: XSDT at 0x%lx\n", __func__, Roots[0].Address));

  for (RootIndex = 0; RootIndex < ARRAY_SIZE (Roots); RootIndex++) {
    pRoot = &Roots[RootIndex];
    if (pRoot->Address == 0) {
      continue;
    }

    CopyMem (&RootSignature, (VOID *)(UINTN)pRoot->Address, sizeof (RootSignature));
    if (RootSignature != pRoot->Signature) {
      continue;
    }

    Length             = ((EFI_ACPI_DESCRIPTION_HEADER *)(UINTN)pRoot->Address)->Length;
    HeaderSize         = sizeof (EFI_ACPI_DESCRIPTION_HEADER);
    NumberTableEntries = (Length - HeaderSize) / pRoot->EntrySize;
    DEBUG ((Level, pRoot->LengthMessage, __func__, Length, Length));
    DEBUG ((Level, "%a: Size table header = 0x%x (%d)\n", __func__, HeaderSize, HeaderSize));
    DEBUG ((Level, pRoot->EntryCountMessage, __func__, NumberTableEntries, NumberTableEntries));
    DEBUG ((Level, pRoot->ScanMessage, __func__));

    for (EntryIndex = 0; EntryIndex < NumberTableEntries; EntryIndex++) {
      //
      // XSDT entries sit at 4-byte offsets, so they are copied rather than
      // dereferenced; a 32-bit RSDT entry lands zero-extended.
      //
      EntryAddress = pRoot->Address + HeaderSize + (UINT64)pRoot->EntrySize * EntryIndex;
      TableAddress = 0;
      CopyMem (&TableAddress, (VOID *)(UINTN)EntryAddress, pRoot->EntrySize);
      DEBUG ((Level, pRoot->EntryMessage, __func__, EntryAddress, TableAddress, TableAddress));

      CopyMem (&TableSignature, (VOID *)(UINTN)TableAddress, sizeof (TableSignature));
      CopyMem (SignatureString, &TableSignature, sizeof (TableSignature));
      DEBUG ((Level, "%a: XSDT Table Index %d => Table Signature 0x%08x (%a)\n", __func__, EntryIndex, TableSignature,
              SignatureString));
      if (TableSignature == Signature) {
        *Table = TableAddress;
        DEBUG ((Level, "%a: Requested signature found, returning address 0x%lx to caller\n", __func__, TableAddress));
        return EFI_SUCCESS;
      }
    }
  }

  return EFI_NOT_FOUND;
}

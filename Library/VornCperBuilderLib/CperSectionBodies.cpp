/** @file
  Section bodies with plausible field values for each section kind.
**/
#include "CperBuilderInternal.h"

#include <CperSections.h>

STATIC CONST EFI_GUID mCacheCheck = {0xA55701F5, 0xE3EF, 0x43DE, {0xAC, 0x72, 0x24, 0x9B, 0x57, 0x3F, 0xAD, 0x2C}};

//
// Generic error status: the error type sits in bits 15:8.
//
#define CPER_ERROR_STATUS(Type) ((UINT64)(Type) << 8)
#define CPER_ERR_MEM            4
#define CPER_ERR_BUS            16

STATIC VOID CperFillMemory (IN CONST VORN_CPER_RECORD_SPEC *Spec, OUT UINT8 *Body) {
  CperPut64 (Body, 0, 0x00000000000043FFULL); // valid: through column and error type
  CperPut64 (Body, 8, CPER_ERROR_STATUS (CPER_ERR_MEM));
  CperPut64 (Body, 16, Spec->PhysicalAddress);
  CperPut64 (Body, 24, 0xFFFFFFFFFFFFFFC0ULL); // address mask
  CperPut16 (Body, 32, 0);                     // node
  CperPut16 (Body, 34, 1);                     // card
  CperPut16 (Body, 36, 2);                     // module
  CperPut16 (Body, 38, 3);                     // bank
  CperPut16 (Body, 40, 4);                     // device
  CperPut16 (Body, 42, 0x1234);                // row
  CperPut16 (Body, 44, 0x0056);                // column
  // single-bit ECC when corrected, multi-bit ECC otherwise
  CperPut8 (Body, 72, (Spec->SectionSeverity == EFI_GENERIC_ERROR_CORRECTED) ? 0x02 : 0x03);
}

STATIC VOID CperFillPcie (OUT UINT8 *Body) {
  CperPut64 (Body, 0, 0xEFULL);     // all but the serial number valid
  CperPut32 (Body, 8, 4);           // root port
  CperPut32 (Body, 12, 0x00000400); // PCIe 4.0
  CperPut32 (Body, 16, 0x00100547); // command / status
  CperPut16 (Body, 24, 0x1022);     // vendor
  CperPut16 (Body, 26, 0x1483);     // device
  CperPut8 (Body, 29, 0x04);
  CperPut8 (Body, 30, 0x06);         // class code: PCI bridge
  CperPut8 (Body, 31, 1);            // function
  CperPut8 (Body, 32, 3);            // device
  CperPut16 (Body, 33, 0);           // segment
  CperPut8 (Body, 35, 0x40);         // primary bus
  CperPut8 (Body, 36, 0x41);         // secondary bus
  CperPut16 (Body, 37, 2 << 3);      // slot 2
  CperPut32 (Body, 48, 0x00000010);  // bridge control / status
  CperPut32 (Body, 52, 0x00420010);  // capability header: PCIe capability
  CperPut32 (Body, 112, 0x14820001); // AER extended capability header
  CperPut32 (Body, 116, 0x00004000); // uncorrectable status: completion timeout
}

STATIC VOID CperFillCxlProtocol (OUT UINT8 *Body) {
  CperPut64 (Body, 0, 0x0FULL); // agent type, address, device id, serial
  CperPut8 (Body, 8, 2);        // CXL 2.0 device
  CperPut8 (Body, 18, 0x80);    // bus (function and device 0)
  CperPut16 (Body, 24, 0x1E98); // vendor
  CperPut16 (Body, 26, 0x0D93); // device
  CperPut16 (Body, 32, 0x0502); // class code: CXL memory device
  CperPut64 (Body, 40, 0x0011223344556677ULL);
}

STATIC VOID CperFillCxlComponent (IN CONST VORN_CPER_RECORD_SPEC *Spec, OUT UINT8 *Body) {
  CperPut32 (Body, 0, VornCperSectionBodyLength (VornCperCxlComponent));
  CperPut64 (Body, 4, 0x07ULL); // device id, serial, event log valid
  CperPut16 (Body, 12, 0x1E98); // vendor
  CperPut16 (Body, 14, 0x0D93); // device
  CperPut8 (Body, 18, 0x80);    // bus (function and device 0)
  CperPut64 (Body, 24, 0x0011223344556677ULL);
  // the event record: its identifier first, then length and handle
  VornCperCxlEventIdentifier (Spec->Event, Body + 32);
  CperPut8 (Body, 48, 0x80);    // record length 128
  CperPut16 (Body, 52, 0x0001); // handle
  CperPut64 (Body, 56, 0x17A1B2C3D4E5F600ULL);
}

STATIC VOID CperFillProcessorGeneric (OUT UINT8 *Body) {
  STATIC CONST CHAR8 Brand[] = "AMD EPYC 9654 96-Core Processor";

  CperPut64 (Body, 0, 0x1FFFULL & ~0x0C00ULL); // all but requester/responder ids
  CperPut8 (Body, 9, 2);                       // IA32/X64 type, X64 ISA
  CperPut8 (Body, 10, 1);                      // cache error
  CperPut8 (Body, 11, 1);                      // data read
  CperPut8 (Body, 12, 0x01);                   // restartable
  CperPut8 (Body, 13, 2);                      // level
  CperPut64 (Body, 16, 0x0000000000A10F11ULL); // CPUID version
  CopyMem (Body + 24, Brand, sizeof (Brand));
  CperPut64 (Body, 152, 0x10);                  // APIC id
  CperPut64 (Body, 160, 0x0000000123456780ULL); // target address
  CperPut64 (Body, 184, 0xFFFFFFFF81234567ULL); // instruction pointer
}

/**
  The X64 register state of the processor that took the error, after the
  error information: CR8 holds the task priority, between CR4 and GDTR.
**/
STATIC VOID CperFillX64Context (OUT UINT8 *Body, IN UINTN Offset) {
  UINTN State;

  State = Offset + sizeof (CPER_IA32_X64_CONTEXT_INFO);
  CperPut16 (Body, Offset, CPER_REGISTER_CONTEXT_X64);
  CperPut16 (Body, Offset + 2, sizeof (CPER_X64_REGISTER_STATE));
  CperPut64 (Body, State + OFFSET_OF (CPER_X64_REGISTER_STATE, Rsp), 0xFFFFC90000123F00ULL);
  CperPut16 (Body, State + OFFSET_OF (CPER_X64_REGISTER_STATE, Cs), 0x10);
  CperPut16 (Body, State + OFFSET_OF (CPER_X64_REGISTER_STATE, Ss), 0x18);
  CperPut64 (Body, State + OFFSET_OF (CPER_X64_REGISTER_STATE, Rflags), 0x246);
  CperPut64 (Body, State + OFFSET_OF (CPER_X64_REGISTER_STATE, Rip), 0xFFFFFFFF81234567ULL);
  CperPut64 (Body, State + OFFSET_OF (CPER_X64_REGISTER_STATE, Cr0), 0x80050033);
  CperPut64 (Body, State + OFFSET_OF (CPER_X64_REGISTER_STATE, Cr3), 0x000000010A4D2000ULL);
  CperPut64 (Body, State + OFFSET_OF (CPER_X64_REGISTER_STATE, Cr4), 0x00770EF0);
  CperPut64 (Body, State + OFFSET_OF (CPER_X64_REGISTER_STATE, Cr8), 0x2);
  CperPut64 (Body, State + OFFSET_OF (CPER_X64_REGISTER_STATE, Gdtr), 0xFFFFFE0000001000ULL);
  CperPut64 (Body, State + OFFSET_OF (CPER_X64_REGISTER_STATE, Gdtr) + 8, 0x7F);
  CperPut64 (Body, State + OFFSET_OF (CPER_X64_REGISTER_STATE, Idtr), 0xFFFFFE0000000000ULL);
  CperPut64 (Body, State + OFFSET_OF (CPER_X64_REGISTER_STATE, Idtr) + 8, 0xFFF);
  CperPut16 (Body, State + OFFSET_OF (CPER_X64_REGISTER_STATE, Tr), 0x40);
}

STATIC VOID CperFillProcessorSpecific (OUT UINT8 *Body) {
  CperPut64 (Body, 0, 0x03ULL | (1ULL << 2) | (1ULL << 8)); // APIC id, CPUID, one error info, one context
  CperPut64 (Body, 8, 0x10);
  CperPut32 (Body, 16, 0x00A10F11); // CPUID leaf 1 EAX
  CperPut32 (Body, 24, 0x10800800); // EBX
  CopyMem (Body + 64, &mCacheCheck, sizeof (mCacheCheck));
  CperPut64 (Body, 80, 0x13ULL); // check info, target, instruction pointer
  CperPut64 (Body, 88, 0x000000000000003FULL | (1ULL << 16) | (3ULL << 18) | (2ULL << 22));
  CperPut64 (Body, 96, 0x0000000123456780ULL);
  CperPut64 (Body, 120, 0xFFFFFFFF81234567ULL);
  CperFillX64Context (Body, 128);
}

STATIC VOID CperFillPciComponent (OUT UINT8 *Body) {
  CperPut64 (Body, 0, 0x1FULL);
  CperPut64 (Body, 8, CPER_ERROR_STATUS (CPER_ERR_BUS));
  CperPut16 (Body, 16, 0x1022); // vendor
  CperPut16 (Body, 18, 0x149C); // device
  CperPut8 (Body, 20, 0x30);
  CperPut8 (Body, 21, 0x03);
  CperPut8 (Body, 22, 0x0C); // class code: USB controller
  CperPut8 (Body, 23, 3);    // function
  CperPut8 (Body, 25, 0x05); // bus (device and segment 0)
  CperPut32 (Body, 32, 1);   // memory register pairs
  CperPut32 (Body, 36, 1);   // I/O register pairs
  CperPut64 (Body, 40, 0x00000000F7300000ULL);
  CperPut64 (Body, 48, 0x00000000DEADBEEFULL);
  CperPut64 (Body, 56, 0x0000000000000CF8ULL);
  CperPut64 (Body, 64, 0x0000000080000000ULL);
}

UINT32
VornCperSectionBodyLength (IN VORN_CPER_SECTION_KIND Kind) {
  switch (Kind) {
    case VornCperMemory:
      return 80;
    case VornCperPcie:
      return 208;
    case VornCperCxlProtocol:
      return 116;
    case VornCperCxlComponent:
      return 32 + 128;
    case VornCperProcessorGeneric:
      return 192;
    case VornCperProcessorSpecific:
      return 64 + 64 + sizeof (CPER_IA32_X64_CONTEXT_INFO) + sizeof (CPER_X64_REGISTER_STATE);
    case VornCperPciComponent:
      return 40 + 2 * 16;
    default:
      return 0;
  }
}

VOID CperFillBody (IN CONST VORN_CPER_RECORD_SPEC *Spec, OUT UINT8 *Body) {
  switch (Spec->Kind) {
    case VornCperMemory:
      CperFillMemory (Spec, Body);
      break;
    case VornCperPcie:
      CperFillPcie (Body);
      break;
    case VornCperCxlProtocol:
      CperFillCxlProtocol (Body);
      break;
    case VornCperCxlComponent:
      CperFillCxlComponent (Spec, Body);
      break;
    case VornCperProcessorGeneric:
      CperFillProcessorGeneric (Body);
      break;
    case VornCperProcessorSpecific:
      CperFillProcessorSpecific (Body);
      break;
    case VornCperPciComponent:
      CperFillPciComponent (Body);
      break;
    default:
      break;
  }
}

/** @file
  Single-section CPER record builder: headers, descriptors and section bodies
  with plausible field values for each section kind.
**/
#include "Handlers/CperBuilder.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include <Host.h>

#include <CperSections.h>

namespace Cper {

namespace {

//
// Writes a little-endian value at a byte offset of a buffer.
//
template <typename T> void Put (std::vector<UINT8> &Buffer, size_t Offset, T Value) {
  std::memcpy (Buffer.data () + Offset, &Value, sizeof (Value));
}

void PutBytes (std::vector<UINT8> &Buffer, size_t Offset, const Bytes16 &Value) {
  std::copy (Value.begin (), Value.end (), Buffer.begin () + static_cast<ptrdiff_t> (Offset));
}

//
// A UUID given by its five text fields, in EFI GUID byte order (first three
// fields little-endian) or in text order.
//
struct Uuid {
  UINT32               Data1;
  UINT16               Data2;
  UINT16               Data3;
  std::array<UINT8, 8> Data4;

  Bytes16 AsEfiGuid () const {
    Bytes16 Out{};
    for (int i = 0; i < 4; i++) {
      Out[i] = static_cast<UINT8> (Data1 >> (8 * i));
    }
    for (int i = 0; i < 2; i++) {
      Out[4 + i] = static_cast<UINT8> (Data2 >> (8 * i));
      Out[6 + i] = static_cast<UINT8> (Data3 >> (8 * i));
    }
    std::copy (Data4.begin (), Data4.end (), Out.begin () + 8);
    return Out;
  }

  Bytes16 AsTextOrder () const {
    Bytes16 Out{};
    for (int i = 0; i < 4; i++) {
      Out[i] = static_cast<UINT8> (Data1 >> (8 * (3 - i)));
    }
    for (int i = 0; i < 2; i++) {
      Out[4 + i] = static_cast<UINT8> (Data2 >> (8 * (1 - i)));
      Out[6 + i] = static_cast<UINT8> (Data3 >> (8 * (1 - i)));
    }
    std::copy (Data4.begin (), Data4.end (), Out.begin () + 8);
    return Out;
  }
};

constexpr Uuid kProcessorGeneric{0x9876CCAD, 0x47B4, 0x4BDB, {0xB6, 0x5E, 0x16, 0xF1, 0x93, 0xC4, 0xF3, 0xDB}};
constexpr Uuid kProcessorSpecific{0xDC3EA0B0, 0xA144, 0x4797, {0xB9, 0x5B, 0x53, 0xFA, 0x24, 0x2B, 0x6E, 0x1D}};
constexpr Uuid kPlatformMemory{0xA5BC1114, 0x6F64, 0x4EDE, {0xB8, 0x63, 0x3E, 0x83, 0xED, 0x7C, 0x83, 0xB1}};
constexpr Uuid kPcie{0xD995E954, 0xBBC1, 0x430F, {0xAD, 0x91, 0xB4, 0x4D, 0xCB, 0x3C, 0x6F, 0x35}};
constexpr Uuid kPciComponent{0xEB5E4685, 0xCA66, 0x4769, {0xB6, 0xA2, 0x26, 0x06, 0x8B, 0x00, 0x13, 0x26}};
constexpr Uuid kCxlProtocol{0x80B9EFB4, 0x52B5, 0x4DE3, {0xA7, 0x77, 0x68, 0x78, 0x4B, 0x77, 0x10, 0x48}};
constexpr Uuid kVmwarePageRetire{0x330F1140, 0x72A5, 0x11DF, {0x96, 0x90, 0x00, 0x02, 0xA5, 0xD5, 0xC5, 0x1B}};
constexpr Uuid kCacheCheck{0xA55701F5, 0xE3EF, 0x43DE, {0xAC, 0x72, 0x24, 0x9B, 0x57, 0x3F, 0xAD, 0x2C}};

constexpr Uuid kCxlEvents[] = {
    {0xFBCD0A77, 0xC260, 0x417F, {0x85, 0xA9, 0x08, 0x8B, 0x16, 0x21, 0xEB, 0xA6}},
    {0x601DCBB3, 0x9C06, 0x4EAB, {0xB8, 0xAF, 0x4E, 0x9B, 0xFB, 0x5C, 0x96, 0x24}},
    {0xFE927475, 0xDD59, 0x4339, {0xA5, 0x86, 0x79, 0xBA, 0xB1, 0x13, 0xB7, 0x74}},
    {0xE71F3A40, 0x2D29, 0x4092, {0x8A, 0x39, 0x4D, 0x1C, 0x96, 0x6C, 0x7C, 0x65}},
    {0x77CF9271, 0x9C02, 0x470B, {0x9F, 0xE4, 0xBC, 0x7B, 0x75, 0xF2, 0xDA, 0x97}},
    {0x40D26425, 0x3396, 0x4C4D, {0xA5, 0xDA, 0x3D, 0x47, 0x26, 0x3A, 0xF4, 0x25}},
    {0x8DC44363, 0x0C96, 0x4710, {0xB7, 0xBF, 0x04, 0xBB, 0x99, 0x53, 0x4C, 0x3F}},
    {0xCA95AFA7, 0xF183, 0x4018, {0x8C, 0x2F, 0x95, 0x26, 0x8E, 0x10, 0x1A, 0x2A}},
};

constexpr Uuid kCreatorId{0x4E4F5256, 0x5241, 0x5352, {0x53, 0x49, 0x4D, 0x45, 0x52, 0x52, 0x4F, 0x52}};
constexpr Uuid kNotifyMce{0xE8F56FFE, 0x919C, 0x4CC5, {0xBA, 0x88, 0x65, 0xAB, 0xE1, 0x49, 0x13, 0xBB}};
constexpr Uuid kNotifyCmc{0x2DCE8BB1, 0xBDD7, 0x450E, {0xB9, 0xAD, 0x9C, 0xF4, 0xEB, 0xD4, 0xF8, 0x90}};
constexpr Uuid kNotifyPcie{0xCF93C01F, 0x1A16, 0x4DFC, {0xB8, 0xBC, 0x9C, 0x4D, 0xAF, 0x67, 0xC1, 0x04}};

constexpr UINT32 kHeaderSize     = sizeof (EFI_COMMON_ERROR_RECORD_HEADER);
constexpr UINT32 kDescriptorSize = sizeof (EFI_ERROR_SECTION_DESCRIPTOR);
constexpr UINT32 kBodyOffset     = kHeaderSize + kDescriptorSize;

//
// Generic error status: the error type sits in bits 15:8.
//
constexpr UINT64 ErrorStatus (UINT8 Type) {
  return static_cast<UINT64> (Type) << 8;
}

constexpr UINT8 kErrMem = 4;
constexpr UINT8 kErrBus = 16;

void FillMemory (std::vector<UINT8> &Body, const RecordSpec &Spec) {
  const bool Corrected = Spec.SectionSeverity == EFI_GENERIC_ERROR_CORRECTED;
  // error status, address, mask, node, card, module, bank, device, row, column, error type
  Put<UINT64> (Body, 0, 0x00000000000043FFULL);
  Put<UINT64> (Body, 8, ErrorStatus (kErrMem));
  Put<UINT64> (Body, 16, Spec.PhysicalAddress);
  Put<UINT64> (Body, 24, 0xFFFFFFFFFFFFFFC0ULL);
  Put<UINT16> (Body, 32, 0);          // node
  Put<UINT16> (Body, 34, 1);          // card
  Put<UINT16> (Body, 36, 2);          // module
  Put<UINT16> (Body, 38, 3);          // bank
  Put<UINT16> (Body, 40, 4);          // device
  Put<UINT16> (Body, 42, 0x1234);     // row
  Put<UINT16> (Body, 44, 0x0056);     // column
  Body[72] = Corrected ? 0x02 : 0x03; // single-bit ECC / multi-bit ECC
}

void FillPcie (std::vector<UINT8> &Body) {
  Put<UINT64> (Body, 0, 0xEFULL);     // all but the serial number valid
  Put<UINT32> (Body, 8, 4);           // root port
  Put<UINT32> (Body, 12, 0x00000400); // PCIe 4.0
  Put<UINT32> (Body, 16, 0x00100547); // command / status
  Put<UINT16> (Body, 24, 0x1022);     // vendor
  Put<UINT16> (Body, 26, 0x1483);     // device
  Body[28] = 0x00;
  Body[29] = 0x04;
  Body[30] = 0x06;                     // class code: PCI bridge
  Body[31] = 1;                        // function
  Body[32] = 3;                        // device
  Put<UINT16> (Body, 33, 0);           // segment
  Body[35] = 0x40;                     // primary bus
  Body[36] = 0x41;                     // secondary bus
  Put<UINT16> (Body, 37, 2 << 3);      // slot 2
  Put<UINT32> (Body, 48, 0x00000010);  // bridge control / status
  Put<UINT32> (Body, 52, 0x00420010);  // capability header: PCIe capability
  Put<UINT32> (Body, 112, 0x14820001); // AER extended capability header
  Put<UINT32> (Body, 116, 0x00004000); // uncorrectable status: completion timeout
}

void FillCxlProtocol (std::vector<UINT8> &Body) {
  Put<UINT64> (Body, 0, 0x0FULL); // agent type, address, device id, serial
  Body[8]  = 2;                   // CXL 2.0 device
  Body[16] = 0;                   // function
  Body[17] = 0;                   // device
  Body[18] = 0x80;                // bus
  Put<UINT16> (Body, 19, 0);      // segment
  Put<UINT16> (Body, 24, 0x1E98); // vendor
  Put<UINT16> (Body, 26, 0x0D93); // device
  Put<UINT16> (Body, 32, 0x0502); // class code: CXL memory device
  Put<UINT64> (Body, 40, 0x0011223344556677ULL);
}

void FillCxlComponent (std::vector<UINT8> &Body, const RecordSpec &Spec) {
  Put<UINT32> (Body, 0, static_cast<UINT32> (Body.size ()));
  Put<UINT64> (Body, 4, 0x07ULL); // device id, serial, event log valid
  Put<UINT16> (Body, 12, 0x1E98); // vendor
  Put<UINT16> (Body, 14, 0x0D93); // device
  Body[16] = 0;                   // function
  Body[17] = 0;                   // device
  Body[18] = 0x80;                // bus
  Put<UINT64> (Body, 24, 0x0011223344556677ULL);
  // the event record: its identifier first, then length and handle
  PutBytes (Body, 32, CxlEventIdentifier (Spec.Event));
  Body[48] = 0x80;                // record length 128
  Put<UINT16> (Body, 52, 0x0001); // handle
  Put<UINT64> (Body, 56, 0x17A1B2C3D4E5F600ULL);
}

void FillProcessorGeneric (std::vector<UINT8> &Body) {
  static const char Brand[] = "AMD EPYC 9654 96-Core Processor";

  Put<UINT64> (Body, 0, 0x1FFFULL & ~0x0C00ULL); // all but requester/responder ids
  Body[8]  = 0;                                  // IA32/X64
  Body[9]  = 2;                                  // X64
  Body[10] = 1;                                  // cache error
  Body[11] = 1;                                  // data read
  Body[12] = 0x01;                               // restartable
  Body[13] = 2;                                  // level
  Put<UINT64> (Body, 16, 0x0000000000A10F11ULL); // CPUID version
  std::memcpy (Body.data () + 24, Brand, sizeof (Brand));
  Put<UINT64> (Body, 152, 0x10);                  // APIC id
  Put<UINT64> (Body, 160, 0x0000000123456780ULL); // target address
  Put<UINT64> (Body, 184, 0xFFFFFFFF81234567ULL); // instruction pointer
}

//
// The X64 register state of the processor that took the error, after the
// error information: CR8 holds the task priority, between CR4 and GDTR.
//
void FillX64Context (std::vector<UINT8> &Body, size_t Offset) {
  const size_t State = Offset + sizeof (CPER_IA32_X64_CONTEXT_INFO);

  Put<UINT16> (Body, Offset, CPER_REGISTER_CONTEXT_X64);
  Put<UINT16> (Body, Offset + 2, sizeof (CPER_X64_REGISTER_STATE));
  Put<UINT64> (Body, State + offsetof (CPER_X64_REGISTER_STATE, Rsp), 0xFFFFC90000123F00ULL);
  Put<UINT16> (Body, State + offsetof (CPER_X64_REGISTER_STATE, Cs), 0x10);
  Put<UINT16> (Body, State + offsetof (CPER_X64_REGISTER_STATE, Ss), 0x18);
  Put<UINT64> (Body, State + offsetof (CPER_X64_REGISTER_STATE, Rflags), 0x246);
  Put<UINT64> (Body, State + offsetof (CPER_X64_REGISTER_STATE, Rip), 0xFFFFFFFF81234567ULL);
  Put<UINT64> (Body, State + offsetof (CPER_X64_REGISTER_STATE, Cr0), 0x80050033);
  Put<UINT64> (Body, State + offsetof (CPER_X64_REGISTER_STATE, Cr3), 0x000000010A4D2000ULL);
  Put<UINT64> (Body, State + offsetof (CPER_X64_REGISTER_STATE, Cr4), 0x00770EF0);
  Put<UINT64> (Body, State + offsetof (CPER_X64_REGISTER_STATE, Cr8), 0x2);
  Put<UINT64> (Body, State + offsetof (CPER_X64_REGISTER_STATE, Gdtr), 0xFFFFFE0000001000ULL);
  Put<UINT64> (Body, State + offsetof (CPER_X64_REGISTER_STATE, Gdtr) + 8, 0x7F);
  Put<UINT64> (Body, State + offsetof (CPER_X64_REGISTER_STATE, Idtr), 0xFFFFFE0000000000ULL);
  Put<UINT64> (Body, State + offsetof (CPER_X64_REGISTER_STATE, Idtr) + 8, 0xFFF);
  Put<UINT16> (Body, State + offsetof (CPER_X64_REGISTER_STATE, Tr), 0x40);
}

void FillProcessorSpecific (std::vector<UINT8> &Body) {
  Put<UINT64> (Body, 0, 0x03ULL | (1ULL << 2) | (1ULL << 8)); // APIC id, CPUID, one error info, one context
  Put<UINT64> (Body, 8, 0x10);
  Put<UINT32> (Body, 16, 0x00A10F11); // CPUID leaf 1 EAX
  Put<UINT32> (Body, 24, 0x10800800); // EBX
  PutBytes (Body, 64, kCacheCheck.AsEfiGuid ());
  Put<UINT64> (Body, 80, 0x13ULL); // check info, target, instruction pointer
  Put<UINT64> (Body, 88, 0x000000000000003FULL | (1ULL << 16) | (3ULL << 18) | (2ULL << 22));
  Put<UINT64> (Body, 96, 0x0000000123456780ULL);
  Put<UINT64> (Body, 120, 0xFFFFFFFF81234567ULL);
  FillX64Context (Body, 128);
}

void FillPciComponent (std::vector<UINT8> &Body) {
  Put<UINT64> (Body, 0, 0x1FULL);
  Put<UINT64> (Body, 8, ErrorStatus (kErrBus));
  Put<UINT16> (Body, 16, 0x1022); // vendor
  Put<UINT16> (Body, 18, 0x149C); // device
  Body[20] = 0x30;
  Body[21] = 0x03;
  Body[22] = 0x0C;           // class code: USB controller
  Body[23] = 3;              // function
  Body[24] = 0;              // device
  Body[25] = 0x05;           // bus
  Body[26] = 0;              // segment
  Put<UINT32> (Body, 32, 1); // memory register pairs
  Put<UINT32> (Body, 36, 1); // I/O register pairs
  Put<UINT64> (Body, 40, 0x00000000F7300000ULL);
  Put<UINT64> (Body, 48, 0x00000000DEADBEEFULL);
  Put<UINT64> (Body, 56, 0x0000000000000CF8ULL);
  Put<UINT64> (Body, 64, 0x0000000080000000ULL);
}

const Uuid &NotificationFor (SectionKind Kind, UINT32 Severity) {
  switch (Kind) {
    case SectionKind::Pcie:
    case SectionKind::PciComponent:
    case SectionKind::CxlProtocol:
      return kNotifyPcie;
    default:
      // A corrected machine check is a CMC, whatever the section.
      return Severity == EFI_GENERIC_ERROR_CORRECTED ? kNotifyCmc : kNotifyMce;
  }
}

} // namespace

Bytes16 CxlEventIdentifier (CxlEvent Event) {
  return kCxlEvents[static_cast<size_t> (Event)].AsTextOrder ();
}

Bytes16 CxlEventIdentifierAsEfiGuid (CxlEvent Event) {
  return kCxlEvents[static_cast<size_t> (Event)].AsEfiGuid ();
}

Bytes16 VmwarePageRetireSectionType () {
  return kVmwarePageRetire.AsEfiGuid ();
}

Bytes16 CxlEventSectionType (CxlEvent Event) {
  return Host::Config ().Fixes.contains (Host::Fix::CxlGuid) ? CxlEventIdentifierAsEfiGuid (Event)
                                                             : CxlEventIdentifier (Event);
}

Bytes16 SectionTypeBytes (SectionKind Kind, CxlEvent Event) {
  switch (Kind) {
    case SectionKind::Memory:
      return kPlatformMemory.AsEfiGuid ();
    case SectionKind::Pcie:
      return kPcie.AsEfiGuid ();
    case SectionKind::CxlProtocol:
      return kCxlProtocol.AsEfiGuid ();
    case SectionKind::CxlComponent:
      return CxlEventSectionType (Event);
    case SectionKind::ProcessorGeneric:
      return kProcessorGeneric.AsEfiGuid ();
    case SectionKind::ProcessorSpecific:
      return kProcessorSpecific.AsEfiGuid ();
    case SectionKind::PciComponent:
      return kPciComponent.AsEfiGuid ();
  }
  return {};
}

UINT32
SectionBodyLength (SectionKind Kind) {
  switch (Kind) {
    case SectionKind::Memory:
      return 80;
    case SectionKind::Pcie:
      return 208;
    case SectionKind::CxlProtocol:
      return 116;
    case SectionKind::CxlComponent:
      return 32 + 128;
    case SectionKind::ProcessorGeneric:
      return 192;
    case SectionKind::ProcessorSpecific:
      return 64 + 64 + sizeof (CPER_IA32_X64_CONTEXT_INFO) + sizeof (CPER_X64_REGISTER_STATE);
    case SectionKind::PciComponent:
      return 40 + 2 * 16;
  }
  return 0;
}

std::vector<UINT8> BuildRecord (const RecordSpec &Spec) {
  const UINT32       NaturalLength = SectionBodyLength (Spec.Kind);
  std::vector<UINT8> Body (NaturalLength, 0);

  switch (Spec.Kind) {
    case SectionKind::Memory:
      FillMemory (Body, Spec);
      break;
    case SectionKind::Pcie:
      FillPcie (Body);
      break;
    case SectionKind::CxlProtocol:
      FillCxlProtocol (Body);
      break;
    case SectionKind::CxlComponent:
      FillCxlComponent (Body, Spec);
      break;
    case SectionKind::ProcessorGeneric:
      FillProcessorGeneric (Body);
      break;
    case SectionKind::ProcessorSpecific:
      FillProcessorSpecific (Body);
      break;
    case SectionKind::PciComponent:
      FillPciComponent (Body);
      break;
  }

  if (Spec.BodyLength) {
    const size_t Length = *Spec.BodyLength;
    Body.resize (Length);
    for (size_t i = NaturalLength; i < Length; i++) {
      Body[i] = static_cast<UINT8> (i);
    }
  }

  const UINT32       BodyLength = static_cast<UINT32> (Body.size ());
  std::vector<UINT8> Record (kBodyOffset + BodyLength, 0);

  // record header
  Put<UINT32> (Record, 0, EFI_ERROR_RECORD_SIGNATURE_START);
  Put<UINT16> (Record, 4, EFI_ERROR_RECORD_REVISION);
  Put<UINT32> (Record, 6, EFI_ERROR_RECORD_SIGNATURE_END);
  Put<UINT16> (Record, 10, 1);
  Put<UINT32> (Record, 12, Spec.HeaderSeverity);
  Put<UINT32> (Record, 16, EFI_ERROR_RECORD_HEADER_TIME_STAMP_VALID);
  Put<UINT32> (Record, 20, kBodyOffset + BodyLength);
  Put<EFI_ERROR_TIME_STAMP> (Record, 24, Spec.TimeStamp);
  PutBytes (Record, 64, kCreatorId.AsEfiGuid ());
  PutBytes (Record, 80, NotificationFor (Spec.Kind, Spec.SectionSeverity).AsEfiGuid ());
  Put<UINT64> (Record, 96, Spec.RecordId);

  // section descriptor
  const size_t D         = kHeaderSize;
  UINT8        ValidMask = 0;
  if (Spec.FruId) {
    ValidMask |= EFI_ERROR_SECTION_FRU_ID_VALID;
    PutBytes (Record, D + 32, *Spec.FruId);
  }
  if (Spec.FruText) {
    ValidMask |= EFI_ERROR_SECTION_FRU_STRING_VALID;
    std::memcpy (Record.data () + D + 52, Spec.FruText->data (), std::min<size_t> (Spec.FruText->size (), 20));
  }
  Put<UINT32> (Record, D + 0, Spec.SectionOffset);
  Put<UINT32> (Record, D + 4, BodyLength);
  Put<UINT16> (Record, D + 8, EFI_ERROR_SECTION_REVISION);
  Record[D + 10] = ValidMask;
  Put<UINT32> (Record, D + 12, Spec.SectionFlags);
  PutBytes (Record, D + 16, Spec.SectionType.value_or (SectionTypeBytes (Spec.Kind, Spec.Event)));
  Put<UINT32> (Record, D + 48, Spec.SectionSeverity);

  std::copy (Body.begin (), Body.end (), Record.begin () + kBodyOffset);
  return Record;
}

CPER_RECORD *PlaceInSmram (const std::vector<UINT8> &Record) {
  const UINT64 Address = Host::AllocateSmram (Record.size ());
  std::memcpy (Host::At<void> (Address), Record.data (), Record.size ());
  return Host::At<CPER_RECORD> (Address);
}

} // namespace Cper

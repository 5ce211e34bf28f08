/** @file
  Layouts of the CPER section bodies the record dumps decode: processor
  generic, IA32/X64 processor specific (with its error information, check
  and context structures), platform memory, PCI Express, PCI component, CXL
  protocol error and CXL component event sections. All little-endian and
  packed, exactly as the OS and the error handlers exchange them.
**/
#pragma once

#include <Uefi.h>

//
// Section type of a CXL protocol error.
//
extern EFI_GUID gEfiCxlProtocolErrorSectionGuid;

//
// Error structure types of an IA32/X64 processor error information structure.
//
#define CPER_IA32_X64_CACHE_CHECK_GUID               \
  {                                                  \
    0xA55701F5, 0xE3EF, 0x43DE, {                    \
      0xAC, 0x72, 0x24, 0x9B, 0x57, 0x3F, 0xAD, 0x2C \
    }                                                \
  }
#define CPER_IA32_X64_TLB_CHECK_GUID                 \
  {                                                  \
    0xFC06B535, 0x5E1F, 0x4562, {                    \
      0x9F, 0x25, 0x0A, 0x3B, 0x9A, 0xDB, 0x63, 0xC3 \
    }                                                \
  }
#define CPER_IA32_X64_BUS_CHECK_GUID                 \
  {                                                  \
    0x1CF3F8B3, 0xC5B1, 0x49A2, {                    \
      0xAA, 0x59, 0x5E, 0xEF, 0x92, 0xFF, 0xA6, 0x3C \
    }                                                \
  }
#define CPER_IA32_X64_MS_CHECK_GUID                  \
  {                                                  \
    0x48AB7F57, 0xDC34, 0x4F6C, {                    \
      0xA7, 0xD3, 0xB0, 0xB5, 0xB0, 0xA7, 0x43, 0x14 \
    }                                                \
  }

//
// IA32/X64 section head: ValidFields bits 2..7 count the error information
// structures that follow, bits 8..13 the context structures after them.
//
#define CPER_IA32_X64_VALID_APIC_ID           BIT0
#define CPER_IA32_X64_VALID_CPUID_INFO        BIT1
#define CPER_IA32_X64_ERROR_INFO_COUNT(Valid) ((UINTN)(((Valid) >> 2) & 0x3F))
#define CPER_IA32_X64_CONTEXT_COUNT(Valid)    ((UINTN)(((Valid) >> 8) & 0x3F))

//
// Validation bits that gate a decode: the error status of the memory and PCI
// component sections, the check information of an error information
// structure.
//
#define CPER_MEMORY_VALID_ERROR_STATUS        BIT0
#define CPER_PCI_COMPONENT_VALID_ERROR_STATUS BIT0
#define CPER_ERROR_INFO_VALID_CHECK_INFO      BIT0

//
// Register context types of a processor context information structure.
//
#define CPER_REGISTER_CONTEXT_UNCLASSIFIED  0
#define CPER_REGISTER_CONTEXT_MSR           1
#define CPER_REGISTER_CONTEXT_IA32          2
#define CPER_REGISTER_CONTEXT_X64           3
#define CPER_REGISTER_CONTEXT_FXSAVE        4
#define CPER_REGISTER_CONTEXT_IA32_DEBUG    5
#define CPER_REGISTER_CONTEXT_X64_DEBUG     6
#define CPER_REGISTER_CONTEXT_MEMORY_MAPPED 7

//
// CXL protocol error agent type whose agent address is an RCRB base rather
// than a segment/bus/device/function.
//
#define CPER_CXL_AGENT_CXL11_DOWNSTREAM_PORT 1

#pragma pack(1)

typedef struct {
  UINT64 ValidFields;
  UINT8  Type;
  UINT8  Isa;
  UINT8  ErrorType;
  UINT8  Operation;
  UINT8  Flags;
  UINT8  Level;
  UINT16 Reserved;
  UINT64 VersionInfo;
  CHAR8  BrandString[128];
  UINT64 ProcessorId;
  UINT64 TargetAddress;
  UINT64 RequestorId;
  UINT64 ResponderId;
  UINT64 InstructionIp;
} CPER_SECTION_PROCESSOR_GENERIC;

typedef struct {
  UINT64 ValidFields;
  UINT64 ApicId;
  UINT64 CpuIdEax;
  UINT64 CpuIdEbx;
  UINT64 CpuIdEcx;
  UINT64 CpuIdEdx;
  UINT64 CpuIdReserved[2];
} CPER_SECTION_IA32_X64;

typedef struct {
  EFI_GUID ErrorType;
  UINT64   ValidFields;
  UINT64   CheckInfo;
  UINT64   TargetId;
  UINT64   RequestorId;
  UINT64   ResponderId;
  UINT64   InstructionIp;
} CPER_IA32_X64_ERROR_INFO;

typedef struct {
  UINT16 RegisterType;
  UINT16 ArraySize;
  UINT32 MsrAddress;
  UINT64 MmRegisterAddress;
} CPER_IA32_X64_CONTEXT_INFO;

typedef struct {
  UINT32 Eax;
  UINT32 Ebx;
  UINT32 Ecx;
  UINT32 Edx;
  UINT32 Esi;
  UINT32 Edi;
  UINT32 Ebp;
  UINT32 Esp;
  UINT16 Cs;
  UINT16 Ds;
  UINT16 Ss;
  UINT16 Es;
  UINT16 Fs;
  UINT16 Gs;
  UINT32 Eflags;
  UINT32 Eip;
  UINT32 Cr0;
  UINT32 Cr1;
  UINT32 Cr2;
  UINT32 Cr3;
  UINT32 Cr4;
  UINT32 Gdtr[2];
  UINT32 Idtr[2];
  UINT16 Ldtr;
  UINT16 Tr;
} CPER_IA32_REGISTER_STATE;

typedef struct {
  UINT64 Rax;
  UINT64 Rbx;
  UINT64 Rcx;
  UINT64 Rdx;
  UINT64 Rsi;
  UINT64 Rdi;
  UINT64 Rbp;
  UINT64 Rsp;
  UINT64 R8;
  UINT64 R9;
  UINT64 R10;
  UINT64 R11;
  UINT64 R12;
  UINT64 R13;
  UINT64 R14;
  UINT64 R15;
  UINT16 Cs;
  UINT16 Ds;
  UINT16 Ss;
  UINT16 Es;
  UINT16 Fs;
  UINT16 Gs;
  UINT32 Reserved;
  UINT64 Rflags;
  UINT64 Rip;
  UINT64 Cr0;
  UINT64 Cr1;
  UINT64 Cr2;
  UINT64 Cr3;
  UINT64 Cr4;
  UINT64 Cr8; // UEFI layout: EDK2's structure lacks it and reads every later field 8 bytes early
  UINT64 Gdtr[2];
  UINT64 Idtr[2];
  UINT16 Ldtr;
  UINT16 Tr;
} CPER_X64_REGISTER_STATE;

typedef struct {
  UINT32 Dr0;
  UINT32 Dr1;
  UINT32 Dr2;
  UINT32 Dr3;
  UINT32 Dr6;
  UINT32 Dr7;
} CPER_IA32_DEBUG_REGISTERS;

typedef struct {
  UINT64 Dr0;
  UINT64 Dr1;
  UINT64 Dr2;
  UINT64 Dr3;
  UINT64 Dr6;
  UINT64 Dr7;
} CPER_X64_DEBUG_REGISTERS;

typedef struct {
  UINT64 ValidFields;
  UINT64 ErrorStatus;
  UINT64 PhysicalAddress;
  UINT64 PhysicalAddressMask;
  UINT16 Node;
  UINT16 Card;
  UINT16 Module;
  UINT16 Bank;
  UINT16 Device;
  UINT16 Row;
  UINT16 Column;
  UINT16 BitPosition;
  UINT64 RequestorId;
  UINT64 ResponderId;
  UINT64 TargetId;
  UINT8  ErrorType;
  UINT8  Extended;
  UINT16 RankNumber;
  UINT16 CardHandle;
  UINT16 ModuleHandle;
} CPER_SECTION_MEMORY;

typedef struct {
  UINT16 VendorId;
  UINT16 DeviceId;
  UINT8  ClassCode[3];
  UINT8  Function;
  UINT8  Device;
  UINT16 Segment;
  UINT8  PrimaryOrDeviceBus;
  UINT8  SecondaryBus;
  UINT16 Slot;
  UINT8  Reserved;
} CPER_PCIE_DEVICE_ID;

typedef struct {
  UINT64              ValidFields;
  UINT32              PortType;
  UINT32              Version;
  UINT32              CommandStatus;
  UINT32              Reserved;
  CPER_PCIE_DEVICE_ID DeviceId;
  UINT64              SerialNumber;
  UINT32              BridgeControlStatus;
  UINT8               Capability[60];
  UINT8               AerInfo[96];
} CPER_SECTION_PCIE;

typedef struct {
  UINT16 VendorId;
  UINT16 DeviceId;
  UINT8  ClassCode[3];
  UINT8  Function;
  UINT8  Device;
  UINT8  Bus;
  UINT8  Segment;
  UINT8  Reserved1;
  UINT32 Reserved2;
} CPER_PCI_COMPONENT_ID;

//
// Fixed part; (MemoryNumber + IoNumber) address/value pairs follow.
//
typedef struct {
  UINT64                ValidFields;
  UINT64                ErrorStatus;
  CPER_PCI_COMPONENT_ID IdInfo;
  UINT32                MemoryNumber;
  UINT32                IoNumber;
} CPER_SECTION_PCI_COMPONENT;

typedef struct {
  UINT64 Address;
  UINT64 Value;
} CPER_PCI_COMPONENT_REGISTER_PAIR;

typedef struct {
  UINT16 VendorId;
  UINT16 DeviceId;
  UINT16 SubsystemVendorId;
  UINT16 SubsystemId;
  UINT16 ClassCode;
  UINT16 Slot;
  UINT32 Reserved;
} CPER_CXL_AGENT_DEVICE_ID;

//
// Fixed part; the DVSEC (DvsecLength bytes) and then the error log
// (ErrorLogLength bytes) follow.
//
typedef struct {
  UINT64                   ValidFields;
  UINT8                    AgentType;
  UINT8                    Reserved1[7];
  UINT64                   AgentAddress;
  CPER_CXL_AGENT_DEVICE_ID DeviceId;
  UINT64                   SerialNumber;
  UINT8                    Capability[60];
  UINT16                   DvsecLength;
  UINT16                   ErrorLogLength;
  UINT32                   Reserved2;
} CPER_SECTION_CXL_PROTOCOL;

typedef struct {
  UINT16 VendorId;
  UINT16 DeviceId;
  UINT8  Function;
  UINT8  Device;
  UINT8  Bus;
  UINT16 Segment;
  UINT16 Slot;
  UINT8  Reserved;
} CPER_CXL_COMPONENT_DEVICE_ID;

//
// Common head of a CXL component event record; the record-specific data
// follows up to the record's length.
//
typedef struct {
  UINT8  Identifier[16];
  UINT8  Length;
  UINT8  Flags[3];
  UINT16 Handle;
  UINT16 RelatedHandle;
  UINT64 Timestamp;
  UINT8  MaintenanceOperationClass;
  UINT8  Reserved[15];
} CPER_CXL_EVENT_RECORD_HEADER;

typedef struct {
  UINT32                       Length;
  UINT64                       ValidFields;
  CPER_CXL_COMPONENT_DEVICE_ID DeviceId;
  UINT64                       SerialNumber;
  CPER_CXL_EVENT_RECORD_HEADER EventRecord;
} CPER_SECTION_CXL_COMPONENT;

#pragma pack()

static_assert (sizeof (CPER_SECTION_PROCESSOR_GENERIC) == 192, "processor generic size");
static_assert (OFFSET_OF (CPER_SECTION_PROCESSOR_GENERIC, VersionInfo) == 16, "processor version offset");
static_assert (OFFSET_OF (CPER_SECTION_PROCESSOR_GENERIC, ProcessorId) == 152, "processor id offset");
static_assert (OFFSET_OF (CPER_SECTION_PROCESSOR_GENERIC, InstructionIp) == 184, "processor ip offset");
static_assert (sizeof (CPER_SECTION_IA32_X64) == 64, "IA32/X64 head size");
static_assert (OFFSET_OF (CPER_SECTION_IA32_X64, CpuIdEax) == 16, "IA32/X64 CPUID offset");
static_assert (sizeof (CPER_IA32_X64_ERROR_INFO) == 64, "error info size");
static_assert (OFFSET_OF (CPER_IA32_X64_ERROR_INFO, CheckInfo) == 24, "error info check offset");
static_assert (OFFSET_OF (CPER_IA32_X64_ERROR_INFO, InstructionIp) == 56, "error info ip offset");
static_assert (sizeof (CPER_IA32_X64_CONTEXT_INFO) == 16, "context info size");
static_assert (OFFSET_OF (CPER_IA32_X64_CONTEXT_INFO, MmRegisterAddress) == 8, "context mm address offset");
static_assert (sizeof (CPER_IA32_REGISTER_STATE) == 92, "IA32 register state size");
static_assert (OFFSET_OF (CPER_IA32_REGISTER_STATE, Eflags) == 44, "IA32 eflags offset");
static_assert (OFFSET_OF (CPER_IA32_REGISTER_STATE, Gdtr) == 72, "IA32 gdtr offset");
static_assert (sizeof (CPER_X64_REGISTER_STATE) == 244, "X64 register state size");
static_assert (OFFSET_OF (CPER_X64_REGISTER_STATE, Rflags) == 144, "X64 rflags offset");
static_assert (OFFSET_OF (CPER_X64_REGISTER_STATE, Cr4) == 192, "X64 cr4 offset");
static_assert (OFFSET_OF (CPER_X64_REGISTER_STATE, Cr8) == 200, "X64 cr8 offset");
static_assert (OFFSET_OF (CPER_X64_REGISTER_STATE, Gdtr) == 208, "X64 gdtr offset");
static_assert (OFFSET_OF (CPER_X64_REGISTER_STATE, Idtr) == 224, "X64 idtr offset");
static_assert (OFFSET_OF (CPER_X64_REGISTER_STATE, Ldtr) == 240, "X64 ldtr offset");
static_assert (OFFSET_OF (CPER_X64_REGISTER_STATE, Tr) == 242, "X64 tr offset");
static_assert (sizeof (CPER_IA32_DEBUG_REGISTERS) == 24, "IA32 debug registers size");
static_assert (sizeof (CPER_X64_DEBUG_REGISTERS) == 48, "X64 debug registers size");
static_assert (sizeof (CPER_SECTION_MEMORY) == 80, "memory section size");
static_assert (OFFSET_OF (CPER_SECTION_MEMORY, Node) == 32, "memory node offset");
static_assert (OFFSET_OF (CPER_SECTION_MEMORY, RequestorId) == 48, "memory requestor offset");
static_assert (OFFSET_OF (CPER_SECTION_MEMORY, ErrorType) == 72, "memory error type offset");
static_assert (OFFSET_OF (CPER_SECTION_MEMORY, ModuleHandle) == 78, "memory module handle offset");
static_assert (sizeof (CPER_PCIE_DEVICE_ID) == 16, "PCIe device id size");
static_assert (OFFSET_OF (CPER_PCIE_DEVICE_ID, Segment) == 9, "PCIe segment offset");
static_assert (OFFSET_OF (CPER_PCIE_DEVICE_ID, Slot) == 13, "PCIe slot offset");
static_assert (sizeof (CPER_SECTION_PCIE) == 208, "PCIe section size");
static_assert (OFFSET_OF (CPER_SECTION_PCIE, DeviceId) == 24, "PCIe device id offset");
static_assert (OFFSET_OF (CPER_SECTION_PCIE, BridgeControlStatus) == 48, "PCIe bridge offset");
static_assert (OFFSET_OF (CPER_SECTION_PCIE, Capability) == 52, "PCIe capability offset");
static_assert (OFFSET_OF (CPER_SECTION_PCIE, AerInfo) == 112, "PCIe AER offset");
static_assert (sizeof (CPER_PCI_COMPONENT_ID) == 16, "PCI component id size");
static_assert (sizeof (CPER_SECTION_PCI_COMPONENT) == 40, "PCI component size");
static_assert (OFFSET_OF (CPER_SECTION_PCI_COMPONENT, MemoryNumber) == 32, "PCI component memory number offset");
static_assert (sizeof (CPER_PCI_COMPONENT_REGISTER_PAIR) == 16, "PCI register pair size");
static_assert (sizeof (CPER_CXL_AGENT_DEVICE_ID) == 16, "CXL agent device id size");
static_assert (sizeof (CPER_SECTION_CXL_PROTOCOL) == 116, "CXL protocol size");
static_assert (OFFSET_OF (CPER_SECTION_CXL_PROTOCOL, AgentAddress) == 16, "CXL agent address offset");
static_assert (OFFSET_OF (CPER_SECTION_CXL_PROTOCOL, DeviceId) == 24, "CXL device id offset");
static_assert (OFFSET_OF (CPER_SECTION_CXL_PROTOCOL, Capability) == 48, "CXL capability offset");
static_assert (OFFSET_OF (CPER_SECTION_CXL_PROTOCOL, DvsecLength) == 108, "CXL DVSEC length offset");
static_assert (sizeof (CPER_CXL_COMPONENT_DEVICE_ID) == 12, "CXL component device id size");
static_assert (OFFSET_OF (CPER_CXL_COMPONENT_DEVICE_ID, Segment) == 7, "CXL component segment offset");
static_assert (sizeof (CPER_CXL_EVENT_RECORD_HEADER) == 48, "CXL event record head size");
static_assert (OFFSET_OF (CPER_CXL_EVENT_RECORD_HEADER, Timestamp) == 24, "CXL event timestamp offset");
static_assert (OFFSET_OF (CPER_SECTION_CXL_COMPONENT, ValidFields) == 4, "CXL component valid offset");
static_assert (OFFSET_OF (CPER_SECTION_CXL_COMPONENT, DeviceId) == 12, "CXL component device id offset");
static_assert (OFFSET_OF (CPER_SECTION_CXL_COMPONENT, SerialNumber) == 24, "CXL component serial offset");
static_assert (OFFSET_OF (CPER_SECTION_CXL_COMPONENT, EventRecord) == 32, "CXL component event offset");

/** @file
  ACPI table layouts this platform builds and the module reads: the common
  header, the root pointers, the generic address structure, the HEST with its
  generic hardware error source and status block, and the ERST.
**/
#pragma once

#include <Uefi.h>

#pragma pack(1)

typedef struct {
  UINT32 Signature;
  UINT32 Length;
  UINT8  Revision;
  UINT8  Checksum;
  UINT8  OemId[6];
  UINT64 OemTableId;
  UINT32 OemRevision;
  UINT32 CreatorId;
  UINT32 CreatorRevision;
} EFI_ACPI_DESCRIPTION_HEADER;

typedef struct {
  UINT64 Signature;
  UINT8  Checksum;
  UINT8  OemId[6];
  UINT8  Revision;
  UINT32 RsdtAddress;
  UINT32 Length;
  UINT64 XsdtAddress;
  UINT8  ExtendedChecksum;
  UINT8  Reserved[3];
} EFI_ACPI_2_0_ROOT_SYSTEM_DESCRIPTION_POINTER;

typedef struct {
  UINT8  AddressSpaceId;
  UINT8  RegisterBitWidth;
  UINT8  RegisterBitOffset;
  UINT8  AccessSize;
  UINT64 Address;
} EFI_ACPI_6_3_GENERIC_ADDRESS_STRUCTURE;

#define EFI_ACPI_6_3_SYSTEM_MEMORY 0
#define EFI_ACPI_6_3_SYSTEM_IO     1
#define EFI_ACPI_6_3_UNDEFINED     0
#define EFI_ACPI_6_3_BYTE          1
#define EFI_ACPI_6_3_WORD          2
#define EFI_ACPI_6_3_DWORD         3
#define EFI_ACPI_6_3_QWORD         4

#define EFI_ACPI_6_3_ROOT_SYSTEM_DESCRIPTION_POINTER_SIGNATURE   SIGNATURE_64 ('R', 'S', 'D', ' ', 'P', 'T', 'R', ' ')
#define EFI_ACPI_6_3_EXTENDED_SYSTEM_DESCRIPTION_TABLE_SIGNATURE SIGNATURE_32 ('X', 'S', 'D', 'T')
#define EFI_ACPI_6_3_ROOT_SYSTEM_DESCRIPTION_TABLE_SIGNATURE     SIGNATURE_32 ('R', 'S', 'D', 'T')
#define EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_SIGNATURE       SIGNATURE_32 ('H', 'E', 'S', 'T')
#define EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_SIGNATURE  SIGNATURE_32 ('E', 'R', 'S', 'T')

//
// HEST
//
typedef struct {
  EFI_ACPI_DESCRIPTION_HEADER Header;
  UINT32                      ErrorSourceCount;
} EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_HEADER;

#define EFI_ACPI_6_3_IA32_ARCHITECTURE_MACHINE_CHECK_EXCEPTION 0
#define EFI_ACPI_6_3_IA32_ARCHITECTURE_CORRECTED_MACHINE_CHECK 1
#define EFI_ACPI_6_3_IA32_ARCHITECTURE_NMI_ERROR               2
#define EFI_ACPI_6_3_PCI_EXPRESS_ROOT_PORT_AER                 6
#define EFI_ACPI_6_3_PCI_EXPRESS_DEVICE_AER                    7
#define EFI_ACPI_6_3_PCI_EXPRESS_BRIDGE_AER                    8
#define EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR                    9

#define EFI_ACPI_6_3_HARDWARE_ERROR_NOTIFICATION_SCI 3
#define EFI_ACPI_6_3_HARDWARE_ERROR_NOTIFICATION_NMI 4

typedef struct {
  UINT8  Type;
  UINT8  Length;
  UINT16 ConfigurationWriteEnable;
  UINT32 PollInterval;
  UINT32 Vector;
  UINT32 SwitchToPollingThresholdValue;
  UINT32 SwitchToPollingThresholdWindow;
  UINT32 ErrorThresholdValue;
  UINT32 ErrorThresholdWindow;
} EFI_ACPI_6_3_HARDWARE_ERROR_NOTIFICATION_STRUCTURE;

typedef struct {
  UINT16                                             Type;
  UINT16                                             SourceId;
  UINT16                                             RelatedSourceId;
  UINT8                                              Flags;
  UINT8                                              Enabled;
  UINT32                                             NumberOfRecordsToPreAllocate;
  UINT32                                             MaxSectionsPerRecord;
  UINT32                                             MaxRawDataLength;
  EFI_ACPI_6_3_GENERIC_ADDRESS_STRUCTURE             ErrorStatusAddress;
  EFI_ACPI_6_3_HARDWARE_ERROR_NOTIFICATION_STRUCTURE NotificationStructure;
  UINT32                                             ErrorStatusBlockLength;
} EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE;

//
// Generic error status block and data entry (OS-shared)
//
typedef struct {
  UINT32 UncorrectableErrorValid : 1;
  UINT32 CorrectableErrorValid : 1;
  UINT32 MultipleUncorrectableErrors : 1;
  UINT32 MultipleCorrectableErrors : 1;
  UINT32 ErrorDataEntryCount : 10;
  UINT32 Reserved : 18;
} EFI_ACPI_6_3_ERROR_BLOCK_STATUS;

typedef struct {
  EFI_ACPI_6_3_ERROR_BLOCK_STATUS BlockStatus;
  UINT32                          RawDataOffset;
  UINT32                          RawDataLength;
  UINT32                          DataLength;
  UINT32                          ErrorSeverity;
} EFI_ACPI_6_3_GENERIC_ERROR_STATUS_STRUCTURE;

typedef struct {
  UINT8  SectionType[16];
  UINT32 ErrorSeverity;
  UINT16 Revision;
  UINT8  ValidationBits;
  UINT8  Flags;
  UINT32 ErrorDataLength;
  UINT8  FruId[16];
  UINT8  FruText[20];
  UINT8  Timestamp[8];
} EFI_ACPI_6_3_GENERIC_ERROR_DATA_ENTRY_STRUCTURE;

#define EFI_ACPI_6_3_GENERIC_ERROR_DATA_ENTRY_REVISION 0x0300

#define EFI_ACPI_6_3_ERROR_SEVERITY_RECOVERABLE 0
#define EFI_ACPI_6_3_ERROR_SEVERITY_FATAL       1
#define EFI_ACPI_6_3_ERROR_SEVERITY_CORRECTED   2
#define EFI_ACPI_6_3_ERROR_SEVERITY_NONE        3

//
// ERST
//
typedef struct {
  EFI_ACPI_DESCRIPTION_HEADER Header;
  UINT32                      SerializationHeaderSize;
  UINT8                       Reserved0[4];
  UINT32                      InstructionEntryCount;
} EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_HEADER;

typedef struct {
  UINT8                                  SerializationAction;
  UINT8                                  Instruction;
  UINT8                                  Flags;
  UINT8                                  Reserved0;
  EFI_ACPI_6_3_GENERIC_ADDRESS_STRUCTURE RegisterRegion;
  UINT64                                 Value;
  UINT64                                 Mask;
} EFI_ACPI_6_3_ERST_SERIALIZATION_INSTRUCTION_ENTRY;

#pragma pack()

#define EFI_ACPI_6_3_ERST_BEGIN_WRITE_OPERATION                  0x00
#define EFI_ACPI_6_3_ERST_BEGIN_READ_OPERATION                   0x01
#define EFI_ACPI_6_3_ERST_BEGIN_CLEAR_OPERATION                  0x02
#define EFI_ACPI_6_3_ERST_END_OPERATION                          0x03
#define EFI_ACPI_6_3_ERST_SET_RECORD_OFFSET                      0x04
#define EFI_ACPI_6_3_ERST_EXECUTE_OPERATION                      0x05
#define EFI_ACPI_6_3_ERST_CHECK_BUSY_STATUS                      0x06
#define EFI_ACPI_6_3_ERST_GET_COMMAND_STATUS                     0x07
#define EFI_ACPI_6_3_ERST_GET_RECORD_IDENTIFIER                  0x08
#define EFI_ACPI_6_3_ERST_SET_RECORD_IDENTIFIER                  0x09
#define EFI_ACPI_6_3_ERST_GET_RECORD_COUNT                       0x0A
#define EFI_ACPI_6_3_ERST_BEGIN_DUMMY_WRITE_OPERATION            0x0B
#define EFI_ACPI_6_3_ERST_GET_ERROR_LOG_ADDRESS_RANGE            0x0D
#define EFI_ACPI_6_3_ERST_GET_ERROR_LOG_ADDRESS_RANGE_LENGTH     0x0E
#define EFI_ACPI_6_3_ERST_GET_ERROR_LOG_ADDRESS_RANGE_ATTRIBUTES 0x0F

#define EFI_ACPI_6_3_ERST_READ_REGISTER                 0x00
#define EFI_ACPI_6_3_ERST_READ_REGISTER_VALUE           0x01
#define EFI_ACPI_6_3_ERST_WRITE_REGISTER                0x02
#define EFI_ACPI_6_3_ERST_WRITE_REGISTER_VALUE          0x03
#define EFI_ACPI_6_3_ERST_NOOP                          0x04
#define EFI_ACPI_6_3_ERST_LOAD_VAR1                     0x05
#define EFI_ACPI_6_3_ERST_LOAD_VAR2                     0x06
#define EFI_ACPI_6_3_ERST_STORE_VAR1                    0x07
#define EFI_ACPI_6_3_ERST_ADD                           0x08
#define EFI_ACPI_6_3_ERST_SUBTRACT                      0x09
#define EFI_ACPI_6_3_ERST_ADD_VALUE                     0x0A
#define EFI_ACPI_6_3_ERST_SUBTRACT_VALUE                0x0B
#define EFI_ACPI_6_3_ERST_STALL                         0x0C
#define EFI_ACPI_6_3_ERST_STALL_WHILE_TRUE              0x0D
#define EFI_ACPI_6_3_ERST_SKIP_NEXT_INSTRUCTION_IF_TRUE 0x0E
#define EFI_ACPI_6_3_ERST_GOTO                          0x0F
#define EFI_ACPI_6_3_ERST_SET_SRC_ADDRESS_BASE          0x10
#define EFI_ACPI_6_3_ERST_SET_DST_ADDRESS_BASE          0x11
#define EFI_ACPI_6_3_ERST_MOVE_DATA                     0x12

#define EFI_ACPI_6_3_ERST_PRESERVE_REGISTER 0x01

static_assert (sizeof (EFI_ACPI_DESCRIPTION_HEADER) == 36, "ACPI header size");
static_assert (offsetof (EFI_ACPI_DESCRIPTION_HEADER, Checksum) == 9, "ACPI checksum offset");
static_assert (sizeof (EFI_ACPI_2_0_ROOT_SYSTEM_DESCRIPTION_POINTER) == 36, "RSDP size");
static_assert (offsetof (EFI_ACPI_2_0_ROOT_SYSTEM_DESCRIPTION_POINTER, Revision) == 15, "RSDP revision offset");
static_assert (offsetof (EFI_ACPI_2_0_ROOT_SYSTEM_DESCRIPTION_POINTER, RsdtAddress) == 16, "RSDT address offset");
static_assert (offsetof (EFI_ACPI_2_0_ROOT_SYSTEM_DESCRIPTION_POINTER, XsdtAddress) == 24, "XSDT address offset");
static_assert (sizeof (EFI_ACPI_6_3_GENERIC_ADDRESS_STRUCTURE) == 12, "GAS size");
static_assert (sizeof (EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_HEADER) == 40, "HEST header size");
static_assert (sizeof (EFI_ACPI_6_3_HARDWARE_ERROR_NOTIFICATION_STRUCTURE) == 28, "notification size");
static_assert (sizeof (EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE) == 64, "GHES size");
static_assert (offsetof (EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE, MaxRawDataLength) == 16, "GHES raw");
static_assert (offsetof (EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE, ErrorStatusAddress) == 20, "GHES GAS");
static_assert (offsetof (EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE, ErrorStatusBlockLength) == 60,
               "GHES len");
static_assert (sizeof (EFI_ACPI_6_3_ERROR_BLOCK_STATUS) == 4, "BlockStatus size");
static_assert (sizeof (EFI_ACPI_6_3_GENERIC_ERROR_STATUS_STRUCTURE) == 20, "GESB size");
static_assert (sizeof (EFI_ACPI_6_3_GENERIC_ERROR_DATA_ENTRY_STRUCTURE) == 72, "GEDE size");
static_assert (offsetof (EFI_ACPI_6_3_GENERIC_ERROR_DATA_ENTRY_STRUCTURE, FruId) == 28, "GEDE FruId");
static_assert (offsetof (EFI_ACPI_6_3_GENERIC_ERROR_DATA_ENTRY_STRUCTURE, FruText) == 44, "GEDE FruText");
static_assert (offsetof (EFI_ACPI_6_3_GENERIC_ERROR_DATA_ENTRY_STRUCTURE, Timestamp) == 64, "GEDE Timestamp");
static_assert (sizeof (EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_HEADER) == 48, "ERST header size");
static_assert (sizeof (EFI_ACPI_6_3_ERST_SERIALIZATION_INSTRUCTION_ENTRY) == 32, "ERST entry size");
static_assert (offsetof (EFI_ACPI_6_3_ERST_SERIALIZATION_INSTRUCTION_ENTRY, RegisterRegion.Address) == 8, "entry reg");
static_assert (offsetof (EFI_ACPI_6_3_ERST_SERIALIZATION_INSTRUCTION_ENTRY, Value) == 16, "entry value");

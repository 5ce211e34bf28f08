/** @file
  UEFI Common Platform Error Record (CPER): record header, section
  descriptor, section-type and notification-type GUIDs.
**/
#pragma once

#include <Uefi.h>

#define EFI_ERROR_RECORD_SIGNATURE_START SIGNATURE_32 ('C', 'P', 'E', 'R')
#define EFI_ERROR_RECORD_SIGNATURE_END   0xFFFFFFFF
#define EFI_ERROR_RECORD_REVISION        0x0101
#define EFI_ERROR_SECTION_REVISION       0x0100

#define EFI_GENERIC_ERROR_RECOVERABLE 0x00000000
#define EFI_GENERIC_ERROR_FATAL       0x00000001
#define EFI_GENERIC_ERROR_CORRECTED   0x00000002
#define EFI_GENERIC_ERROR_INFO        0x00000003

#define EFI_ERROR_RECORD_HEADER_PLATFORM_ID_VALID  BIT0
#define EFI_ERROR_RECORD_HEADER_TIME_STAMP_VALID   BIT1
#define EFI_ERROR_RECORD_HEADER_PARTITION_ID_VALID BIT2

#define EFI_ERROR_SECTION_FRU_ID_VALID     BIT0
#define EFI_ERROR_SECTION_FRU_STRING_VALID BIT1

#define EFI_ERROR_SECTION_FLAGS_PRIMARY BIT0

#pragma pack(1)

typedef struct {
  UINT8 Seconds;
  UINT8 Minutes;
  UINT8 Hours;
  UINT8 Flag;
  UINT8 Day;
  UINT8 Month;
  UINT8 Year;
  UINT8 Century;
} EFI_ERROR_TIME_STAMP;

typedef struct {
  UINT32               SignatureStart;
  UINT16               Revision;
  UINT32               SignatureEnd;
  UINT16               SectionCount;
  UINT32               ErrorSeverity;
  UINT32               ValidationBits;
  UINT32               RecordLength;
  EFI_ERROR_TIME_STAMP TimeStamp;
  EFI_GUID             PlatformID;
  EFI_GUID             PartitionID;
  EFI_GUID             CreatorID;
  EFI_GUID             NotificationType;
  UINT64               RecordID;
  UINT32               Flags;
  UINT64               PersistenceInfo;
  UINT8                Resv1[12];
} EFI_COMMON_ERROR_RECORD_HEADER;

typedef struct {
  UINT32   SectionOffset;
  UINT32   SectionLength;
  UINT16   Revision;
  UINT8    SecValidMask;
  UINT8    Resv1;
  UINT32   SectionFlags;
  EFI_GUID SectionType;
  EFI_GUID FruId;
  UINT32   Severity;
  CHAR8    FruString[20];
} EFI_ERROR_SECTION_DESCRIPTOR;

#pragma pack()

static_assert (sizeof (EFI_ERROR_TIME_STAMP) == 8, "CPER time stamp size");
static_assert (sizeof (EFI_COMMON_ERROR_RECORD_HEADER) == 128, "CPER header size");
static_assert (offsetof (EFI_COMMON_ERROR_RECORD_HEADER, ErrorSeverity) == 12, "CPER severity offset");
static_assert (offsetof (EFI_COMMON_ERROR_RECORD_HEADER, RecordLength) == 20, "CPER length offset");
static_assert (offsetof (EFI_COMMON_ERROR_RECORD_HEADER, TimeStamp) == 24, "CPER time stamp offset");
static_assert (offsetof (EFI_COMMON_ERROR_RECORD_HEADER, NotificationType) == 80, "CPER notification offset");
static_assert (offsetof (EFI_COMMON_ERROR_RECORD_HEADER, RecordID) == 96, "CPER record id offset");
static_assert (offsetof (EFI_COMMON_ERROR_RECORD_HEADER, PersistenceInfo) == 108, "CPER persistence offset");
static_assert (sizeof (EFI_ERROR_SECTION_DESCRIPTOR) == 72, "CPER descriptor size");
static_assert (offsetof (EFI_ERROR_SECTION_DESCRIPTOR, SecValidMask) == 10, "descriptor valid mask offset");
static_assert (offsetof (EFI_ERROR_SECTION_DESCRIPTOR, SectionFlags) == 12, "descriptor flags offset");
static_assert (offsetof (EFI_ERROR_SECTION_DESCRIPTOR, SectionType) == 16, "descriptor type offset");
static_assert (offsetof (EFI_ERROR_SECTION_DESCRIPTOR, Severity) == 48, "descriptor severity offset");
static_assert (offsetof (EFI_ERROR_SECTION_DESCRIPTOR, FruString) == 52, "descriptor FRU string offset");

//
// Section types
//
extern EFI_GUID gEfiProcessorGenericErrorSectionGuid;
extern EFI_GUID gEfiProcessorSpecificErrorSectionGuid;
extern EFI_GUID gEfiPlatformMemoryErrorSectionGuid;
extern EFI_GUID gEfiPcieErrorSectionGuid;
extern EFI_GUID gEfiPciDevErrorSectionGuid;

//
// Notification types
//
extern EFI_GUID gEfiEventNotificationTypeMceGuid;
extern EFI_GUID gEfiEventNotificationTypeCmcGuid;
extern EFI_GUID gEfiEventNotificationTypeNmiGuid;
extern EFI_GUID gEfiEventNotificationTypePcieGuid;

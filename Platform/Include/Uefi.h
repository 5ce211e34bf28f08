/** @file
  UEFI base types, status codes and helper macros used by every module.

  The names and values are those of the UEFI and PI specifications, so code
  written against them reads as platform firmware does.
**/
#pragma once

#include <cstddef>
#include <cstdint>

typedef uint8_t  UINT8;
typedef uint16_t UINT16;
typedef uint32_t UINT32;
typedef uint64_t UINT64;
typedef int8_t   INT8;
typedef int16_t  INT16;
typedef int32_t  INT32;
typedef int64_t  INT64;
typedef uint64_t UINTN;
typedef int64_t  INTN;
typedef uint8_t  BOOLEAN;
typedef char     CHAR8;
typedef char16_t CHAR16;
typedef void     VOID;

typedef UINTN  RETURN_STATUS;
typedef UINTN  EFI_STATUS;
typedef VOID  *EFI_HANDLE;
typedef VOID  *EFI_EVENT;
typedef UINT64 EFI_PHYSICAL_ADDRESS;
typedef UINT64 EFI_LBA;
typedef UINTN  EFI_TPL;

#define IN
#define OUT
#define OPTIONAL
#define CONST  const
#define STATIC static
#define EFIAPI

//
// Data of an SMM module image. The image is loaded into SMRAM, so its data
// sits at one fixed address range on every boot (see the memory map); log
// lines that print the address of a module buffer print the same value on
// every run and in every build. Compilers raise the alignment of globals by
// their own choice (GCC by size when optimising, Clang by its preferred
// alignment); an explicit one on every variable fixes the layout. The
// section name is a C identifier, so AddressSanitizer leaves these globals
// without red zones in the sanitized build too. GCC keeps them in the order
// the sources define them (no_reorder); Clang never reorders them.
//
#if defined(__clang__)
#define MODULE_DATA __attribute__ ((section ("vorn_module_data"), aligned (32)))
#else
#define MODULE_DATA __attribute__ ((section ("vorn_module_data"), aligned (32), no_reorder))
#endif
#define TRUE  ((BOOLEAN)(1 == 1))
#define FALSE ((BOOLEAN)(0 == 1))

#define MAX_UINT8  ((UINT8)0xFF)
#define MAX_UINT16 ((UINT16)0xFFFF)
#define MAX_UINT32 ((UINT32)0xFFFFFFFF)
#define MAX_UINT64 ((UINT64)0xFFFFFFFFFFFFFFFFULL)
#define MAX_UINTN  MAX_UINT64
#define MAX_BIT    0x8000000000000000ULL

#define BIT0 0x00000001
#define BIT1 0x00000002
#define BIT2 0x00000004
#define BIT3 0x00000008
#define BIT4 0x00000010
#define BIT5 0x00000020
#define BIT6 0x00000040
#define BIT7 0x00000080

#define SIGNATURE_16(A, B)                   ((A) | ((B) << 8))
#define SIGNATURE_32(A, B, C, D)             (SIGNATURE_16 (A, B) | (SIGNATURE_16 (C, D) << 16))
#define SIGNATURE_64(A, B, C, D, E, F, G, H) (SIGNATURE_32 (A, B, C, D) | ((UINT64)(SIGNATURE_32 (E, F, G, H)) << 32))

#define ENCODE_ERROR(StatusCode)   ((RETURN_STATUS)(MAX_BIT | (StatusCode)))
#define ENCODE_WARNING(StatusCode) ((RETURN_STATUS)(StatusCode))
#define RETURN_ERROR(StatusCode)   (((RETURN_STATUS)(StatusCode)) >= MAX_BIT)
#define EFI_ERROR(A)               RETURN_ERROR (A)

#define EFI_SUCCESS              ((EFI_STATUS)0)
#define EFI_LOAD_ERROR           ENCODE_ERROR (1)
#define EFI_INVALID_PARAMETER    ENCODE_ERROR (2)
#define EFI_UNSUPPORTED          ENCODE_ERROR (3)
#define EFI_BAD_BUFFER_SIZE      ENCODE_ERROR (4)
#define EFI_BUFFER_TOO_SMALL     ENCODE_ERROR (5)
#define EFI_NOT_READY            ENCODE_ERROR (6)
#define EFI_DEVICE_ERROR         ENCODE_ERROR (7)
#define EFI_WRITE_PROTECTED      ENCODE_ERROR (8)
#define EFI_OUT_OF_RESOURCES     ENCODE_ERROR (9)
#define EFI_VOLUME_CORRUPTED     ENCODE_ERROR (10)
#define EFI_VOLUME_FULL          ENCODE_ERROR (11)
#define EFI_NO_MEDIA             ENCODE_ERROR (12)
#define EFI_MEDIA_CHANGED        ENCODE_ERROR (13)
#define EFI_NOT_FOUND            ENCODE_ERROR (14)
#define EFI_ACCESS_DENIED        ENCODE_ERROR (15)
#define EFI_NO_RESPONSE          ENCODE_ERROR (16)
#define EFI_NO_MAPPING           ENCODE_ERROR (17)
#define EFI_TIMEOUT              ENCODE_ERROR (18)
#define EFI_NOT_STARTED          ENCODE_ERROR (19)
#define EFI_ALREADY_STARTED      ENCODE_ERROR (20)
#define EFI_ABORTED              ENCODE_ERROR (21)
#define EFI_ICMP_ERROR           ENCODE_ERROR (22)
#define EFI_TFTP_ERROR           ENCODE_ERROR (23)
#define EFI_PROTOCOL_ERROR       ENCODE_ERROR (24)
#define EFI_INCOMPATIBLE_VERSION ENCODE_ERROR (25)
#define EFI_SECURITY_VIOLATION   ENCODE_ERROR (26)
#define EFI_CRC_ERROR            ENCODE_ERROR (27)
#define EFI_END_OF_MEDIA         ENCODE_ERROR (28)
#define EFI_END_OF_FILE          ENCODE_ERROR (31)
#define EFI_INVALID_LANGUAGE     ENCODE_ERROR (32)
#define EFI_COMPROMISED_DATA     ENCODE_ERROR (33)
#define EFI_IP_ADDRESS_CONFLICT  ENCODE_ERROR (34)
#define EFI_HTTP_ERROR           ENCODE_ERROR (35)

#define EFI_WARN_UNKNOWN_GLYPH    ENCODE_WARNING (1)
#define EFI_WARN_DELETE_FAILURE   ENCODE_WARNING (2)
#define EFI_WARN_WRITE_FAILURE    ENCODE_WARNING (3)
#define EFI_WARN_BUFFER_TOO_SMALL ENCODE_WARNING (4)
#define EFI_WARN_STALE_DATA       ENCODE_WARNING (5)
#define EFI_WARN_FILE_SYSTEM      ENCODE_WARNING (6)
#define EFI_WARN_RESET_REQUIRED   ENCODE_WARNING (7)

#define EFI_PAGE_SIZE            0x1000
#define EFI_PAGE_MASK            0xFFF
#define EFI_SIZE_TO_PAGES(Size)  (((Size) >> 12) + (((Size)&EFI_PAGE_MASK) ? 1 : 0))
#define EFI_PAGES_TO_SIZE(Pages) ((Pages) << 12)

#define OFFSET_OF(TYPE, Field) ((UINTN)offsetof (TYPE, Field))
#define ARRAY_SIZE(Array)      (sizeof (Array) / sizeof ((Array)[0]))
#define MIN(a, b)              (((a) < (b)) ? (a) : (b))
#define MAX(a, b)              (((a) > (b)) ? (a) : (b))

typedef struct {
  UINT32 Data1;
  UINT16 Data2;
  UINT16 Data3;
  UINT8  Data4[8];
} EFI_GUID;

typedef EFI_GUID GUID;

static_assert (sizeof (EFI_GUID) == 16, "EFI_GUID is 16 bytes");

typedef enum {
  EfiReservedMemoryType,
  EfiLoaderCode,
  EfiLoaderData,
  EfiBootServicesCode,
  EfiBootServicesData,
  EfiRuntimeServicesCode,
  EfiRuntimeServicesData,
  EfiConventionalMemory,
  EfiUnusableMemory,
  EfiACPIReclaimMemory,
  EfiACPIMemoryNVS,
  EfiMemoryMappedIO,
  EfiMemoryMappedIOPortSpace,
  EfiPalCode,
  EfiPersistentMemory,
  EfiUnacceptedMemoryType,
  EfiMaxMemoryType
} EFI_MEMORY_TYPE;

typedef enum { AllocateAnyPages, AllocateMaxAddress, AllocateAddress, MaxAllocateType } EFI_ALLOCATE_TYPE;

typedef enum { AllHandles, ByRegisterNotify, ByProtocol } EFI_LOCATE_SEARCH_TYPE;

typedef enum { EFI_NATIVE_INTERFACE } EFI_INTERFACE_TYPE;

typedef struct {
  UINT64 Signature;
  UINT32 Revision;
  UINT32 HeaderSize;
  UINT32 CRC32;
  UINT32 Reserved;
} EFI_TABLE_HEADER;

typedef struct {
  EFI_GUID VendorGuid;
  VOID    *VendorTable;
} EFI_CONFIGURATION_TABLE;

//
// Boot services the platform offers. Members this platform does not model
// keep their slot as an opaque pointer so that the table keeps its shape.
//
typedef EFI_STATUS (EFIAPI *EFI_ALLOCATE_PAGES) (IN EFI_ALLOCATE_TYPE         Type,
                                                 IN EFI_MEMORY_TYPE           MemoryType,
                                                 IN UINTN                     Pages,
                                                 IN OUT EFI_PHYSICAL_ADDRESS *Memory);
typedef EFI_STATUS (EFIAPI *EFI_FREE_PAGES) (IN EFI_PHYSICAL_ADDRESS Memory, IN UINTN Pages);
typedef EFI_STATUS (EFIAPI *EFI_ALLOCATE_POOL) (IN EFI_MEMORY_TYPE PoolType, IN UINTN Size, OUT VOID **Buffer);
typedef EFI_STATUS (EFIAPI *EFI_FREE_POOL) (IN VOID *Buffer);
typedef EFI_STATUS (EFIAPI *EFI_INSTALL_PROTOCOL_INTERFACE) (IN OUT EFI_HANDLE    *Handle,
                                                             IN EFI_GUID          *Protocol,
                                                             IN EFI_INTERFACE_TYPE InterfaceType,
                                                             IN VOID              *Interface);
typedef EFI_STATUS (EFIAPI *EFI_HANDLE_PROTOCOL) (IN EFI_HANDLE Handle, IN EFI_GUID *Protocol, OUT VOID **Interface);
typedef EFI_STATUS (EFIAPI *EFI_LOCATE_HANDLE) (IN EFI_LOCATE_SEARCH_TYPE SearchType,
                                                IN EFI_GUID *Protocol     OPTIONAL,
                                                IN VOID *SearchKey        OPTIONAL,
                                                IN OUT UINTN             *BufferSize,
                                                OUT EFI_HANDLE           *Buffer);
typedef EFI_STATUS (EFIAPI *EFI_LOCATE_PROTOCOL) (IN EFI_GUID          *Protocol,
                                                  IN VOID *Registration OPTIONAL,
                                                  OUT VOID            **Interface);

typedef struct {
  EFI_TABLE_HEADER               Hdr;
  VOID                          *RaiseTPL;
  VOID                          *RestoreTPL;
  EFI_ALLOCATE_PAGES             AllocatePages;
  EFI_FREE_PAGES                 FreePages;
  VOID                          *GetMemoryMap;
  EFI_ALLOCATE_POOL              AllocatePool;
  EFI_FREE_POOL                  FreePool;
  VOID                          *CreateEvent;
  VOID                          *SetTimer;
  VOID                          *WaitForEvent;
  VOID                          *SignalEvent;
  VOID                          *CloseEvent;
  VOID                          *CheckEvent;
  EFI_INSTALL_PROTOCOL_INTERFACE InstallProtocolInterface;
  VOID                          *ReinstallProtocolInterface;
  VOID                          *UninstallProtocolInterface;
  EFI_HANDLE_PROTOCOL            HandleProtocol;
  VOID                          *Reserved;
  VOID                          *RegisterProtocolNotify;
  EFI_LOCATE_HANDLE              LocateHandle;
  VOID                          *LocateDevicePath;
  VOID                          *InstallConfigurationTable;
  VOID                          *LoadImage;
  VOID                          *StartImage;
  VOID                          *Exit;
  VOID                          *UnloadImage;
  VOID                          *ExitBootServices;
  VOID                          *GetNextMonotonicCount;
  VOID                          *Stall;
  VOID                          *SetWatchdogTimer;
  VOID                          *ConnectController;
  VOID                          *DisconnectController;
  VOID                          *OpenProtocol;
  VOID                          *CloseProtocol;
  VOID                          *OpenProtocolInformation;
  VOID                          *ProtocolsPerHandle;
  VOID                          *LocateHandleBuffer;
  EFI_LOCATE_PROTOCOL            LocateProtocol;
  VOID                          *InstallMultipleProtocolInterfaces;
  VOID                          *UninstallMultipleProtocolInterfaces;
  VOID                          *CalculateCrc32;
  VOID                          *CopyMem;
  VOID                          *SetMem;
  VOID                          *CreateEventEx;
} EFI_BOOT_SERVICES;

typedef struct {
  EFI_TABLE_HEADER         Hdr;
  CHAR16                  *FirmwareVendor;
  UINT32                   FirmwareRevision;
  EFI_HANDLE               ConsoleInHandle;
  VOID                    *ConIn;
  EFI_HANDLE               ConsoleOutHandle;
  VOID                    *ConOut;
  EFI_HANDLE               StandardErrorHandle;
  VOID                    *StdErr;
  VOID                    *RuntimeServices;
  EFI_BOOT_SERVICES       *BootServices;
  UINTN                    NumberOfTableEntries;
  EFI_CONFIGURATION_TABLE *ConfigurationTable;
} EFI_SYSTEM_TABLE;

static_assert (offsetof (EFI_BOOT_SERVICES, LocateProtocol) == 0x140, "LocateProtocol slot");
static_assert (offsetof (EFI_SYSTEM_TABLE, ConfigurationTable) == 0x70, "ConfigurationTable slot");

typedef EFI_STATUS (EFIAPI *EFI_IMAGE_ENTRY_POINT) (IN EFI_HANDLE ImageHandle, IN EFI_SYSTEM_TABLE *SystemTable);

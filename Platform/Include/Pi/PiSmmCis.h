/** @file
  The SMM system table (SMST) and the SMI handler type, laid out as the PI
  specification defines them.
**/
#pragma once

#include <Uefi.h>

typedef struct _EFI_SMM_SYSTEM_TABLE2 EFI_SMM_SYSTEM_TABLE2;

#define SMM_SMST_SIGNATURE SIGNATURE_32 ('S', 'M', 'S', 'T')

typedef EFI_STATUS (EFIAPI *EFI_SMM_HANDLER_ENTRY_POINT2) (IN EFI_HANDLE                DispatchHandle,
                                                           IN CONST VOID *Context       OPTIONAL,
                                                           IN OUT VOID *CommBuffer      OPTIONAL,
                                                           IN OUT UINTN *CommBufferSize OPTIONAL);

typedef struct {
  VOID *Read;
  VOID *Write;
} EFI_SMM_IO_ACCESS2;

typedef struct {
  EFI_SMM_IO_ACCESS2 Mem;
  EFI_SMM_IO_ACCESS2 Io;
} EFI_SMM_CPU_IO2_PROTOCOL;

struct _EFI_SMM_SYSTEM_TABLE2 {
  EFI_TABLE_HEADER               Hdr;
  CHAR16                        *SmmFirmwareVendor;
  UINT32                         SmmFirmwareRevision;
  VOID                          *SmmInstallConfigurationTable;
  EFI_SMM_CPU_IO2_PROTOCOL       SmmIo;
  EFI_ALLOCATE_POOL              SmmAllocatePool;
  EFI_FREE_POOL                  SmmFreePool;
  EFI_ALLOCATE_PAGES             SmmAllocatePages;
  EFI_FREE_PAGES                 SmmFreePages;
  VOID                          *SmmStartupThisAp;
  UINTN                          CurrentlyExecutingCpu;
  UINTN                          NumberOfCpus;
  UINTN                         *CpuSaveStateSize;
  VOID                         **CpuSaveState;
  UINTN                          NumberOfTableEntries;
  EFI_CONFIGURATION_TABLE       *SmmConfigurationTable;
  EFI_INSTALL_PROTOCOL_INTERFACE SmmInstallProtocolInterface;
  VOID                          *SmmUninstallProtocolInterface;
  EFI_HANDLE_PROTOCOL            SmmHandleProtocol;
  VOID                          *SmmRegisterProtocolNotify;
  EFI_LOCATE_HANDLE              SmmLocateHandle;
  EFI_LOCATE_PROTOCOL            SmmLocateProtocol;
  VOID                          *SmiManage;
  VOID                          *SmiHandlerRegister;
  VOID                          *SmiHandlerUnRegister;
};

static_assert (sizeof (EFI_SMM_SYSTEM_TABLE2) == 240, "SMST size");
static_assert (offsetof (EFI_SMM_SYSTEM_TABLE2, SmmAllocatePool) == 80, "SmmAllocatePool slot");
static_assert (offsetof (EFI_SMM_SYSTEM_TABLE2, NumberOfCpus) == 128, "NumberOfCpus slot");
static_assert (offsetof (EFI_SMM_SYSTEM_TABLE2, SmmInstallProtocolInterface) == 168, "install slot");
static_assert (offsetof (EFI_SMM_SYSTEM_TABLE2, SmmLocateProtocol) == 208, "SmmLocateProtocol slot");

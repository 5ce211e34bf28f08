/** @file
  VornSmmSpiProtocol: the platform's SMM access to the SPI flash part, at
  physical (memory-mapped) flash addresses.
**/
#pragma once

#include <Uefi.h>

extern EFI_GUID gVornSmmSpiProtocolGuid;

typedef struct _VORN_SMM_SPI_PROTOCOL VORN_SMM_SPI_PROTOCOL;

typedef EFI_STATUS (EFIAPI *VORN_SMM_SPI_ERASE) (IN CONST VORN_SMM_SPI_PROTOCOL *This,
                                                 IN UINT64                       Address,
                                                 IN UINT32                       NumBytes);
typedef EFI_STATUS (EFIAPI *VORN_SMM_SPI_WRITE) (IN CONST VORN_SMM_SPI_PROTOCOL *This,
                                                 IN UINT64                       Address,
                                                 IN UINT32                       NumBytes,
                                                 IN UINT8                       *Buffer);
typedef EFI_STATUS (EFIAPI *VORN_SMM_SPI_READ) (IN CONST VORN_SMM_SPI_PROTOCOL *This,
                                                IN UINT64                       Address,
                                                IN UINT32                       NumBytes,
                                                OUT UINT8                      *Buffer);

//
// Slot 0 belongs to the platform's flash descriptor access; this module never
// calls it.
//
struct _VORN_SMM_SPI_PROTOCOL {
  VOID              *Reserved;
  VORN_SMM_SPI_ERASE Erase;
  VORN_SMM_SPI_WRITE Write;
  VORN_SMM_SPI_READ  Read;
};

typedef VORN_SMM_SPI_PROTOCOL VornSmmSpiProtocol;

/** @file
  Minimal ACPI table builders for the tests: RSDP, XSDT, RSDT and a HEST with
  error source structures, placed in the simulated machine's ACPI memory.
**/
#pragma once

#include <optional>
#include <vector>

#include <Uefi.h>

namespace AcpiTables {

using Bytes = std::vector<UINT8>;

//
// One generic hardware error source (type 9) of 64 bytes.
//
struct Ghess {
  UINT16 SourceId               = 0;
  UINT16 RelatedSourceId        = 0xFFFF;
  UINT32 MaxRawDataLength       = 0;
  UINT32 ErrorStatusBlockLength = 0x1000;
  UINT64 ErrorStatusAddress     = 0; // address of the 64-bit register holding the block address
  UINT8  AddressSpaceId         = 0;
  UINT8  RegisterBitWidth       = 64;
  UINT8  RegisterBitOffset      = 0;
  UINT8  AccessSize             = 4;
};

Bytes GhessBytes (const Ghess &Source);

//
// A zero-filled error source structure of any type and size; Patch32 and
// Patch8 set fields inside it.
//
Bytes ErrorSource (UINT16 Type, std::size_t Size);
void  Patch8 (Bytes &Structure, std::size_t Offset, UINT8 Value);
void  Patch32 (Bytes &Structure, std::size_t Offset, UINT32 Value);

//
// A table with a 36-byte header (Length and checksum filled in) and Body
// after it; LengthOverride replaces the Length field.
//
UINT64 InstallTable (UINT32 Signature, const Bytes &Body, std::optional<UINT32> LengthOverride = std::nullopt);

//
// HEST: the structures back to back after the Error Source Count, which is
// their number unless CountOverride says otherwise.
//
UINT64 InstallHest (const std::vector<Bytes> &Sources, std::optional<UINT32> CountOverride = std::nullopt);

UINT64 InstallXsdt (const std::vector<UINT64> &Entries);
UINT64 InstallRsdt (const std::vector<UINT32> &Entries);
UINT64 InstallRsdp (UINT8 Revision, UINT32 RsdtAddress, UINT64 XsdtAddress);

//
// A status block in reserved memory and the 64-bit register (also in
// reserved memory) that holds its address.
//
UINT64 AllocateStatusBlock (UINT32 Length);
UINT64 InstallStatusRegister (UINT64 Value);

//
// The APEI tables start-up looks for: HEST with the NMI (7), SCI (8) and
// VMware page-retire (0xFFFE) sources, each pointing at its own block,
// listed in both the XSDT and the RSDT behind a published RSDP.
//
struct ApeiTables {
  UINT64              Rsdt = 0;
  UINT64              Xsdt = 0;
  std::vector<UINT64> Entries; // the same in both root tables
  UINT64              Hest        = 0;
  UINT64              NmiBlock    = 0;
  UINT64              SciBlock    = 0;
  UINT64              VmwareBlock = 0;
};

struct ApeiOptions {
  bool   WithHest          = true;
  bool   WithVmwareSource  = true;
  UINT32 NmiBlockLength    = 0x1000;
  UINT32 SciBlockLength    = 0x2000;
  UINT32 VmwareBlockLength = 0x800;
  UINT32 MaxRawDataLength  = 0x100;
};

ApeiTables InstallApeiTables (const ApeiOptions &Options = ApeiOptions ());

} // namespace AcpiTables

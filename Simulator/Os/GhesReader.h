/** @file
  The OS's GHES reader, rule by rule as Linux's. It parses the HEST as Linux
  does (an unknown structure type, a structure running past the table or a
  duplicated source id disables HEST altogether; disabled sources are
  skipped; a source whose Error Status Address, Read Ack register or block
  length Linux refuses is dropped; a block length over 64 KiB is capped).
  On each SCI or NMI the FCH raised it reads the status block of every
  source notified that way through its Error Status Address register,
  checks it in Linux's order (truncated, longer than the HEST block length,
  CPER header, then every entry), prints its entries and acknowledges it by
  clearing BlockStatus, then, for a GHESv2 source, through its Read Ack
  register.

  A block that fails the checks is reported and not decoded, and is still
  acknowledged, as Linux does. A fatal block is the panic Linux takes.
**/
#pragma once

#include <array>
#include <ostream>
#include <string>
#include <vector>

#include <Uefi.h>

#include "Handlers/ErrorHandlerAgent.h"

namespace Sim {

//
// One generic hardware error source (HEST type 9 or 10) as the OS keeps it.
//
struct GhesSource {
  UINT16                                 SourceId = 0;
  Notification                           Notify   = Notification::None; // SCI, NMI, or a kind the reader ignores
  EFI_ACPI_6_3_GENERIC_ADDRESS_STRUCTURE StatusAddress{};               // the register holding the block's address
  UINT32                                 StatusBlockLength = 0;         // ErrorStatusBlockLength, capped at 64 KiB
  bool                                   Version2          = false;     // acknowledged through ReadAck too
  EFI_ACPI_6_3_GENERIC_ADDRESS_STRUCTURE ReadAck{};
  UINT64                                 ReadAckPreserve = 0;
  UINT64                                 ReadAckWrite    = 0;
};

//
// One generic error data entry as decoded.
//
struct GhesEntry {
  std::array<UINT8, 16> SectionType{};
  std::string           SectionName;
  UINT32                Severity       = 0;
  UINT16                Revision       = 0;
  UINT8                 ValidationBits = 0;
  UINT32                Length         = 0; // ErrorDataLength
  std::array<UINT8, 16> FruId{};
  std::string           FruText; // up to 20 characters
};

enum class BlockOutcome {
  NoBlock,      // the Error Status Address register holds 0
  Empty,        // BlockStatus 0: nothing to read
  Acknowledged, // read, decoded and acknowledged
  Rejected,     // failed the checks; reported, not decoded, acknowledged
};

struct GhesBlockReport {
  UINT16                 SourceId    = 0;
  UINT64                 Address     = 0;
  BlockOutcome           Outcome     = BlockOutcome::NoBlock;
  UINT32                 BlockStatus = 0; // as read, before the acknowledgement
  UINT32                 Severity    = 0;
  std::string            Problem; // why the block was rejected: Linux's message, then the detail
  std::vector<GhesEntry> Entries;
  bool                   Panic = false; // fatal (or unknown) severity: Linux panics
};

//
// The name the OS gives a section type ("Platform Memory", ...); "unknown"
// for a type it does not know.
//
std::string SectionTypeName (const std::array<UINT8, 16> &SectionType);

//
// The 16 bytes read as an EFI GUID, the way Linux prints a section type.
//
std::string GuidText (const std::array<UINT8, 16> &Bytes);

//
// A CPER severity as Linux names it: "recoverable", "fatal", "corrected",
// "info"; "unknown" beyond.
//
const char *CperSeverityText (UINT32 Severity);

//
// Checks a status block of StatusBlockLength bytes at Block as Linux does
// and decodes its entries; a block that fails gets Problem set and no
// entries. Touches nothing.
//
void CheckStatusBlock (UINT64 Block, UINT32 StatusBlockLength, GhesBlockReport &Report);

class GhesReader {
public:
  //
  // Takes the HEST at HestAddress in simulated memory; the OS view goes to
  // Out as lines starting "os: ", and what Linux would say of the table
  // (a disabled HEST, a dropped source) is said there at once. Throws
  // AcpiTableError for a table that is no HEST at all.
  //
  GhesReader (UINT64 HestAddress, std::ostream &Out);

  const std::vector<GhesSource> &Sources () const;

  //
  // Linux's complaints about the table, in order; HEST is disabled when
  // Disabled () is set.
  //
  const std::vector<std::string> &TableProblems () const;
  bool                            Disabled () const;

  //
  // A fatal block was read: Linux has panicked.
  //
  bool Panicked () const;

  //
  // Handles the SCIs and NMIs raised since the last call (or since the
  // reader was made): each kind raised at least once has every source it
  // notifies read once, NMI sources first.
  //
  std::vector<GhesBlockReport> Poll ();

  //
  // Reads, reports and acknowledges one source's block.
  //
  GhesBlockReport Read (const GhesSource &Source);

private:
  void ParseHest (UINT64 HestAddress);
  void TakeSource (const UINT8 *Structure, UINT16 Type);
  void Acknowledge (const GhesSource &Source, UINT64 Block);
  void Print (const GhesBlockReport &Report, Notification Notify, bool Version2);

  std::vector<GhesSource>  mSources;
  std::vector<std::string> mProblems;
  bool                     mDisabled = false;
  bool                     mPanicked = false;
  std::ostream            &mOut;
  UINT64                   mSeenSci;
  UINT64                   mSeenNmi;
};

} // namespace Sim

/** @file
  The OS's GHES reader. It takes the generic hardware error sources from the
  HEST in memory, and on each SCI or NMI the FCH raised reads the status
  block of every source notified that way through its Error Status Address
  register, checks it as an OSPM must before trusting firmware data, prints
  its entries and acknowledges it by clearing BlockStatus.

  A block that fails the checks is reported and not decoded, and is still
  acknowledged, as Linux does: a block left marked in use would lose every
  later error of its source.
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
// One generic hardware error source (HEST type 9) as the OS keeps it.
//
struct GhesSource {
  UINT16       SourceId          = 0;
  Notification Notify            = Notification::None; // SCI, NMI, or another kind the reader ignores
  UINT64       StatusAddress     = 0;                  // the register holding the block's address
  UINT32       StatusBlockLength = 0;                  // ErrorStatusBlockLength
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
  std::string            Problem; // why the block was rejected
  std::vector<GhesEntry> Entries;
};

//
// The name the OS gives a section type ("Platform Memory", ...); "unknown"
// for a type it does not know.
//
std::string SectionTypeName (const std::array<UINT8, 16> &SectionType);

//
// Checks a status block of StatusBlockLength bytes at Block and decodes its
// entries; a block that fails gets Problem set and no entries. Touches
// nothing.
//
void CheckStatusBlock (UINT64 Block, UINT32 StatusBlockLength, GhesBlockReport &Report);

class GhesReader {
public:
  //
  // Takes the HEST at HestAddress in simulated memory; the OS view goes to
  // Out as lines starting "os: ". Throws AcpiTableError for a HEST an OS
  // refuses.
  //
  GhesReader (UINT64 HestAddress, std::ostream &Out);

  const std::vector<GhesSource> &Sources () const;

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
  void Print (const GhesBlockReport &Report, Notification Notify);

  std::vector<GhesSource> mSources;
  std::ostream           &mOut;
  UINT64                  mSeenSci;
  UINT64                  mSeenNmi;
};

} // namespace Sim

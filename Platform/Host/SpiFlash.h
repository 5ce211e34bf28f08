/** @file
  The platform's SPI NOR flash part: an image mapped at the top of the 4 GiB
  physical space, reached by the module only through VornSmmSpiProtocol and
  the SMM firmware volume block protocol instances installed at power-on.

  NOR rules are enforced: erase works on whole 4 KiB sectors and sets them to
  0xFF, a program can only clear bits. Every operation is counted, and a test
  can make one fail or stop part-way, as a power cut would.

  The image is kept in a file (mapped shared, so each program or erase is on
  disk the moment it returns) or in memory. It survives Host::PowerOn; the
  protocols are installed afresh on each power-on from the image as it then
  is, so attach an image before powering on.
**/
#pragma once

#include <exception>
#include <filesystem>
#include <optional>
#include <span>
#include <vector>

#include <Uefi.h>

namespace Host::Flash {

constexpr UINT64 kTopOfFlash  = 0x100000000ULL; // the part ends at 4 GiB
constexpr UINT64 kDefaultSize = 0x01000000;     // 16 MiB: 0xFF000000..0xFFFFFFFF
constexpr UINT32 kSectorSize  = 0x1000;         // erase granule

enum class Op { Read, Program, Erase };

struct OpCount {
  UINT64 Operations                              = 0;
  UINT64 Bytes                                   = 0; // bytes actually transferred, programmed or erased
  bool   operator== (const OpCount &Other) const = default;
};

//
// Counted from power-on. An operation counts once its arguments passed the
// protocol's checks, whether it then succeeds, is cut or is refused.
//
struct Counters {
  OpCount Read;
  OpCount Program;
  OpCount Erase;
  bool    operator== (const Counters &Other) const = default;
};

//
// A program refused because it would have turned a 0 bit back into 1.
//
struct ProgramFault {
  UINT64 Address;   // first offending byte
  UINT8  Stored;    // what the flash holds there
  UINT8  Requested; // what the program asked for
  bool   operator== (const ProgramFault &Other) const = default;
};

//
// An injected failure, used once. Nth counts the operations of Kind (all
// kinds when Kind is empty) from the moment it is armed, 1 being the next.
// Partial lands the first LandedBytes of the operation: a read fills only
// them, a program programs only them, an erase erases only them and leaves
// the rest of its sectors as they were. Either way the call returns
// EFI_DEVICE_ERROR, unless PowerOff makes it a power cut: the machine then
// stops with the operation, and the call throws PowerLost instead of
// returning, so nothing after it runs.
//
enum class Cut { Fail, Partial };

struct Failure {
  std::optional<Op> Kind;
  UINT64            Nth         = 1;
  Cut               How         = Cut::Fail;
  UINT32            LandedBytes = 0;
  BOOLEAN           PowerOff    = FALSE;
};

struct PowerLost : std::exception {
  const char *what () const noexcept override {
    return "flash: power lost";
  }
};

//
// An operation as the part saw it, whether it completed or not.
//
struct Operation {
  Op     Kind;
  UINT64 Address;
  UINT32 Length;
  bool   operator== (const Operation &Other) const = default;
};

//
// Failures of the firmware volume block protocol, for every volume.
//
struct VolumeFaults {
  std::optional<EFI_STATUS> GetPhysicalAddress;
  BOOLEAN                   ReportZeroAddress = FALSE;
  std::optional<EFI_STATUS> GetBlockSize;
};

//
// What the platform installs at power-on; kept like the image itself.
//
struct Options {
  BOOLEAN InstallSpiProtocol     = TRUE;
  BOOLEAN InstallVolumeProtocols = TRUE;
};

//
// A firmware volume found at power-on (one block protocol instance each).
//
struct Volume {
  UINT64 Address;
  UINT32 BlockSize;
  UINT32 NumberOfBlocks;
  bool   operator== (const Volume &Other) const = default;
};

//
// Maps Path as the flash image. A missing file is created holding Initial;
// an existing one is used as it is (its size must be a non-zero multiple of
// the sector size, at most 4 GiB). Throws std::runtime_error on I/O errors.
//
void AttachFile (const std::filesystem::path &Path, std::span<const UINT8> Initial);

//
// Uses a private in-memory copy of Image as the flash.
//
void AttachMemory (std::span<const UINT8> Image);

//
// Drops the image; the next power-on installs no flash protocols.
//
void Detach ();

BOOLEAN Attached ();
UINT64  Base ();
UINT64  Size ();

void SetOptions (const Options &What);

//
// Volumes and counters as of the last power-on.
//
std::vector<Volume>       Volumes ();
Counters                  Count ();
std::vector<ProgramFault> ProgramFaults ();

//
// Every operation since the last power-on, in order.
//
const std::vector<Operation> &Operations ();

void InjectFailure (const Failure &What);
void SetVolumeFaults (const VolumeFaults &What);

//
// Raw access at physical flash addresses for setting up and inspecting tests;
// not an operation, not counted, no NOR rules. Out-of-range access throws
// std::out_of_range.
//
std::vector<UINT8> Peek (UINT64 Address, UINT64 Length);
void               Poke (UINT64 Address, std::span<const UINT8> Bytes);
std::span<UINT8>   Image ();

} // namespace Host::Flash

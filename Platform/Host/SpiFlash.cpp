/** @file
  The SPI NOR flash model: image storage, the NOR rules, counters, injected
  failures, and the SMM protocols installed over it at each power-on.
**/
#include "SpiFlash.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

#include <Pi/PiFirmwareVolume.h>
#include <Protocol/SmmFirmwareVolumeBlock.h>
#include <Protocol/VornSmmSpi.h>

#include "HostInternal.h"
#include "MachineAccess.h"

namespace Host::Flash {

namespace {

//
// One block protocol instance and the volume it describes, in SMRAM; the
// protocol comes first so that This leads back to the volume.
//
struct VolumeBlockInstance {
  EFI_SMM_FIRMWARE_VOLUME_BLOCK_PROTOCOL Protocol;
  UINT64                                 Address;
  UINT32                                 BlockSize;
  UINT32                                 NumberOfBlocks;
};

static_assert (offsetof (VolumeBlockInstance, Protocol) == 0, "This must lead to the instance");

class Part {
public:
  ~Part () {
    Unmap ();
  }

  void Map (UINT8 *Data, UINT64 Length, int Fd) {
    Unmap ();
    mData = Data;
    mSize = Length;
    mFd   = Fd;
  }

  void Unmap () {
    if (mData != nullptr) {
      munmap (mData, mSize);
    }

    if (mFd >= 0) {
      close (mFd);
    }

    mData = nullptr;
    mSize = 0;
    mFd   = -1;
  }

  UINT8 *Data () const {
    return mData;
  }
  UINT64 Size () const {
    return mSize;
  }
  UINT64 Base () const {
    return kTopOfFlash - mSize;
  }

  //
  // Whether [Address, Address + Length) lies in the part; Length 0 is refused.
  // An address at or above the top is outside the part: the part's address
  // space ends at 4 GiB and does not wrap.
  //
  bool Covers (UINT64 Address, UINT64 Length) const {
    return (mData != nullptr) && (Length != 0) && (Address >= Base ()) && (Address < kTopOfFlash) &&
           (Length <= kTopOfFlash - Address);
  }

  UINT8 *At (UINT64 Address) const {
    return mData + (Address - Base ());
  }

  Options                   Install;
  Counters                  Counted;
  std::vector<ProgramFault> Faults;
  std::optional<Failure>    Armed;
  std::vector<Operation>    Log;
  VolumeFaults              VolumeFailures;
  std::vector<Volume>       Found;

private:
  UINT8 *mData = nullptr;
  UINT64 mSize = 0;
  int    mFd   = -1;
};

Part &Flash () {
  static Part Instance;

  return Instance;
}

OpCount &CounterOf (Part &P, Op Kind) {
  Counters &C = P.Counted;
  return (Kind == Op::Read) ? C.Read : (Kind == Op::Program) ? C.Program : C.Erase;
}

//
// Counts and logs the operation on P and returns the armed failure if it
// stops this one.
//
std::optional<Failure> StartOperation (Part &P, Op Kind, UINT64 Address, UINT32 Length) {
  CounterOf (P, Kind).Operations++;
  P.Log.push_back ({Kind, Address, Length});
  if (!P.Armed || (P.Armed->Kind && (*P.Armed->Kind != Kind))) {
    return std::nullopt;
  }

  if (--P.Armed->Nth != 0) {
    return std::nullopt;
  }

  std::optional<Failure> Stop = P.Armed;
  P.Armed.reset ();
  return Stop;
}

//
// Bytes an operation of Length lands when it may be cut.
//
UINT32
LandedBytes (const std::optional<Failure> &Stop, UINT32 Length) {
  if (!Stop) {
    return Length;
  }

  return (Stop->How == Cut::Partial) ? std::min (Stop->LandedBytes, Length) : 0;
}

//
// How a cut operation ends: a failed call, or no return at all when the
// power went with it.
//
EFI_STATUS
StopStatus (const std::optional<Failure> &Stop) {
  if (Stop && Stop->PowerOff) {
    throw PowerLost ();
  }

  return Stop ? EFI_DEVICE_ERROR : EFI_SUCCESS;
}

EFI_STATUS EFIAPI SpiErase (IN CONST VORN_SMM_SPI_PROTOCOL *, IN UINT64 Address, IN UINT32 NumBytes) {
  Part &P = Flash ();
  if (!P.Covers (Address, NumBytes) || ((Address % kSectorSize) != 0) || ((NumBytes % kSectorSize) != 0)) {
    return EFI_INVALID_PARAMETER;
  }

  auto         Stop   = StartOperation (P, Op::Erase, Address, NumBytes);
  const UINT32 Landed = LandedBytes (Stop, NumBytes);
  std::memset (P.At (Address), 0xFF, Landed);
  P.Counted.Erase.Bytes += Landed;
  return StopStatus (Stop);
}

EFI_STATUS EFIAPI SpiWrite (IN CONST VORN_SMM_SPI_PROTOCOL *, IN UINT64 Address, IN UINT32 NumBytes, IN UINT8 *Buffer) {
  Part &P = Flash ();
  if (!P.Covers (Address, NumBytes) || (Buffer == nullptr)) {
    return EFI_INVALID_PARAMETER;
  }

  Internal::CheckMachineAccess (Buffer, NumBytes, MachineFaultKind::Read);
  auto         Stop   = StartOperation (P, Op::Program, Address, NumBytes);
  const UINT32 Landed = LandedBytes (Stop, NumBytes);
  UINT8       *Cells  = P.At (Address);
  if (!Stop) {
    for (UINT32 Index = 0; Index < NumBytes; Index++) {
      if ((Buffer[Index] & ~Cells[Index]) != 0) {
        P.Faults.push_back ({Address + Index, Cells[Index], Buffer[Index]});
        return EFI_DEVICE_ERROR;
      }
    }
  }

  //
  // Programming only pulls bits low, also for the bytes a cut program lands.
  //
  for (UINT32 Index = 0; Index < Landed; Index++) {
    Cells[Index] &= Buffer[Index];
  }

  P.Counted.Program.Bytes += Landed;
  return StopStatus (Stop);
}

EFI_STATUS EFIAPI SpiRead (IN CONST VORN_SMM_SPI_PROTOCOL *, IN UINT64 Address, IN UINT32 NumBytes, OUT UINT8 *Buffer) {
  Part &P = Flash ();
  if (!P.Covers (Address, NumBytes) || (Buffer == nullptr)) {
    return EFI_INVALID_PARAMETER;
  }

  Internal::CheckMachineAccess (Buffer, NumBytes, MachineFaultKind::Write);
  auto         Stop   = StartOperation (P, Op::Read, Address, NumBytes);
  const UINT32 Landed = LandedBytes (Stop, NumBytes);
  std::memcpy (Buffer, P.At (Address), Landed);
  P.Counted.Read.Bytes += Landed;
  return StopStatus (Stop);
}

const VolumeBlockInstance *InstanceOf (CONST EFI_FIRMWARE_VOLUME_BLOCK2_PROTOCOL *This) {
  return reinterpret_cast<const VolumeBlockInstance *> (This);
}

EFI_STATUS EFIAPI VolumeGetPhysicalAddress (IN CONST EFI_FIRMWARE_VOLUME_BLOCK2_PROTOCOL *This,
                                            OUT EFI_PHYSICAL_ADDRESS                     *Address) {
  const VolumeFaults &F = Flash ().VolumeFailures;
  if ((This == nullptr) || (Address == nullptr)) {
    return EFI_INVALID_PARAMETER;
  }

  if (F.GetPhysicalAddress) {
    return *F.GetPhysicalAddress;
  }

  *Address = F.ReportZeroAddress ? 0 : InstanceOf (This)->Address;
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI VolumeGetBlockSize (IN CONST EFI_FIRMWARE_VOLUME_BLOCK2_PROTOCOL *This,
                                      IN EFI_LBA                                    Lba,
                                      OUT UINTN                                    *BlockSize,
                                      OUT UINTN                                    *NumberOfBlocks) {
  const VolumeFaults &F = Flash ().VolumeFailures;
  if ((This == nullptr) || (BlockSize == nullptr) || (NumberOfBlocks == nullptr)) {
    return EFI_INVALID_PARAMETER;
  }

  if (F.GetBlockSize) {
    return *F.GetBlockSize;
  }

  const VolumeBlockInstance *V = InstanceOf (This);
  if (Lba >= V->NumberOfBlocks) {
    return EFI_INVALID_PARAMETER;
  }

  *BlockSize      = V->BlockSize;
  *NumberOfBlocks = V->NumberOfBlocks - Lba;
  return EFI_SUCCESS;
}

//
// Volumes start on sector boundaries; a header is trusted when its signature,
// length and first block-map entry make sense (the checksum is not checked,
// so tests may edit headers in place). The ERST store's spare area is the
// platform's scratch space, never a volume, whatever copies it holds.
//
std::vector<Volume> ScanVolumes () {
  const Part         &P         = Flash ();
  const UINT64        SpareBase = Config ().ErstSpareBase;
  const UINT64        SpareEnd  = SpareBase + Config ().ErstSpareSize;
  std::vector<Volume> Found;
  UINT64              Offset = 0;

  while (Offset + sizeof (EFI_FIRMWARE_VOLUME_HEADER) <= P.Size ()) {
    if ((P.Base () + Offset >= SpareBase) && (P.Base () + Offset < SpareEnd)) {
      Offset += kSectorSize;
      continue;
    }

    EFI_FIRMWARE_VOLUME_HEADER Header;
    std::memcpy (&Header, P.Data () + Offset, sizeof (Header));
    const UINT64 Remaining = P.Size () - Offset;
    if ((Header.Signature == EFI_FVH_SIGNATURE) && (Header.FvLength >= sizeof (Header)) &&
        (Header.FvLength <= Remaining) && (Header.BlockMap[0].NumBlocks != 0) && (Header.BlockMap[0].Length != 0)) {
      Found.push_back ({P.Base () + Offset, Header.BlockMap[0].Length, Header.BlockMap[0].NumBlocks});
      Offset += (Header.FvLength + kSectorSize - 1) & ~UINT64 (kSectorSize - 1);
    } else {
      Offset += kSectorSize;
    }
  }

  return Found;
}

void InstallSmm (EFI_GUID *Guid, VOID *Interface) {
  EFI_HANDLE Handle = nullptr;
  EFI_STATUS Status = Smst ()->SmmInstallProtocolInterface (&Handle, Guid, EFI_NATIVE_INTERFACE, Interface);

  if (EFI_ERROR (Status)) {
    throw std::runtime_error ("flash: installing an SMM protocol failed with status " + std::to_string (Status));
  }
}

//
// Power-on: the part keeps its contents; counters, faults and armed failures
// start afresh and the protocols are installed over the image as it is now.
//
void PowerOnFlash () {
  Part &P   = Flash ();
  P.Counted = {};
  P.Log.clear ();
  P.Faults.clear ();
  P.Armed.reset ();
  P.VolumeFailures = {};
  P.Found.clear ();
  if (P.Data () == nullptr) {
    return;
  }

  if (P.Install.InstallSpiProtocol) {
    auto *Spi  = Internal::PlatformNew<VORN_SMM_SPI_PROTOCOL> (Internal::Smram (), EfiRuntimeServicesData);
    Spi->Erase = SpiErase;
    Spi->Write = SpiWrite;
    Spi->Read  = SpiRead;
    InstallSmm (&gVornSmmSpiProtocolGuid, Spi);
  }

  P.Found = ScanVolumes ();
  if (!P.Install.InstallVolumeProtocols) {
    return;
  }

  //
  // Only the members the platform's flash users call are modelled; the
  // others stay NULL.
  //
  for (const Volume &V : P.Found) {
    auto *Instance = Internal::PlatformNew<VolumeBlockInstance> (Internal::Smram (), EfiRuntimeServicesData);
    Instance->Protocol.GetPhysicalAddress = VolumeGetPhysicalAddress;
    Instance->Protocol.GetBlockSize       = VolumeGetBlockSize;
    Instance->Address                     = V.Address;
    Instance->BlockSize                   = V.BlockSize;
    Instance->NumberOfBlocks              = V.NumberOfBlocks;
    InstallSmm (&gEfiSmmFirmwareVolumeBlockProtocolGuid, &Instance->Protocol);
  }
}

void CheckImageSize (UINT64 Length) {
  if ((Length == 0) || ((Length % kSectorSize) != 0) || (Length > kTopOfFlash)) {
    throw std::runtime_error ("flash: image size " + std::to_string (Length) +
                              " is not a whole number of sectors up to 4 GiB");
  }
}

[[noreturn]] void ThrowErrno (const std::string &What, const std::filesystem::path &Path) {
  throw std::runtime_error ("flash: " + What + " " + Path.string () + ": " + std::strerror (errno));
}

//
// The hook goes in with the first image, so a machine without flash has no
// flash protocols.
//
void RegisterPowerOn () {
  AddPowerOnHook ("SpiFlash", PowerOnFlash);
}

} // namespace

void AttachFile (const std::filesystem::path &Path, std::span<const UINT8> Initial) {
  int Fd = open (Path.c_str (), O_RDWR);

  if ((Fd < 0) && (errno == ENOENT)) {
    CheckImageSize (Initial.size ());
    Fd = open (Path.c_str (), O_RDWR | O_CREAT | O_EXCL, 0644);
    if (Fd < 0) {
      ThrowErrno ("cannot create", Path);
    }

    for (size_t Done = 0; Done < Initial.size ();) {
      const ssize_t Written = write (Fd, Initial.data () + Done, Initial.size () - Done);
      if (Written <= 0) {
        close (Fd);
        ThrowErrno ("cannot write", Path);
      }

      Done += static_cast<size_t> (Written);
    }
  } else if (Fd < 0) {
    ThrowErrno ("cannot open", Path);
  }

  struct stat Info;
  if (fstat (Fd, &Info) != 0) {
    close (Fd);
    ThrowErrno ("cannot stat", Path);
  }

  const UINT64 Length = static_cast<UINT64> (Info.st_size);
  try {
    CheckImageSize (Length);
  } catch (...) {
    close (Fd);
    throw;
  }

  void *Data = mmap (nullptr, Length, PROT_READ | PROT_WRITE, MAP_SHARED, Fd, 0);
  if (Data == MAP_FAILED) {
    close (Fd);
    ThrowErrno ("cannot map", Path);
  }

  Flash ().Map (static_cast<UINT8 *> (Data), Length, Fd);
  RegisterPowerOn ();
}

void AttachMemory (std::span<const UINT8> Image) {
  CheckImageSize (Image.size ());
  void *Data = mmap (nullptr, Image.size (), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (Data == MAP_FAILED) {
    throw std::runtime_error (std::string ("flash: cannot map an in-memory image: ") + std::strerror (errno));
  }

  std::memcpy (Data, Image.data (), Image.size ());
  Flash ().Map (static_cast<UINT8 *> (Data), Image.size (), -1);
  RegisterPowerOn ();
}

void Detach () {
  Flash ().Unmap ();
}

BOOLEAN
Attached () {
  return Flash ().Data () != nullptr;
}

UINT64
Base () {
  return Flash ().Base ();
}

UINT64
Size () {
  return Flash ().Size ();
}

void SetOptions (const Options &What) {
  Flash ().Install = What;
}

std::vector<Volume> Volumes () {
  return Flash ().Found;
}

Counters Count () {
  return Flash ().Counted;
}

std::vector<ProgramFault> ProgramFaults () {
  return Flash ().Faults;
}

const std::vector<Operation> &Operations () {
  return Flash ().Log;
}

void InjectFailure (const Failure &What) {
  if (What.Nth == 0) {
    throw std::invalid_argument ("flash: a failure is armed for operation 1 or later");
  }

  Flash ().Armed = What;
}

void SetVolumeFaults (const VolumeFaults &What) {
  Flash ().VolumeFailures = What;
}

std::vector<UINT8> Peek (UINT64 Address, UINT64 Length) {
  const Part &P = Flash ();
  if (!P.Covers (Address, Length)) {
    throw std::out_of_range ("flash: peek outside the part");
  }

  return std::vector<UINT8> (P.At (Address), P.At (Address) + Length);
}

void Poke (UINT64 Address, std::span<const UINT8> Bytes) {
  const Part &P = Flash ();
  if (!P.Covers (Address, Bytes.size ())) {
    throw std::out_of_range ("flash: poke outside the part");
  }

  std::memcpy (P.At (Address), Bytes.data (), Bytes.size ());
}

std::span<UINT8> Image () {
  return {Flash ().Data (), Flash ().Size ()};
}

} // namespace Host::Flash

namespace Host::Internal {

FlashState SaveFlash () {
  const Flash::Part &P = Flash::Flash ();
  return {{P.Data (), P.Data () + P.Size ()}, P.Counted, P.Log, P.Faults};
}

void RestoreFlash (const FlashState &State) {
  Flash::Part &P = Flash::Flash ();
  std::copy_n (State.Bytes.data (), std::min<UINT64> (State.Bytes.size (), P.Size ()), P.Data ());
  P.Counted = State.Counted;
  P.Log     = State.Log;
  P.Faults  = State.Faults;
  P.Armed.reset ();
}

} // namespace Host::Internal

/** @file
  The timed, logged SPI protocol of the bench.
**/
#include "FlashModel.h"

#include <Host.h>
#include <SpiFlash.h>
#include <Protocol/VornSmmSpi.h>

namespace Bench {

namespace {

constexpr double kPageProgramMs  = 0.4;
constexpr UINT64 kPageSize       = 256;
constexpr double kSectorEraseMs  = 45.0;
constexpr double kBlockEraseMs   = 150.0;
constexpr UINT64 kBlockSize      = 0x10000;
constexpr double kReadBytesPerMs = 6250.0;

FlashWork              mWork;
VORN_SMM_SPI_PROTOCOL  mOriginal;
VORN_SMM_SPI_PROTOCOL *mInstalled;

EFI_STATUS EFIAPI TapErase (CONST VORN_SMM_SPI_PROTOCOL *This, UINT64 Address, UINT32 NumBytes) {
  for (UINT64 At = Address, End = Address + NumBytes; At < End;) {
    const bool Block = (At % kBlockSize == 0) && (End - At >= kBlockSize);
    mWork.ModeledMs += Block ? kBlockEraseMs : kSectorEraseMs;
    At += Block ? kBlockSize : Host::Flash::kSectorSize;
  }
  mWork.Erases++;
  mWork.Log.push_back ({FlashOperation::Erase, Address, NumBytes, {}});
  return mOriginal.Erase (This, Address, NumBytes);
}

EFI_STATUS EFIAPI TapWrite (CONST VORN_SMM_SPI_PROTOCOL *This, UINT64 Address, UINT32 NumBytes, UINT8 *Buffer) {
  if (NumBytes != 0) {
    mWork.ModeledMs +=
        kPageProgramMs * static_cast<double> ((Address + NumBytes - 1) / kPageSize - Address / kPageSize + 1);
  }
  mWork.Programs++;
  mWork.Log.push_back ({FlashOperation::Program, Address, NumBytes, std::vector<UINT8> (Buffer, Buffer + NumBytes)});
  return mOriginal.Write (This, Address, NumBytes, Buffer);
}

EFI_STATUS EFIAPI TapRead (CONST VORN_SMM_SPI_PROTOCOL *This, UINT64 Address, UINT32 NumBytes, UINT8 *Buffer) {
  mWork.ModeledMs += static_cast<double> (NumBytes) / kReadBytesPerMs;
  mWork.Reads++;
  mWork.Log.push_back ({FlashOperation::Read, Address, NumBytes, {}});
  return mOriginal.Read (This, Address, NumBytes, Buffer);
}

} // namespace

void TapFlash () {
  VORN_SMM_SPI_PROTOCOL *Spi = nullptr;
  if (Host::Smst ()->SmmLocateProtocol (&gVornSmmSpiProtocolGuid, nullptr, reinterpret_cast<VOID **> (&Spi)) !=
      EFI_SUCCESS) {
    return;
  }
  if (Spi->Read == TapRead) {
    return;
  }
  mOriginal  = *Spi;
  mInstalled = Spi;
  Spi->Erase = TapErase;
  Spi->Write = TapWrite;
  Spi->Read  = TapRead;
}

FlashWork TakeFlashWork () {
  FlashWork Ended = std::move (mWork);
  mWork           = FlashWork ();
  return Ended;
}

void ReplayFlashWork (const FlashWork &Work) {
  std::vector<UINT8> Buffer;
  for (const FlashOperation &Operation : Work.Log) {
    switch (Operation.What) {
      case FlashOperation::Read:
        Buffer.resize (Operation.Length);
        mOriginal.Read (mInstalled, Operation.Address, Operation.Length, Buffer.data ());
        break;
      case FlashOperation::Program:
        Buffer = Operation.Data;
        mOriginal.Write (mInstalled, Operation.Address, Operation.Length, Buffer.data ());
        break;
      case FlashOperation::Erase:
        mOriginal.Erase (mInstalled, Operation.Address, Operation.Length);
        break;
    }
  }
}

} // namespace Bench

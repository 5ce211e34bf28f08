/** @file
  The ERST suites' machine: flash image, ERST, set-up, OS commands, reboot.
**/
#include "ErstFixture.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>

#include "Handlers/CperBuilder.h"
#include "Builder/FlashImage.h"
#include <SpiFlash.h>
#include <Library/DebugLib.h>
#include <Library/SmmServicesTableLib.h>
#include <Library/UefiBootServicesTableLib.h>

UINT64
ErstFixture::Volume () {
  return FlashImage::ElogVolumeAddress ();
}

UINT64
ErstFixture::StoreHeader () {
  return Volume () + FlashImage::kExtHeaderOffset + FlashImage::kExtHeaderSize;
}

UINT64
ErstFixture::Records () {
  return StoreHeader () + sizeof (ERST_STORE_HEADER);
}

void ErstFixture::SetUp () {
  Host::Flash::AttachMemory (FlashImage::BuildDefault ());
  MachineTest::SetUp ();
  StartModuleServices ();
}

void ErstFixture::StartModuleServices () {
  ASSERT_EQ (UefiBootServicesTableLibConstructor (Host::ImageHandle (), Host::SystemTable ()), EFI_SUCCESS);
  ASSERT_EQ (SmmServicesTableLibConstructor (Host::ImageHandle (), Host::SystemTable ()), EFI_SUCCESS);
  mPrivateDataVornApeiLogging.SerDbgLevelConstructor = DEBUG_INFO;
  mPrivateDataVornApeiLogging.SerDbgLevel            = DEBUG_INFO;
  mPrivateDataVornApeiLogging.SerDbgLevelDetailed    = DEBUG_INFO;
}

EFI_STATUS
ErstFixture::UpdateErst () {
  EFI_SMM_SW_DISPATCH2_PROTOCOL *SwDispatch = nullptr;

  mPlacements.clear ();
  mErst = Sim::BuildDefaultErst (mPlacements);
  EXPECT_EQ (gSmst->SmmLocateProtocol (&gEfiSmmSwDispatch2ProtocolGuid, nullptr, (VOID **)&SwDispatch), EFI_SUCCESS);
  return VornApeiLoggingUpdateErst (SwDispatch, reinterpret_cast<VOID *> (mErst));
}

void ErstFixture::PowerCycle () {
  MachineTest::SetUp ();
  StartModuleServices ();
}

EFI_STATUS
ErstFixture::Reboot () {
  PowerCycle ();
  return UpdateErst ();
}

VORN_ERST_PARAMETER_REGION *ErstFixture::Region () {
  return mPrivateDataVornApeiLogging.pErstParameterBlock;
}

ERST_SPI_STORE_INFORMATION *ErstFixture::Info () {
  return mPrivateDataVornApeiLogging.pErstSpiStoreInformation;
}

std::vector<UINT8> ErstFixture::CperRecord (UINT64 RecordId, UINT32 Length) {
  Cper::RecordSpec Spec;

  Spec.RecordId   = RecordId;
  Spec.BodyLength = Length - Spec.SectionOffset;
  return Cper::BuildRecord (Spec);
}

UINT64
ErstFixture::PlaceRecord (const std::vector<UINT8> &Record, UINT32 LogOffset) {
  const UINT64 Address = Region ()->ErrorLogAddressRange + LogOffset;

  std::memcpy (reinterpret_cast<void *> (Address), Record.data (), Record.size ());
  return Address;
}

UINT64
ErstFixture::WriteRecord (UINT64 RecordId, UINT32 Length) {
  VornApeiLoggingErstPersistentStoreWrite (PlaceRecord (CperRecord (RecordId, Length)), &Region ()->Status);
  return Region ()->Status;
}

void ErstFixture::OsCommand (UINT64 Command, UINT64 RecordId, UINT32 LogOffset) {
  Region ()->Command   = Command;
  Region ()->RecordID  = RecordId;
  Region ()->LogOffset = LogOffset;
  Host::RaiseSwSmi (VORN_APEI_ERST_SW_SMI_VALUE);
}

std::vector<UINT8> ErstFixture::Flash (UINT64 Address, UINT64 Length) {
  return Host::Flash::Peek (Address, Length);
}

ERST_ERROR_RECORD_HEADER
ErstFixture::HeaderAt (UINT64 Address) {
  ERST_ERROR_RECORD_HEADER Header;
  const auto               Bytes = Flash (Address, sizeof (Header));

  std::memcpy (&Header, Bytes.data (), sizeof (Header));
  return Header;
}

std::vector<UINT64> ErstFixture::StoredIds () {
  std::vector<UINT64> Ids;

  for (UINT64 Address = Records (); Address < Volume () + kVolumeLength;) {
    const ERST_ERROR_RECORD_HEADER Header = HeaderAt (Address);
    if (Header.Signature != ERST_ERROR_RECORD_HEADER_SIGNATURE) {
      break;
    }

    Ids.push_back (Header.OsRecordID);
    Address = Header.NextRecordHeaderAddress;
  }

  return Ids;
}

std::string ErstFixture::Fmt (const char *Format, ...) {
  char    Buffer[512];
  va_list Args;

  va_start (Args, Format);
  std::vsnprintf (Buffer, sizeof (Buffer), Format, Args);
  va_end (Args);
  return Buffer;
}

bool ErstFixture::Logged (const std::string &Text) {
  const auto Lines = SerialLines ();
  return std::find (Lines.begin (), Lines.end (), Line (0, Text)) != Lines.end ();
}

std::vector<std::string> ErstFixture::LinesContaining (const std::string &Part) {
  std::vector<std::string> Found;

  for (const auto &Text : SerialLines ()) {
    if (Text.find (Part) != std::string::npos) {
      Found.push_back (Text);
    }
  }

  return Found;
}

void ErstFixture::ClearLog () {
  Host::ClearSerialOutput ();
}

void ErstFixture::ExpectFixedFlashBuffers () {
  for (const auto &Text : LinesContaining (" pBuffer 0x")) {
    const UINT64 Address = std::stoull (Text.substr (Text.find (" pBuffer 0x") + 11), nullptr, 16);
    EXPECT_LT (Address, Host::kModuleDataBase + Host::kModuleDataSize) << Text;
  }
}

UINT8
ErstFixture::Checksum (const std::vector<UINT8> &Bytes) {
  UINT8 Sum = 0;

  for (UINT8 Byte : Bytes) {
    Sum = static_cast<UINT8> (Sum + Byte);
  }

  return static_cast<UINT8> (0x100 - Sum);
}

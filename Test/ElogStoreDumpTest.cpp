/** @file
  Debug-log dumps of raw bytes, the store summary, the parameter region,
  the store's on-flash structures and the firmware volume headers.
**/
#include <cstring>
#include <functional>

#include "Builder/FlashImage.h"
#include <TestMachine.h>

#include <Library/DebugLib.h>
#include <Library/ElogStoreDump.h>

namespace {

class ElogStoreDumpTest : public MachineTest {
protected:
  static std::string L (const std::string &Routine, const std::string &Text) {
    return Line (0, Routine + ": " + Text);
  }

  //
  // A reserved-memory buffer whose address ends in Offset (below 16).
  //
  static UINT8 *BufferEndingIn (UINT64 Offset, std::initializer_list<UINT8> Bytes) {
    UINT8 *Buffer = Host::At<UINT8> (Host::AllocateReserved (64, 16) + Offset);
    std::copy (Bytes.begin (), Bytes.end (), Buffer);
    return Buffer;
  }

  static std::string Address (const VOID *Pointer, UINT64 Add = 0) {
    char Text[24];
    std::snprintf (Text, sizeof (Text), "0x%016llX",
                   static_cast<unsigned long long> (reinterpret_cast<UINT64> (Pointer) + Add));
    return Text;
  }
};

const std::string kHeading = "Starting Address    00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F";

std::string Cells (const std::string &Cell, int Count) {
  std::string Text;
  for (int Index = 0; Index < Count; Index++) {
    Text += Cell;
  }

  return Text;
}

TEST_F (ElogStoreDumpTest, RawDumpPadsCellsOutsideTheBuffer) {
  UINT8 *Data = BufferEndingIn (0xE, {0xDE, 0xAD, 0xBE, 0xEF});
  UINT8 *Base = Data - 0xE;

  PrintRawData (Data, 4, DEBUG_INFO);
  EXPECT_EQ (SerialLines (), (std::vector<std::string>{
                                 Line (0, kHeading),
                                 Line (0, Address (Base) + ": " + Cells ("-- ", 14) + "DE AD "),
                                 Line (0, Address (Base, 16) + ": BE EF " + Cells ("-- ", 14)),
                             }));
}

TEST_F (ElogStoreDumpTest, RawDumpOfWholeLines) {
  UINT8 *Data = BufferEndingIn (
      0, {0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F, 0x10});

  PrintRawData (Data, 17, DEBUG_INFO);
  EXPECT_EQ (SerialLines (), (std::vector<std::string>{
                                 Line (0, kHeading),
                                 Line (0, Address (Data) + ": 00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F "),
                                 Line (0, Address (Data, 16) + ": 10 " + Cells ("-- ", 15)),
                             }));
}

TEST_F (ElogStoreDumpTest, RawDumpOfNothing) {
  UINT8 *Aligned    = BufferEndingIn (0, {});
  UINT8 *Misaligned = BufferEndingIn (5, {});

  PrintRawData (Aligned, 0, DEBUG_INFO);
  PrintRawData (Misaligned, 0, DEBUG_INFO);
  EXPECT_EQ (SerialLines (), (std::vector<std::string>{
                                 Line (0, kHeading),
                                 Line (0, kHeading),
                                 Line (0, Address (Misaligned - 5) + ": " + Cells ("-- ", 16)),
                             }));
}

TEST_F (ElogStoreDumpTest, StoreInformationFieldByField) {
  ERST_SPI_STORE_INFORMATION Info;
  std::memset (&Info, 0, sizeof (Info));
  Info.ClearEntireStoreRegion                        = TRUE;
  Info.SpiAddressFvBlockHeader                       = 0xFF140000;
  Info.SpiAddressFvBlockExtHeader                    = 0xFF140048;
  Info.LengthTotalFv                                 = 0x20000;
  Info.LengthErstBlockSize                           = 0x1000;
  Info.SpiAddressStartErstStoreHeader                = 0xFF14005C;
  Info.LengthErstStoreRegion                         = 0x1FFA4;
  Info.SpiAddressStartErstErrorRecordRegion          = 0xFF14006C;
  Info.LengthErstStoreRegionErrorRecordArea          = 0x1FF94;
  Info.SpiAddressLastValidRecord                     = 0xFF1400C0;
  Info.SpiAddressStartAvailableStorage               = 0xFF140114;
  Info.LengthErstStoreRegionErrorRecordAreaAvailable = 0x1FE00;
  Info.TotalNumberOfErstRecordsWithClearFlagOspm     = 2;
  Info.TotalNumberOfErstRecordsWithClearFlagBios     = 3;
  Info.TotalNumberOfErstRecords                      = 4;

  PrintErstSpiStoreInformation (&Info, DEBUG_INFO);
  const std::string R = "PrintErstSpiStoreInformation";
  EXPECT_EQ (SerialLines (), (std::vector<std::string>{
                                 L (R, "ClearEntireStoreRegion                                  1"),
                                 L (R, "SpiAddressFvBlockHeader                               @ 0x00000000FF140000"),
                                 L (R, "SpiAddressFvBlockExtHeader                            @ 0x00000000FF140048"),
                                 L (R, "LengthTotalFv                                           0x0000000000020000"),
                                 L (R, "LengthErstBlockSize                                     0x0000000000001000"),
                                 L (R, "SpiAddressStartErstStoreHeader                        @ 0x00000000FF14005C"),
                                 L (R, "LengthErstStoreRegion                                   0x000000000001FFA4"),
                                 L (R, "SpiAddressStartErstErrorRecordRegion                  @ 0x00000000FF14006C"),
                                 L (R, "LengthErstStoreRegionErrorRecordArea                    0x000000000001FF94"),
                                 L (R, "SpiAddressLastValidRecord                             @ 0x00000000FF1400C0"),
                                 L (R, "SpiAddressStartAvailableStorage                       @ 0x00000000FF140114"),
                                 L (R, "LengthErstStoreRegionErrorRecordAreaAvailable           0x000000000001FE00"),
                                 L (R, "TotalNumberOfErstRecordsWithClearFlagOspm               0x00000002"),
                                 L (R, "TotalNumberOfErstRecordsWithClearFlagBios               0x00000003"),
                                 L (R, "TotalNumberOfErstRecords                                0x00000004"),
                             }));
}

TEST_F (ElogStoreDumpTest, ParameterRegionFieldByField) {
  VORN_ERST_PARAMETER_REGION Region = {
      2, 0x11, 0x12, 0x60, 0x61, 5, 1, 3, 0x10800060, 0x1FA0, 0x7, 0xD, 0xFFFFFFFFFFFFFFFF};

  PrintErstParameterRegion (&Region, DEBUG_INFO);
  const std::string R = "PrintErstParameterRegion";
  EXPECT_EQ (SerialLines (), (std::vector<std::string>{
                                 L (R, "pErstParameterBlock->Command                   0x0000000000000002"),
                                 L (R, "pErstParameterBlock->RecordID                  0x0000000000000011"),
                                 L (R, "pErstParameterBlock->NextRecordID              0x0000000000000012"),
                                 L (R, "pErstParameterBlock->LogOffset                 0x00000060"),
                                 L (R, "pErstParameterBlock->Padding0                  0x00000061"),
                                 L (R, "pErstParameterBlock->Status                    0x0000000000000005"),
                                 L (R, "pErstParameterBlock->BusyFlag                  0x0000000000000001"),
                                 L (R, "pErstParameterBlock->RecordCount               0x0000000000000003"),
                                 L (R, "pErstParameterBlock->ErrorLogAddressRange      0x0000000010800060"),
                                 L (R, "pErstParameterBlock->ErrorLogAddressLength     0x0000000000001FA0"),
                                 L (R, "pErstParameterBlock->ErrorLogAddressAttributes 0x0000000000000007"),
                                 L (R, "pErstParameterBlock->Dummy                     0x000000000000000D"),
                                 L (R, "pErstParameterBlock->CurRecordID               0xFFFFFFFFFFFFFFFF"),
                             }));
}

TEST_F (ElogStoreDumpTest, StoreStructures) {
  ERST_STORE_HEADER        Store = {ERST_STORE_HEADER_SIGNATURE, ERST_STORE_HEADER_LATEST_REVISION, 0x1FFA4};
  ERST_ERROR_RECORD_HEADER Header;
  ERST_ERROR_RECORD_FLAGS  Flags = {0x00010001, 0x22, 0xFF, {1, 2, 3, 0xA, 0xB, 0xC}};

  std::memset (&Header, 0, sizeof (Header));
  Header = {ERST_ERROR_RECORD_HEADER_SIGNATURE,
            0x00010001,
            0xFF1400B4,
            0xFF1400C0,
            MAX_UINT64,
            0xFF1401C0,
            0x9C,
            0x100,
            0x1234};

  DisplayErstStoreHeader (&Store, DEBUG_INFO);
  DisplayErstRecordHeader (&Header, DEBUG_INFO);
  DisplayErstErrorRecordFlags (&Flags, DEBUG_INFO);
  EXPECT_EQ (SerialLines (), (std::vector<std::string>{
                                 L ("DisplayErstStoreHeader", "Signature                 0x474F4C2054535245"),
                                 L ("DisplayErstStoreHeader", "Revision                  0x00010001"),
                                 L ("DisplayErstStoreHeader", "StoreLengthAvailable      0x0001FFA4"),
                                 L ("DisplayErstRecordHeader", "Signature                 0x5252452054535245"),
                                 L ("DisplayErstRecordHeader", "Revision                  0x00010001"),
                                 L ("DisplayErstRecordHeader", "OsRecordFlagsAddress    @ 0x00000000FF1400B4"),
                                 L ("DisplayErstRecordHeader", "OsRecordAddress         @ 0x00000000FF1400C0"),
                                 L ("DisplayErstRecordHeader", "PrevRecordHeaderAddress @ 0xFFFFFFFFFFFFFFFF"),
                                 L ("DisplayErstRecordHeader", "NextRecordHeaderAddress @ 0x00000000FF1401C0"),
                                 L ("DisplayErstRecordHeader", "OsRecordChecksum          0x000000000000009C"),
                                 L ("DisplayErstRecordHeader", "OsRecordLength            0x00000100"),
                                 L ("DisplayErstRecordHeader", "OsRecordID                0x0000000000001234"),
                                 L ("DisplayErstErrorRecordFlags", "Revision                  0x00010001"),
                                 L ("DisplayErstErrorRecordFlags", "RecordClearPerOspm        0x22"),
                                 L ("DisplayErstErrorRecordFlags", "RecordClearPerBios        0xFF"),
                                 L ("DisplayErstErrorRecordFlags", "Reserved                  0x01 02 03 0A 0B 0C"),
                             }));
}

TEST_F (ElogStoreDumpTest, VolumeHeadersOfTheErrorLogVolume) {
  const std::vector<UINT8>       Image = FlashImage::BuildDefault ();
  EFI_FIRMWARE_VOLUME_HEADER     Fv;
  EFI_FIRMWARE_VOLUME_EXT_HEADER Ext;
  std::memcpy (&Fv, Image.data () + FlashImage::kElogVolumeOffset, sizeof (Fv));
  std::memcpy (&Ext, Image.data () + FlashImage::kElogVolumeOffset + 0x48, sizeof (Ext));
  Fv.ZeroVector[0]  = 0x01;
  Fv.ZeroVector[15] = 0x80;

  DisplayFvHeader (&Fv, DEBUG_INFO);
  DisplayFvExtHeader (&Ext, DEBUG_INFO);
  const std::string F = "DisplayFvHeader";
  const std::string E = "DisplayFvExtHeader";
  EXPECT_EQ (SerialLines (), (std::vector<std::string>{
                                 L (F, "FvHeader.ZeroVector                   0x 0000000000000001 8000000000000000"),
                                 L (F, "FvHeader.FileSystemGuid               8C8CE578-8A3D-4F1C-9935-896185C32DD3"),
                                 L (F, "FvHeader.FileSystemGuid.Data1         0x8C8CE578"),
                                 L (F, "FvHeader.FileSystemGuid.Data2         0x8A3D"),
                                 L (F, "FvHeader.FileSystemGuid.Data3         0x4F1C"),
                                 L (F, "FvHeader.FileSystemGuid.Data4[0]      0x99"),
                                 L (F, "FvHeader.FileSystemGuid.Data4[1]      0x35"),
                                 L (F, "FvHeader.FileSystemGuid.Data4[2]      0x89"),
                                 L (F, "FvHeader.FileSystemGuid.Data4[3]      0x61"),
                                 L (F, "FvHeader.FileSystemGuid.Data4[4]      0x85"),
                                 L (F, "FvHeader.FileSystemGuid.Data4[5]      0xC3"),
                                 L (F, "FvHeader.FileSystemGuid.Data4[6]      0x2D"),
                                 L (F, "FvHeader.FileSystemGuid.Data4[7]      0xD3"),
                                 L (F, "FvHeader.FvLength                     0x0000000000020000"),
                                 L (F, "FvHeader.Signature                    0x4856465F"),
                                 L (F, "FvHeader.Attributes                   0x0004FEFF"),
                                 L (F, "FvHeader.HeaderLength                 0x0048"),
                                 L (F, "FvHeader.Checksum                     0xE665"),
                                 L (F, "FvHeader.ExtHeaderOffset              0x0048"),
                                 L (F, "FvHeader.Reserved                     0x00"),
                                 L (F, "FvHeader.Revision                     0x02"),
                                 L (F, "FvHeader.BlockMap[0].NumBlocks        0x00000020"),
                                 L (F, "FvHeader.BlockMap[0].Length           0x00001000"),
                                 L (E, "FvExtHeader.FvName               D6A1CD70-4B33-4994-A6EA-375F2CCC5437"),
                                 L (E, "FvExtHeader.FvName.Data1         0xD6A1CD70"),
                                 L (E, "FvExtHeader.FvName.Data2         0x4B33"),
                                 L (E, "FvExtHeader.FvName.Data3         0x4994"),
                                 L (E, "FvExtHeader.FvName.Data4[0]      0xA6"),
                                 L (E, "FvExtHeader.FvName.Data4[1]      0xEA"),
                                 L (E, "FvExtHeader.FvName.Data4[2]      0x37"),
                                 L (E, "FvExtHeader.FvName.Data4[3]      0x5F"),
                                 L (E, "FvExtHeader.FvName.Data4[4]      0x2C"),
                                 L (E, "FvExtHeader.FvName.Data4[5]      0xCC"),
                                 L (E, "FvExtHeader.FvName.Data4[6]      0x54"),
                                 L (E, "FvExtHeader.FvName.Data4[7]      0x37"),
                                 L (E, "FvExtHeader.ExtHeaderSize        0x00000014"),
                             }));
}

//
// Every printer given NULL: its error line alone, whatever the level.
//
struct NullCase {
  const char                 *Routine;
  const char                 *Argument;
  std::function<void (UINTN)> Print;
};

void PrintTo (const NullCase &Case, std::ostream *Out) {
  *Out << Case.Routine;
}

class ElogStoreDumpNullTest : public ElogStoreDumpTest, public ::testing::WithParamInterface<NullCase> {};

TEST_P (ElogStoreDumpNullTest, ReportsOnlyTheMissingStructure) {
  GetParam ().Print (DEBUG_INFO);
  GetParam ().Print (DEBUG_VERBOSE);
  EXPECT_EQ (SerialLines (),
             std::vector<std::string> (
                 2, L (GetParam ().Routine, std::string ("ERROR ") + GetParam ().Argument + " is NULL, aborting...")));
}

INSTANTIATE_TEST_SUITE_P (
    Printers,
    ElogStoreDumpNullTest,
    ::testing::Values (NullCase{"PrintRawData", "pData8", [] (UINTN Level) { PrintRawData (nullptr, 4, Level); }},
                       NullCase{"PrintErstSpiStoreInformation", "pErstSpiStoreInformation",
                                [] (UINTN Level) { PrintErstSpiStoreInformation (nullptr, Level); }},
                       NullCase{"PrintErstParameterRegion", "pErstParameterBlock",
                                [] (UINTN Level) { PrintErstParameterRegion (nullptr, Level); }},
                       NullCase{"DisplayErstStoreHeader", "pErstStoreHeader",
                                [] (UINTN Level) { DisplayErstStoreHeader (nullptr, Level); }},
                       NullCase{"DisplayErstRecordHeader", "pErstErrorRecordHeader",
                                [] (UINTN Level) { DisplayErstRecordHeader (nullptr, Level); }},
                       NullCase{"DisplayErstErrorRecordFlags", "pErstErrorRecordFlagsData",
                                [] (UINTN Level) { DisplayErstErrorRecordFlags (nullptr, Level); }},
                       NullCase{"DisplayFvHeader", "pFvHeader", [] (UINTN Level) { DisplayFvHeader (nullptr, Level); }},
                       NullCase{"DisplayFvExtHeader", "pFvExtHeader",
                                [] (UINTN Level) { DisplayFvExtHeader (nullptr, Level); }}),
    [] (const auto &Info) { return std::string (Info.param.Routine); });

TEST_F (ElogStoreDumpTest, DisabledLevelPrintsNothing) {
  ERST_STORE_HEADER          Store = {};
  ERST_SPI_STORE_INFORMATION Info  = {};
  UINT8                      Byte  = 0;

  PrintRawData (&Byte, 1, DEBUG_VERBOSE);
  PrintErstSpiStoreInformation (&Info, DEBUG_VERBOSE);
  DisplayErstStoreHeader (&Store, DEBUG_VERBOSE);
  EXPECT_TRUE (SerialLines ().empty ());
}

} // namespace

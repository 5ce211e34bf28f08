/** @file
  vornsim decode on input it must refuse: CPER record files that are not
  whole records, and ERST stores broken one way each (what it decodes before
  stopping, and why). What it prints of good input is a golden scenario.
**/
#include <algorithm>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Handlers/CperBuilder.h"
#include "Builder/FlashImage.h"
#include <VornApeiErst.h>

#include "TestFormat.h"
#include "VornsimShell.h"

namespace {

using Lines = std::vector<std::string>;

// Image offsets of the default error-log store and of two 280-byte records.
constexpr UINT64 kStore   = FlashImage::kElogVolumeOffset + FlashImage::kExtHeaderOffset + FlashImage::kExtHeaderSize;
constexpr UINT64 kRecord0 = kStore + 16;
constexpr UINT64 kRecord1 = kRecord0 + 84 + 280;

const UINT32 kPcieBody = Cper::SectionBodyLength (Cper::SectionKind::Pcie);

template <typename T> void Put (std::vector<UINT8> &Bytes, size_t Offset, T Value) {
  std::memcpy (Bytes.data () + Offset, &Value, sizeof (Value));
}

//
// A memory and a PCIe section behind two descriptors, the PCIe body 8 bytes
// after the memory body so that only its SectionOffset finds it.
//
std::vector<UINT8> TwoSectionRecord () {
  Cper::RecordSpec Pcie;
  Pcie.Kind                 = Cper::SectionKind::Pcie;
  const auto         Memory = Cper::BuildRecord ({});
  const auto         Second = Cper::BuildRecord (Pcie);
  std::vector<UINT8> Record (Memory.begin (), Memory.begin () + 200);
  Record.insert (Record.end (), Second.begin () + 128, Second.begin () + 200);
  Record.insert (Record.end (), Memory.begin () + 200, Memory.end ());
  Record.insert (Record.end (), 8, 0xEE);
  Record.insert (Record.end (), Second.begin () + 200, Second.end ());
  Put<UINT16> (Record, 10, 2);
  Put<UINT32> (Record, 20, static_cast<UINT32> (Record.size ()));
  Put<UINT32> (Record, 128, 272);
  Put<UINT32> (Record, 200, 360);
  return Record;
}

std::vector<UINT8> WithByte (std::vector<UINT8> Bytes, size_t Offset, UINT8 Value) {
  Bytes.resize (std::max (Bytes.size (), Offset + 1));
  Bytes[Offset] = Value;
  return Bytes;
}

struct BadFileCase {
  const char        *Name;
  std::vector<UINT8> Bytes; // empty: no file
  std::string        Error;
};

void PrintTo (const BadFileCase &Case, std::ostream *Out) {
  *Out << Case.Name;
}

const BadFileCase kBadFiles[] = {
    {"Short", std::vector<UINT8> (100, 0), "100 bytes is shorter than a CPER record header (128 bytes)"},
    {"SecondSectionPastTheEnd", WithByte (TwoSectionRecord (), 204, static_cast<UINT8> (kPcieBody + 1)),
     Format ("section 2 (offset 360, %u bytes) runs past the record's %u bytes", kPcieBody + 1, 360 + kPcieBody)},
};

class DecodeBadCperTest : public ::testing::TestWithParam<BadFileCase> {};

TEST_P (DecodeBadCperTest, ExitsWithOneLineSayingWhy) {
  VornsimShell Vornsim;
  if (!GetParam ().Bytes.empty ()) {
    Vornsim.Write ("bad.cper", GetParam ().Bytes);
  }
  const VornsimShell::Result Run = Vornsim ("decode cper bad.cper");
  EXPECT_EQ (Run.Status, 1);
  EXPECT_EQ (Run.Out, Lines ());
  EXPECT_EQ (Run.Err, "vornsim: bad.cper: " + GetParam ().Error + "\n");
}

INSTANTIATE_TEST_SUITE_P (Files, DecodeBadCperTest, ::testing::ValuesIn (kBadFiles), [] (const auto &Info) {
  return std::string (Info.param.Name);
});

//
// A flash image holding two generated records, identifiers 1 and 2.
//
class DecodeFlashFixture {
protected:
  DecodeFlashFixture () {
    for (int Write = 0; Write < 2; Write++) {
      EXPECT_EQ (Vornsim ("erst write --generate --flash f.img").Status, 0);
    }
  }

  void Patch (UINT64 Offset, const std::vector<UINT8> &Bytes) const {
    std::fstream Image (Vornsim.File ("f.img"), std::ios::binary | std::ios::in | std::ios::out);
    Image.seekp (static_cast<std::streamoff> (Offset));
    Image.write (reinterpret_cast<const char *> (Bytes.data ()), static_cast<std::streamsize> (Bytes.size ()));
  }

  VornsimShell Vornsim;
};

class DecodeFlashTest : public DecodeFlashFixture, public ::testing::Test {};

struct CorruptCase {
  const char        *Name;
  UINT64             Offset;
  std::vector<UINT8> Bytes;
  const char        *Error;
  const char        *Summary;
};

void PrintTo (const CorruptCase &Case, std::ostream *Out) {
  *Out << Case.Name;
}

const CorruptCase kCorruptStores[] = {
    {"StoreSignature",
     kStore,
     {'X'},
     "the store header signature 0x474F4C2054535258 is not \"ERST LOG\"",
     "0 records (0 live, 0 cleared by OSPM, 0 marked obsolete by firmware), 0 bytes used, 130964 bytes free"},
    {"RecordSignature",
     kRecord1,
     {0x00},
     "record 1 @ 0x00000000FF1401D8: signature 0x5252452054535200 is neither \"ERST ERR\" nor erased",
     "1 record (1 live, 0 cleared by OSPM, 0 marked obsolete by firmware), 364 bytes used, 130600 bytes free"},
    {"RecordRunsOffTheVolume",
     kRecord0 + 56,
     {0x00, 0x00, 0x03, 0x00},
     "record 0 @ 0x00000000FF14006C: its 0x00030000-byte OS record runs past the volume's end 0x00000000FF160000",
     "0 records (0 live, 0 cleared by OSPM, 0 marked obsolete by firmware), 0 bytes used, 130964 bytes free"},
    {"ChainRunsOffTheVolume",
     kRecord1 + 40,
     {0x00, 0x00, 0x20, 0xFF},
     "record 1 @ 0x00000000FF1401D8: NextRecordHeaderAddress 0x00000000FF200000 lies outside "
     "0x00000000FF140344..0x00000000FF160000, the volume behind its OS record",
     "2 records (2 live, 0 cleared by OSPM, 0 marked obsolete by firmware), 728 bytes used, 130236 bytes free"},
};

//
// An empty OS record and a wrong checksum are named, and the records after
// them are still decoded.
//
TEST_F (DecodeFlashTest, NamesAnEmptyRecordAndAWrongChecksumAndGoesOn) {
  Patch (kRecord0 + 56, {0x00, 0x00, 0x00, 0x00});
  Patch (kRecord1 + 48, {0x00});
  const VornsimShell::Result Run = Vornsim ("decode flash f.img --summary");
  EXPECT_EQ (Run.Status, 0);
  ASSERT_EQ (Run.Out.size (), 4u);
  EXPECT_TRUE (Run.Out[1].ends_with (", 0 bytes, live, OsRecordChecksum 0xC9 wrong (0xFF is right); OsRecordLength "
                                     "is 0: no OS record"))
      << Run.Out[1];
  EXPECT_TRUE (Run.Out[2].ends_with ("OsRecordChecksum 0x00 wrong (0xC8 is right); CPER corrected, 1 section, Platform "
                                     "Memory"))
      << Run.Out[2];
  EXPECT_TRUE (Run.Out[3].ends_with ("; 2 with a wrong OsRecordChecksum")) << Run.Out[3];
}

class DecodeCorruptFlashTest : public DecodeFlashFixture, public ::testing::TestWithParam<CorruptCase> {};

TEST_P (DecodeCorruptFlashTest, ReportsWhatItDecodedThenWhy) {
  Patch (GetParam ().Offset, GetParam ().Bytes);
  const VornsimShell::Result Run = Vornsim ("decode flash f.img");
  EXPECT_EQ (Run.Status, 1);
  EXPECT_EQ (Run.Err, std::string ("vornsim: f.img: corrupt store: ") + GetParam ().Error + "\n");
  ASSERT_FALSE (Run.Out.empty ());
  EXPECT_EQ (Run.Out.back (), std::string ("decode: ") + GetParam ().Summary);
}

INSTANTIATE_TEST_SUITE_P (Stores, DecodeCorruptFlashTest, ::testing::ValuesIn (kCorruptStores), [] (const auto &Info) {
  return std::string (Info.param.Name);
});

} // namespace

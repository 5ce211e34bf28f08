/** @file
  vornsim decode: CPER record files printed by the module's own printers
  (one and several sections, refused files), and ERST stores decoded from
  flash images (records, flags, summary, corrupt stores).
**/
#include <algorithm>
#include <cstdio>
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

const std::string kCpu0 = "[SMM] APIC 0x00 S00:C00:T00 > ";

// Image offsets of the default error-log store and of two 280-byte records.
constexpr UINT64 kStore   = FlashImage::kElogVolumeOffset + FlashImage::kExtHeaderOffset + FlashImage::kExtHeaderSize;
constexpr UINT64 kRecord0 = kStore + 16;
constexpr UINT64 kRecord1 = kRecord0 + 84 + 280;

const UINT32 kPcieBody = Cper::SectionBodyLength (Cper::SectionKind::Pcie);

template <typename T> void Put (std::vector<UINT8> &Bytes, size_t Offset, T Value) {
  std::memcpy (Bytes.data () + Offset, &Value, sizeof (Value));
}

//
// Whether Expected appear in Out in this order; names the first one missing.
//
::testing::AssertionResult InOrder (const Lines &Out, const Lines &Expected) {
  auto At = Out.begin ();
  for (const std::string &Line : Expected) {
    At = std::find (At, Out.end (), Line);
    if (At == Out.end ()) {
      return ::testing::AssertionFailure () << "missing, or out of order: '" << Line << "'";
    }
  }
  return ::testing::AssertionSuccess ();
}

//
// Where the record printer found the (first) record: lines after it give
// offsets from there.
//
UINT64 RecordAddress (const Lines &Out) {
  const std::string  Pattern = kCpu0 + "CPER Record Header @ 0x%llx length 128";
  unsigned long long Address = 0;
  for (const std::string &Line : Out) {
    if (std::sscanf (Line.c_str (), Pattern.c_str (), &Address) == 1) {
      break;
    }
  }
  return Address;
}

std::string At (const char *Text, UINT64 Address, UINT32 Length) {
  return kCpu0 + Format (Text, static_cast<unsigned long long> (Address), Length);
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

TEST (DecodeCperTest, ExportedRecordPrintsAsTheSerialLogDoes) {
  VornsimShell Vornsim;
  ASSERT_EQ (Vornsim ("export-cper memory memory.cper").Status, 0);
  const VornsimShell::Result Run = Vornsim ("decode cper memory.cper");
  ASSERT_EQ (Run.Status, 0) << Run.Err;
  EXPECT_EQ (Run.Err, "");
  ASSERT_FALSE (Run.Out.empty ());

  const UINT64 Address = RecordAddress (Run.Out);
  EXPECT_EQ (Run.Out.front (), kCpu0 + "DisplayCperRecord: pOsRecordHdr->SignatureStart == CPER, Parsing CPER record");
  EXPECT_TRUE (
      InOrder (Run.Out, {
                            At ("CPER Record Header @ 0x%016llX length %u", Address, 128),
                            kCpu0 + "     Record ID                       = 0x0000000100000001",
                            At ("CPER Section Descriptor @ 0x%016llX length %u", Address + 128, 72),
                            kCpu0 + "     Section Type                    = "
                                    "A5BC1114-6F64-4EDE-B863-3E83ED7C83B1 (GUID Memory)",
                            At ("DisplayCperRecord: CPER section data @ 0x%016llX length %u", Address + 200, 80),
                            kCpu0 + "DisplayCperRecord: CPER section type memory error GUID detected",
                            kCpu0 + "     Physical Address                = 0x0000000123456780",
                        }));
  EXPECT_EQ (Vornsim ("decode cper memory.cper").Out, Run.Out);
}

TEST (DecodeCperTest, EverySectionIsFoundThroughItsOffset) {
  VornsimShell Vornsim;
  Vornsim.Write ("two.cper", TwoSectionRecord ());
  const VornsimShell::Result Run = Vornsim ("decode cper two.cper");
  ASSERT_EQ (Run.Status, 0) << Run.Err;

  const UINT64 Address = RecordAddress (Run.Out);
  EXPECT_TRUE (
      InOrder (Run.Out, {
                            kCpu0 + "DisplayCperRecord: Section count 2",
                            At ("CPER Section Descriptor @ 0x%016llX length %u", Address + 128, 72),
                            At ("DisplayCperRecord: CPER section data @ 0x%016llX length %u", Address + 272, 80),
                            kCpu0 + "DisplayCperRecord: CPER section type memory error GUID detected",
                            kCpu0 + "DisplayCperRecord: Processing Descriptor 1 and associated Section data",
                            At ("CPER Section Descriptor @ 0x%016llX length %u", Address + 200, 72),
                            kCpu0 + "     Section Offset                  = 0x00000168 (360)",
                            At ("DisplayCperRecord: CPER section data @ 0x%016llX length %u", Address + 360, kPcieBody),
                            kCpu0 + "DisplayCperRecord: CPER section type PCIe error GUID detected",
                        }));
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
    {"Missing", {}, "cannot open the CPER record file"},
    {"Short", std::vector<UINT8> (100, 0), "100 bytes is shorter than a CPER record header (128 bytes)"},
    {"BadSignature", WithByte (Cper::BuildRecord ({}), 0, 'X'), "not a CPER record (no \"CPER\" signature)"},
    {"LengthMismatch", WithByte (Cper::BuildRecord ({}), 280, 0),
     "RecordLength 280 does not match the record's 281 bytes"},
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

TEST_F (DecodeFlashTest, ListsEachRecordWithItsIdAndFlags) {
  const std::vector<UINT8>   Image = Vornsim.Read ("f.img");
  const VornsimShell::Result Live  = Vornsim ("decode flash f.img");
  ASSERT_EQ (Live.Status, 0) << Live.Err;
  EXPECT_EQ (Vornsim.Read ("f.img"), Image);
  EXPECT_TRUE (InOrder (
      Live.Out,
      {
          "decode: f.img: error-log volume @ 0x00000000FF140000, 131072 bytes; store header @ 0x00000000FF14005C",
          "decode: record 0 @ 0x00000000FF14006C: id 0x0000000000000001, 280 bytes, live",
          kCpu0 + "DisplayErstRecordHeader: OsRecordID                0x0000000000000001",
          kCpu0 + "DisplayErstErrorRecordFlags: RecordClearPerOspm        0xFF",
          "decode: record 1 @ 0x00000000FF1401D8: id 0x0000000000000002, 280 bytes, live",
          kCpu0 + "DisplayErstRecordHeader: PrevRecordHeaderAddress @ 0x00000000FF14006C",
          kCpu0 + "     Record ID                       = 0x0000000000000002",
      }));
  EXPECT_EQ (Live.Out.back (), "decode: 2 records (2 live, 0 cleared by OSPM, 0 marked obsolete by firmware), "
                               "728 bytes used, 130236 bytes free");

  // APEI start-up marks both obsolete; the OS clear mark is laid by hand, as
  // the firmware sets it only over a 0x00 byte.
  ASSERT_EQ (Vornsim ("inject memory --flash f.img").Status, 0);
  Patch (kRecord0 + 76, {ERST_RECORD_CLEAR_FLAG_VALUE});
  const VornsimShell::Result Marked = Vornsim ("decode flash f.img");
  ASSERT_EQ (Marked.Status, 0) << Marked.Err;
  EXPECT_TRUE (InOrder (Marked.Out, {
                                        "decode: record 0 @ 0x00000000FF14006C: id 0x0000000000000001, 280 bytes, "
                                        "cleared by OSPM, marked obsolete by firmware",
                                        kCpu0 + "DisplayErstErrorRecordFlags: RecordClearPerOspm        0x22",
                                        "decode: record 1 @ 0x00000000FF1401D8: id 0x0000000000000002, 280 bytes, "
                                        "marked obsolete by firmware",
                                    }));
  EXPECT_EQ (Marked.Out.back (), "decode: 2 records (0 live, 1 cleared by OSPM, 2 marked obsolete by firmware), "
                                 "728 bytes used, 130236 bytes free");
}

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

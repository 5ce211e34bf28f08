/** @file
  The flash image builder, checked by an independent firmware image parser
  (UEFIExtract) and by the bytes the ERST store relies on.
**/
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "Builder/FlashImage.h"
#include <Guid/WheaElogFv.h>
#include <Pi/PiFirmwareVolume.h>

namespace {

//
// Writes Image into a fresh directory, runs the parser's report on it and
// returns its console output followed by the report.
//
std::string ParseWithUefiExtract (const std::vector<UINT8> &Image) {
  char Template[] = "/tmp/vorn-fvimage-XXXXXX";
  if (mkdtemp (Template) == nullptr) {
    return "mkdtemp failed";
  }

  const std::filesystem::path Dir = Template;
  std::ofstream (Dir / "flash.bin", std::ios::binary)
      .write (reinterpret_cast<const char *> (Image.data ()), static_cast<std::streamsize> (Image.size ()));

  std::string       Output;
  const std::string Command = "cd '" + Dir.string () + "' && UEFIExtract flash.bin report 2>&1";
  if (FILE *Pipe = popen (Command.c_str (), "r")) {
    char Chunk[512];
    while (size_t Got = fread (Chunk, 1, sizeof (Chunk), Pipe)) {
      Output.append (Chunk, Got);
    }

    if (pclose (Pipe) != 0) {
      Output += "\nUEFIExtract did not run";
    }
  }

  std::ifstream     Report (Dir / "flash.bin.report.txt");
  std::stringstream Text;
  Text << Report.rdbuf ();
  std::filesystem::remove_all (Dir);
  return Output + Text.str ();
}

TEST (FlashImageTest, ParserAcceptsEveryVolumeAndNamesTheErrorLogVolume) {
  const std::string Parsed = ParseWithUefiExtract (FlashImage::BuildDefault ());

  EXPECT_EQ (Parsed.find ("checksum is invalid"), std::string::npos) << Parsed;
  EXPECT_EQ (Parsed.find ("did not run"), std::string::npos) << Parsed;
  for (const char *Volume : {
           " Volume          | FFSv2                 | 00000000 | 00100000 |",
           " Volume          | FFSv2                 | 00100000 | 00040000 |",
           " Volume          | FFSv2                 | 00140000 | 00020000 |",
           " Volume          | FFSv2                 | 00160000 | 00D20000 |",
           " Volume          | FFSv2                 | 00F00000 | 00100000 |",
       }) {
    EXPECT_NE (Parsed.find (Volume), std::string::npos) << Volume << "\n" << Parsed;
  }

  // The error-log volume is listed under its name.
  const size_t Start = Parsed.find (" Volume          | FFSv2                 | 00140000 | 00020000 |");
  ASSERT_NE (Start, std::string::npos);
  const std::string Line = Parsed.substr (Start, Parsed.find ('\n', Start) - Start);
  EXPECT_TRUE (Line.ends_with ("| - D6A1CD70-4B33-4994-A6EA-375F2CCC5437")) << Line;
}

TEST (FlashImageTest, ParserCatchesABrokenHeader) {
  std::vector<UINT8> Image = FlashImage::BuildDefault ();

  // Guards the test above: one changed header byte must show.
  Image[FlashImage::kElogVolumeOffset + offsetof (EFI_FIRMWARE_VOLUME_HEADER, Attributes)] ^= 0x01;
  EXPECT_NE (ParseWithUefiExtract (Image).find ("volume header checksum is invalid"), std::string::npos);
}

TEST (FlashImageTest, ErrorLogVolumeLayout) {
  const std::vector<UINT8>       Image  = FlashImage::BuildDefault ();
  const UINT8                   *Volume = Image.data () + FlashImage::kElogVolumeOffset;
  EFI_FIRMWARE_VOLUME_HEADER     Header;
  EFI_FIRMWARE_VOLUME_EXT_HEADER Ext;
  UINT16                         Sum = 0;

  std::memcpy (&Header, Volume, sizeof (Header));
  std::memcpy (&Ext, Volume + 0x48, sizeof (Ext));
  for (size_t Offset = 0; Offset < 0x48; Offset += 2) {
    Sum = static_cast<UINT16> (Sum + Volume[Offset] + (Volume[Offset + 1] << 8));
  }

  EXPECT_EQ (Sum, 0);
  EXPECT_EQ (Header.FvLength, 0x20000u);
  EXPECT_EQ (Header.Attributes, 0x0004FEFFu);
  EXPECT_EQ (Header.HeaderLength, 0x48);
  EXPECT_EQ (Header.ExtHeaderOffset, 0x48);
  EXPECT_EQ (Header.Revision, 2);
  EXPECT_EQ (Header.BlockMap[0].NumBlocks, 32u);
  EXPECT_EQ (Header.BlockMap[0].Length, 0x1000u);
  EXPECT_EQ (std::memcmp (&Ext.FvName, &gEfiWheaElogFvGuid, sizeof (EFI_GUID)), 0);
  EXPECT_EQ (Ext.ExtHeaderSize, 20u);

  // Block-map terminator, then an erased store area up to the next volume.
  EXPECT_EQ (std::vector<UINT8> (Volume + 0x40, Volume + 0x48), std::vector<UINT8> (8, 0x00));
  EXPECT_EQ (std::vector<UINT8> (Volume + 0x5C, Volume + 0x20000), std::vector<UINT8> (0x20000 - 0x5C, 0xFF));
}

TEST (FlashImageTest, RefusesAVolumeThatDoesNotFit) {
  const FlashImage::VolumeSpec TooLong[]    = {{0x1000, 0x10, 0, {}}};
  const FlashImage::VolumeSpec OffBlock[]   = {{0x800, 0x1, 0, {}}};
  const FlashImage::VolumeSpec ExtOutside[] = {{0x0, 0x1, 0xFF0, {}}};

  EXPECT_THROW (FlashImage::Build (0x10000, TooLong), std::invalid_argument);
  EXPECT_THROW (FlashImage::Build (0x10000, OffBlock), std::invalid_argument);
  EXPECT_THROW (FlashImage::Build (0x10000, ExtOutside), std::invalid_argument);
}

} // namespace

/** @file
  The error-log volume drawn to scale.
**/
#include "Decode/FlashVolumeSvg.h"

#include <algorithm>
#include <vector>

#include <SpiFlash.h>

#include "Common/TextFormat.h"

namespace Sim {

namespace {

constexpr UINT64 kBlockBytes = 0x1000;
constexpr UINT64 kMaxRows    = 64;
constexpr int    kRowWidth   = 1024; // pixels for one row's bytes
constexpr int    kRowHeight  = 18;
constexpr int    kRowGap     = 6;
constexpr int    kLeft       = 96; // room for the address labels
constexpr int    kLegendRow  = 18;
constexpr int    kTop        = 30 + 2 * kLegendRow + 4; // title and two legend rows
constexpr int    kRight      = 16;

enum class Kind { VolumeHeaders, StoreHeader, RecordHeader, Live, Cleared, Obsolete, Gap, Free, Past, PastData };

struct Style {
  const char *Fill;
  const char *Label;
};

// Indexed by Kind.
constexpr Style kStyles[] = {
    {"#78909c", "volume headers"},          {"#37474f", "store header"},
    {"#283593", "record header and flags"}, {"#43a047", "live record"},
    {"#fb8c00", "cleared by OSPM"},         {"#e53935", "marked obsolete by firmware"},
    {"#ce93d8", "between records"},         {"#ffffff", "free"},
    {"#eceff1", "past the volume, erased"}, {"#6d4c41", "past the volume, programmed"},
};

struct Region {
  UINT64 Start;
  UINT64 End;
  Kind   What;
};

Kind RecordKind (const ErstStoredRecord &Record) {
  switch (RecordState (Record.Flags)) {
    case ErstRecordState::ClearedByOspm:
      return Kind::Cleared;
    case ErstRecordState::MarkedObsolete:
      return Kind::Obsolete;
    case ErstRecordState::Live:
      break;
  }
  return Kind::Live;
}

std::vector<Region> Regions (const ErstVolume &Volume, const ErstStoreContents &Store, UINT64 PastEnd) {
  std::vector<Region> Found = {{Volume.Address, Volume.StoreHeader, Kind::VolumeHeaders},
                               {Volume.StoreHeader, std::min (Volume.Records (), Volume.End ()), Kind::StoreHeader}};
  UINT64              Here  = Volume.Records ();
  for (const ErstStoredRecord &Record : Store.Records) {
    if (Record.HeaderAddress > Here) {
      Found.push_back ({Here, Record.HeaderAddress, Kind::Gap});
    }
    const UINT64 Data = Record.HeaderAddress + ERST_ERROR_RECORD_HEADER_AND_FLAGS_LENGTH;
    Found.push_back ({Record.HeaderAddress, Data, Kind::RecordHeader});
    Found.push_back ({Data, Data + Record.Header.OsRecordLength, RecordKind (Record)});
    Here = Data + Record.Header.OsRecordLength;
  }
  Found.push_back ({Here, Volume.End (), Kind::Free});

  // The flash after the volume, in runs of erased and programmed bytes.
  const UINT64             Top = std::min (PastEnd, Host::Flash::Base () + Host::Flash::Size ());
  const std::vector<UINT8> Bytes =
      Volume.End () < Top ? Host::Flash::Peek (Volume.End (), Top - Volume.End ()) : std::vector<UINT8> ();
  for (size_t Index = 0; Index < Bytes.size ();) {
    const bool Erased = Bytes[Index] == 0xFF;
    size_t     End    = Index;
    while (End < Bytes.size () && (Bytes[End] == 0xFF) == Erased) {
      End++;
    }
    Found.push_back ({Volume.End () + Index, Volume.End () + End, Erased ? Kind::Past : Kind::PastData});
    Index = End;
  }
  return Found;
}

//
// The legend, wrapped to the rows' width (a monospace character is under 7
// pixels wide at this size).
//
std::string Legend () {
  std::string Text;
  int         X = kLeft;
  int         Y = 30;
  for (const Style &Entry : kStyles) {
    const int Width = 24 + static_cast<int> (std::string (Entry.Label).size ()) * 7;
    if (X + Width > kLeft + kRowWidth) {
      X = kLeft;
      Y += kLegendRow;
    }
    Text += Format ("<rect x=\"%d\" y=\"%d\" width=\"12\" height=\"12\" fill=\"%s\" stroke=\"#455a64\"/>"
                    "<text x=\"%d\" y=\"%d\">%s</text>\n",
                    X, Y, Entry.Fill, X + 16, Y + 10, Entry.Label);
    X += Width;
  }
  return Text;
}

} // namespace

std::string FlashVolumeSvg (const ErstVolume &Volume, const ErstStoreContents &Store) {
  // One erase block a row; a large volume gets wider rows so it stays within kMaxRows.
  const UINT64 RowBytes =
      std::max (kBlockBytes, (Volume.Length + kMaxRows * kBlockBytes - 1) / (kMaxRows * kBlockBytes) * kBlockBytes);
  const UINT64 VolumeRows = (Volume.Length + RowBytes - 1) / RowBytes;
  const UINT64 Rows       = VolumeRows + 1; // and one row past the volume
  const UINT64 Base       = Volume.Address;
  const int    Width      = kLeft + kRowWidth + kRight;
  const int    Height     = kTop + static_cast<int> (Rows) * (kRowHeight + kRowGap) + kRowGap;
  const auto   Y          = [] (UINT64 Row) { return kTop + static_cast<int> (Row) * (kRowHeight + kRowGap); };

  std::string Svg = Format ("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%d\" height=\"%d\" "
                            "font-family=\"monospace\" font-size=\"11\">\n"
                            "<rect width=\"100%%\" height=\"100%%\" fill=\"#fafafa\"/>\n"
                            "<text x=\"%d\" y=\"18\" font-size=\"13\">error-log volume @ 0x%08llX, %llu bytes, "
                            "%llu bytes a row; %zu record%s</text>\n",
                            Width, Height, kLeft, static_cast<unsigned long long> (Base),
                            static_cast<unsigned long long> (Volume.Length), static_cast<unsigned long long> (RowBytes),
                            Store.Records.size (), Store.Records.size () == 1 ? "" : "s");
  Svg += Legend ();
  for (UINT64 Row = 0; Row < Rows; Row++) {
    Svg += Format ("<text x=\"4\" y=\"%d\">0x%08llX</text>\n", Y (Row) + 13,
                   static_cast<unsigned long long> (Base + Row * RowBytes));
  }

  // Each region, cut at row ends; at least a pixel wide so none vanishes.
  for (const Region &Part : Regions (Volume, Store, Base + Rows * RowBytes)) {
    for (UINT64 Start = Part.Start; Start < Part.End;) {
      const UINT64 Row  = (Start - Base) / RowBytes;
      const UINT64 End  = std::min (Part.End, Base + (Row + 1) * RowBytes);
      const UINT64 From = (Start - Base) % RowBytes;
      const int    X    = kLeft + static_cast<int> (From * kRowWidth / RowBytes);
      const int    W    = std::max (1, static_cast<int> ((End - Start) * kRowWidth / RowBytes));
      Svg += Format ("<rect x=\"%d\" y=\"%d\" width=\"%d\" height=\"%d\" fill=\"%s\"/>\n", X, Y (Row), W, kRowHeight,
                     kStyles[static_cast<int> (Part.What)].Fill);
      Start = End;
    }
  }

  // Row outlines, and the volume's end as a rule across the last row.
  for (UINT64 Row = 0; Row < Rows; Row++) {
    Svg += Format ("<rect x=\"%d\" y=\"%d\" width=\"%d\" height=\"%d\" fill=\"none\" stroke=\"#90a4ae\"/>\n", kLeft,
                   Y (Row), kRowWidth, kRowHeight);
  }
  const UINT64 EndOffset = Volume.Length - (VolumeRows - 1) * RowBytes;
  const int    EndX      = kLeft + static_cast<int> (EndOffset * kRowWidth / RowBytes);
  Svg += Format ("<line x1=\"%d\" y1=\"%d\" x2=\"%d\" y2=\"%d\" stroke=\"#b71c1c\" stroke-width=\"2\"/>\n", EndX,
                 Y (VolumeRows - 1) - 3, EndX, Y (VolumeRows - 1) + kRowHeight + 3);
  Svg += "</svg>\n";
  return Svg;
}

} // namespace Sim

/** @file
  A to-scale picture of the error-log volume as an SVG document: the volume
  and store headers, each record's header and flags and its OS record
  (live, cleared by OSPM, marked obsolete by firmware), free space, and the
  flash just past the volume, where a store that overran its volume shows.
  Rows are erase blocks (or larger, for a large volume), laid out as a
  memory map with their addresses.
**/
#pragma once

#include <string>

#include "Decode/ErstStoreReader.h"

namespace Sim {

//
// The picture of Volume holding Store, as read from the attached flash.
//
std::string FlashVolumeSvg (const ErstVolume &Volume, const ErstStoreContents &Store);

} // namespace Sim

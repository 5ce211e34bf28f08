/** @file
  Loading the module image: every boot starts the module and its libraries
  from zero-initialised data, as the SMM core does when it loads the image.
**/
#pragma once

#include <span>

#include <Uefi.h>

//
// Returns every piece of module and library state to its load-time value.
//
void ModuleImageLoad ();

//
// The module's data as it is now (every global of the module and its
// libraries), for saving and putting back.
//
std::span<UINT8> ModuleImageData ();

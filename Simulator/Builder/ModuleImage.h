/** @file
  Loading the module image: every boot starts the module and its libraries
  from zero-initialised data, as the SMM core does when it loads the image.
**/
#pragma once

//
// Returns every piece of module and library state to its load-time value.
//
void ModuleImageLoad ();

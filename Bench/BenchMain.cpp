/** @file
  vornbench: run under callgrind by Bench/bench.py, which turns its dumps and
  figures into the cost table and the growth curves.
**/
#include <cstdio>
#include <cstring>
#include <exception>

#include "BenchRows.h"

int main (int argc, char **argv) {
  try {
    if (argc == 2 && std::strcmp (argv[1], "table") == 0) {
      Bench::CostTable ();
    } else if (argc == 2 && std::strcmp (argv[1], "curves") == 0) {
      Bench::GrowthCurves ();
    } else {
      std::fprintf (stderr, "usage: vornbench table|curves\n");
      return 2;
    }
  } catch (const std::exception &Error) {
    std::fprintf (stderr, "vornbench: %s\n", Error.what ());
    return 1;
  }
  return 0;
}

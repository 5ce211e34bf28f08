/** @file
  Runs a harness once over each input file, and over every file of each
  directory named, in name order: what libFuzzer does with inputs it is not
  asked to fuzz. Builds without libFuzzer link the harnesses with it, so
  ctest replays the seed corpora under the ordinary sanitizers.
**/
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerInitialize (int *argc, char ***argv);
extern "C" int LLVMFuzzerTestOneInput (const uint8_t *Data, size_t Size);

int main (int argc, char **argv) {
  LLVMFuzzerInitialize (&argc, &argv);
  std::vector<std::filesystem::path> Inputs;
  for (int Index = 1; Index < argc; Index++) {
    if (std::filesystem::is_directory (argv[Index])) {
      for (const auto &Entry : std::filesystem::directory_iterator (argv[Index])) {
        Inputs.push_back (Entry.path ());
      }
    } else {
      Inputs.emplace_back (argv[Index]);
    }
  }

  std::sort (Inputs.begin (), Inputs.end ());
  for (const auto &Path : Inputs) {
    std::ifstream              File (Path, std::ios::binary);
    const std::vector<uint8_t> Bytes{std::istreambuf_iterator<char> (File), std::istreambuf_iterator<char> ()};
    if (!File.good () && !File.eof ()) {
      std::fprintf (stderr, "%s: cannot read\n", Path.c_str ());
      return 1;
    }

    LLVMFuzzerTestOneInput (Bytes.data (), Bytes.size ());
  }

  std::fprintf (stderr, "replayed %zu inputs\n", Inputs.size ());
  return Inputs.empty () ? 1 : 0;
}

// Feeds every input of a corpus to a fuzz target once, without libFuzzer:
// built beside each target in every preset with tests, so that CTest replays
// each seed and each input a fuzzing run ever found as a regression test.
//
//   replay_token_decoder fuzz/corpus/token_decoder [more files or directories]
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
  namespace fs = std::filesystem;
  std::vector<fs::path> files;
  for (int i = 1; i < argc; ++i) {
    const fs::path given(argv[i]);
    if (!fs::is_directory(given)) {
      files.push_back(given);
      continue;
    }
    for (const auto& entry : fs::recursive_directory_iterator(given)) {
      if (entry.is_regular_file()) files.push_back(entry.path());
    }
  }
  std::ranges::sort(files);
  if (files.empty()) {
    std::cerr << "no inputs given\n";
    return 1;
  }
  for (const auto& file : files) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
      std::cerr << "cannot read " << file << "\n";
      return 1;
    }
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    // libFuzzer never passes a null pointer, not even for an empty input.
    static const std::uint8_t kEmpty = 0;
    const auto* data = bytes.empty() ? &kEmpty : reinterpret_cast<const std::uint8_t*>(bytes.data());
    LLVMFuzzerTestOneInput(data, bytes.size());
  }
  std::cout << files.size() << " inputs replayed\n";
  return 0;
}

// Runs a fuzz target over stored inputs: each argument is a folder of them. Prints how many it ran;
// exits with 1 when there was none, so that a lost corpus shows.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fs = std::filesystem;

namespace {

std::vector<fs::path> InputsBelow(const fs::path& folder) {
  std::vector<fs::path> inputs;
  if (!fs::is_directory(folder)) return inputs;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
    if (entry.is_regular_file()) inputs.push_back(entry.path());
  }
  std::sort(inputs.begin(), inputs.end());
  return inputs;
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t count = 0;
  for (int i = 1; i < argc; ++i) {
    for (const fs::path& input : InputsBelow(argv[i])) {
      std::fprintf(stderr, "%s\n", input.c_str());  // the last line names the input of a crash
      std::ifstream in(input, std::ios::binary);
      const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(in),
                                            std::istreambuf_iterator<char>()};
      LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
      ++count;
    }
  }
  std::printf("%zu inputs replayed\n", count);
  return count == 0 ? 1 : 0;
}

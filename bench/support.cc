#include "support.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <stdexcept>
#include <string>

namespace quorbix::virtdisk::bench {
namespace fs = std::filesystem;

namespace {

constexpr std::size_t kChunk = 1 << 20;
constexpr char kMemoryFileSystem[] = "/dev/shm";

fs::path MakeRoot() {
  const char* chosen = std::getenv("VIRTDISK_BENCH_DIR");
  const bool memory = ::access(kMemoryFileSystem, W_OK | X_OK) == 0;
  const fs::path parent = chosen != nullptr ? fs::path(chosen)
                          : memory          ? fs::path(kMemoryFileSystem)
                                            : fs::temp_directory_path();
  std::string name = (parent / "virtdisk-bench-XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
  return name;
}

void FillRandom(std::vector<char>& bytes, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  for (std::size_t i = 0; i + 8 <= bytes.size(); i += 8) {
    const std::uint64_t word = random();
    std::copy_n(reinterpret_cast<const char*>(&word), 8, bytes.data() + i);
  }
}

std::uint64_t StatusField(const char* name) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind(name, 0) == 0) {
      return std::stoull(line.substr(line.find_first_of("0123456789"))) * 1024;
    }
  }
  return 0;
}

}  // namespace

BenchFolder::BenchFolder() : root(MakeRoot()) {}

BenchFolder::~BenchFolder() {
  std::error_code ignored;
  fs::remove_all(root, ignored);
}

void BenchFolder::AddFiles(const fs::path& sub, std::size_t count, std::uint64_t bytesEach,
                           std::size_t filesPerFolder) {
  std::vector<char> chunk(static_cast<std::size_t>(std::min<std::uint64_t>(bytesEach, kChunk)));
  for (std::size_t i = 0; i < count; ++i) {
    const fs::path folder = root / sub / ("D" + std::to_string(i / filesPerFolder));
    if (i % filesPerFolder == 0) fs::create_directories(folder);
    FillRandom(chunk, i + 1);
    std::ofstream out(folder / ("F" + std::to_string(i) + ".BIN"), std::ios::binary);
    for (std::uint64_t left = bytesEach; left > 0;) {
      const std::uint64_t part = std::min<std::uint64_t>(left, chunk.size());
      out.write(chunk.data(), static_cast<std::streamsize>(part));
      left -= part;
    }
    out.close();
    if (!out) throw std::runtime_error("cannot write benchmark files");
  }
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values.at(values.size() / 2);
}

void ResetPeakMemory() { std::ofstream("/proc/self/clear_refs") << "5"; }
std::uint64_t PeakMemory() { return StatusField("VmHWM:"); }
std::uint64_t CurrentMemory() { return StatusField("VmRSS:"); }

}  // namespace quorbix::virtdisk::bench

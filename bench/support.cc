#include "support.h"

#include <fcntl.h>
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

fs::path MakeRoot() {
  const char* chosen = std::getenv("VIRTDISK_BENCH_DIR");
  const fs::path parent = chosen != nullptr ? fs::path(chosen) : fs::temp_directory_path();
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
    if (line.rfind(name, 0) == 0)
      return std::stoull(line.substr(line.find_first_of("0123456789"))) * 1024;
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

std::uint64_t ReadEverything(const fs::path& folder) {
  std::vector<char> buffer(kChunk);
  std::uint64_t total = 0;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
    if (!entry.is_regular_file()) continue;
    const int file = ::open(entry.path().c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) continue;
    for (::ssize_t got; (got = ::read(file, buffer.data(), buffer.size())) > 0;) {
      total += static_cast<std::uint64_t>(got);
    }
    ::close(file);
  }
  return total;
}

std::uint64_t WriteOnce(const fs::path& file, std::uint64_t bytes) {
  const std::vector<char> chunk(kChunk, 'x');
  const int out = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (out < 0) throw std::runtime_error("cannot open " + file.string());
  std::uint64_t done = 0;
  while (done < bytes) {
    const ::ssize_t put = ::write(out, chunk.data(), std::min<std::uint64_t>(bytes - done, kChunk));
    if (put <= 0) throw std::runtime_error("cannot write " + file.string());
    done += static_cast<std::uint64_t>(put);
  }
  ::close(out);
  return done;
}

void ResetPeakMemory() { std::ofstream("/proc/self/clear_refs") << "5"; }
std::uint64_t PeakMemory() { return StatusField("VmHWM:"); }
std::uint64_t CurrentMemory() { return StatusField("VmRSS:"); }

}  // namespace quorbix::virtdisk::bench

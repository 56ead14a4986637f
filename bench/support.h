#ifndef QUORBIX_VIRTDISK_BENCH_SUPPORT_H_
#define QUORBIX_VIRTDISK_BENCH_SUPPORT_H_

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <vector>

namespace quorbix::virtdisk::bench {

// A temporary folder with generated files, removed with its owner. $VIRTDISK_BENCH_DIR chooses
// where, else it is the machine's memory file system, else the folder for temporary files.
class BenchFolder {
 public:
  BenchFolder();
  ~BenchFolder();
  BenchFolder(const BenchFolder&) = delete;
  BenchFolder& operator=(const BenchFolder&) = delete;

  const std::filesystem::path& Path() const { return root; }

  // Writes `count` files of `bytesEach` pseudo-random bytes into `sub`, `filesPerFolder` to a
  // folder, under 8.3 names.
  void AddFiles(const std::filesystem::path& sub, std::size_t count, std::uint64_t bytesEach,
                std::size_t filesPerFolder);

 private:
  std::filesystem::path root;
};

// Wall-clock seconds that `work` takes.
template <class Work>
double Seconds(Work&& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double Median(std::vector<double> values);

// Peak resident memory of this process since the last reset, in bytes, and what it holds now.
void ResetPeakMemory();
std::uint64_t PeakMemory();
std::uint64_t CurrentMemory();

}  // namespace quorbix::virtdisk::bench

#endif  // QUORBIX_VIRTDISK_BENCH_SUPPORT_H_

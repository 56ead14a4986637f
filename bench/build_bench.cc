// Times a build beside its floor: reading the source files once plus writing the image's size once.
// Both are taken in turn, in one run, on the same disk; the ratio of their medians is what counts.
//
//   cmake --preset release && cmake --build --preset release --target build_bench
//   build/release/bench/build_bench
//
// Reported per case: floor_ms, build_ms and ratio (medians), image_MiB, and beyond_MiB, the peak
// memory of the build on top of the image and the largest file.

#include <cstdlib>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

#include <quorbix/virtdisk/fat_image_builder.h>

#include "support.h"

namespace quorbix::virtdisk::bench {
namespace {

constexpr double kMiB = 1048576;
constexpr int kRounds = 7;

struct BuildCase {
  const char* name;
  std::size_t fileCount;
  std::uint64_t bytesEach;
  std::size_t filesPerFolder;
  std::uint64_t imageMiB;
};

constexpr BuildCase kCases[] = {
    {"Build/3000x40KiB", 3000, 40 * 1024, 100, 256},
    {"Build/20000x1KiB", 20000, 1024, 200, 1400},
    {"Build/8000x1KiBInOneFolder", 8000, 1024, 8000, 128},
    {"Build/6x150MiB", 6, 150 * 1048576, 6, 1024},
    {"Build/20x4KiBInto512MiB", 20, 4096, 20, 512},
};

void BuildBesideItsFloor(benchmark::State& state, const BuildCase& shape) {
  BenchFolder folder;
  folder.AddFiles("src", shape.fileCount, shape.bytesEach, shape.filesPerFolder);
  const std::filesystem::path source = folder.Path() / "src";
  const std::filesystem::path output = folder.Path() / "out.img";
  const std::uint64_t imageBytes = shape.imageMiB * 1048576;
  const auto builder = CreateFat16Builder();

  std::vector<double> floors;
  std::vector<double> builds;
  double beyond = 0;
  for (auto _ : state) {
    std::filesystem::remove(output);
    floors.push_back(Seconds([&] {
      benchmark::DoNotOptimize(ReadEverything(source));
      WriteOnce(output, imageBytes);
    }));
    std::filesystem::remove(output);
    ResetPeakMemory();
    const std::uint64_t before = CurrentMemory();
    bool built = false;
    builds.push_back(Seconds([&] { built = builder->Build(source, output, imageBytes); }));
    if (!built) {
      state.SkipWithError(builder->LastError().c_str());
      return;
    }
    const double peak = static_cast<double>(PeakMemory()) - static_cast<double>(before);
    beyond = peak - static_cast<double>(imageBytes) - static_cast<double>(shape.bytesEach);
    state.SetIterationTime(builds.back());
  }
  state.counters["floor_ms"] = Median(floors) * 1000;
  state.counters["build_ms"] = Median(builds) * 1000;
  state.counters["ratio"] = Median(builds) / Median(floors);
  state.counters["image_MiB"] = static_cast<double>(shape.imageMiB);
  state.counters["beyond_MiB"] = beyond / kMiB;
}

}  // namespace
}  // namespace quorbix::virtdisk::bench

int main(int argc, char** argv) {
  using quorbix::virtdisk::bench::kCases;
  for (const auto& shape : kCases) {
    benchmark::RegisterBenchmark(shape.name,
                                 [&shape](benchmark::State& state) {
                                   quorbix::virtdisk::bench::BuildBesideItsFloor(state, shape);
                                 })
        ->Iterations(quorbix::virtdisk::bench::kRounds)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}

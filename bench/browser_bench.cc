// The image browser: loading, listing every directory, searching and reading every file, each
// beside its floor, which is copying the image's bytes once.
//
// Workload/N: N files of 700 bytes, 100 to a directory, two 512-byte clusters each for N up to
// 16,000 and one for 60,000 (the most that a FAT16 volume holds), directories four deep.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "quorbix/virtdisk/fat16_fs_image.h"
#include "support.h"

namespace quorbix::virtdisk::bench {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kSector = 512;
constexpr std::size_t kSlot = 32;
constexpr std::size_t kFilesPerFolder = 100;

// A bare volume with one sector per cluster, written field by field.
class VolumeWriter {
 public:
  explicit VolumeWriter(std::size_t clusters)
      : fatSectors((clusters + 2) * 2 / kSector + 1),
        image((1 + fatSectors + 32 + clusters) * kSector) {
    U16(11, kSector);
    image[13] = 1;  // sectors per cluster
    U16(14, 1);     // reserved sectors
    image[16] = 1;  // FATs
    U16(17, 512);   // root entries
    U16(22, fatSectors);
    rootNext = (1 + fatSectors) * kSector;
  }

  // Takes the next `count` clusters as one chain; 0 when it is to be empty.
  std::size_t Chain(std::size_t count) {
    if (count == 0) return 0;
    const std::size_t first = nextCluster;
    nextCluster += count;
    for (std::size_t i = first; i < nextCluster; ++i) {
      U16(kSector + 2 * i, i + 1 < nextCluster ? i + 1 : 0xFFFF);
    }
    return first;
  }

  // `directory` is a first cluster whose chain lies in one piece; 0 is the root.
  void Slot(std::size_t directory, const std::string& base, std::uint8_t attributes,
            std::size_t firstCluster, std::size_t size) {
    if (directory != 0 && next.count(directory) == 0) next[directory] = Offset(directory);
    std::size_t& position = directory == 0 ? rootNext : next[directory];
    std::memset(&image.at(position), ' ', 11);
    std::memcpy(&image[position], base.data(), base.size());
    image[position + 11] = attributes;
    U16(position + 26, firstCluster);
    U16(position + 28, size);
    position += kSlot;
  }

  std::size_t Offset(std::size_t cluster) const {
    return (1 + fatSectors + 32 + cluster - 2) * kSector;
  }
  const Bytes& Image() const { return image; }

 private:
  void U16(std::size_t offset, std::size_t value) {
    image.at(offset) = static_cast<std::uint8_t>(value & 0xFF);
    image.at(offset + 1) = static_cast<std::uint8_t>(value >> 8);
  }

  std::size_t fatSectors;
  Bytes image;
  std::size_t nextCluster = 2;
  std::size_t rootNext = 0;
  std::map<std::size_t, std::size_t> next;  // where the next slot of a directory goes
};

std::string Name(char letter, std::size_t number) {
  const std::string digits = std::to_string(number);
  return letter + std::string(6 - digits.size(), '0') + digits;
}

const Bytes& Image(std::size_t files) {
  static std::map<std::size_t, Bytes> images;
  Bytes& image = images[files];
  if (!image.empty()) return image;

  VolumeWriter volume(65000);
  const std::size_t clustersEach = files > 16000 ? 1 : 2;
  const std::size_t folderClusters = (kFilesPerFolder + 10) * kSlot / kSector + 1;
  std::vector<std::size_t> path = {0};
  for (std::size_t i = 0; i < files; ++i) {
    if (i % kFilesPerFolder == 0) {
      if (path.size() == 5) path.resize(1);
      const std::size_t folder = volume.Chain(folderClusters);
      volume.Slot(path.back(), Name('D', i / kFilesPerFolder), 0x10, folder, 0);
      path.push_back(folder);
    }
    volume.Slot(path.back(), Name('F', i), 0x20, volume.Chain(clustersEach),
                clustersEach == 2 ? 700 : 400);
  }
  image = volume.Image();
  return image;
}

// `files` entries that all lead into one chain of 60,000 clusters.
Bytes SharedChainImage(std::size_t files) {
  VolumeWriter volume(65000);
  const std::size_t chain = volume.Chain(60000);
  const std::size_t folder = volume.Chain(files * kSlot / kSector + 1);
  volume.Slot(0, "D", 0x10, folder, 0);
  for (std::size_t i = 0; i < files; ++i) {
    volume.Slot(folder, Name('F', i), 0x20, chain + i % 1000, 700);
  }
  return volume.Image();
}

// `depth` directories, each in the one before.
Bytes NestedImage(std::size_t depth) {
  VolumeWriter volume(65000);
  std::size_t directory = 0;
  for (std::size_t i = 0; i < depth; ++i) {
    const std::size_t next = volume.Chain(1);
    volume.Slot(directory, "DIRECTOR", 0x10, next, 0);
    directory = next;
  }
  return volume.Image();
}

void CountEntries(benchmark::State& state, std::size_t entries) {
  state.counters["per_entry"] = benchmark::Counter(
      static_cast<double>(entries),
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

std::size_t Argument(const benchmark::State& state) {
  return static_cast<std::size_t>(state.range(0));
}

void Copy(benchmark::State& state) {
  const Bytes& image = Image(Argument(state));
  Bytes held;
  for (auto _ : state) {
    held = image;
    benchmark::DoNotOptimize(held.data());
    benchmark::ClobberMemory();
  }
  CountEntries(state, Argument(state));
}

void Load(benchmark::State& state) {
  const Bytes& image = Image(Argument(state));
  Fat16FsImage browser;
  std::string err;
  for (auto _ : state) {
    if (!browser.LoadFromBytes(image, err)) state.SkipWithError(err.c_str());
  }
  CountEntries(state, Argument(state));
}

// The peak beyond the image's own bytes, of one first load.
void LoadMemory(benchmark::State& state) {
  const Bytes& image = Image(Argument(state));
  double perEntry = 0;
  for (auto _ : state) {
    ::malloc_trim(0);  // else memory freed before would be taken again unseen
    ResetPeakMemory();
    const std::uint64_t before = CurrentMemory();
    Fat16FsImage browser;
    std::string err;
    if (!browser.LoadFromBytes(image, err)) state.SkipWithError(err.c_str());
    perEntry = (static_cast<double>(PeakMemory()) - static_cast<double>(before) -
                static_cast<double>(image.size())) /
               static_cast<double>(Argument(state));
  }
  state.counters["bytes_per_entry"] = perEntry;
}

void LoadHostile(benchmark::State& state, Bytes (*makeImage)(std::size_t)) {
  const Bytes image = makeImage(Argument(state));
  ::malloc_trim(0);
  ResetPeakMemory();
  const std::uint64_t before = CurrentMemory();
  Fat16FsImage browser;
  std::string err;
  for (auto _ : state) {
    if (!browser.LoadFromBytes(image, err)) state.SkipWithError(err.c_str());
  }
  state.counters["bytes_per_entry"] =
      (static_cast<double>(PeakMemory()) - static_cast<double>(before) -
       static_cast<double>(image.size())) /
      static_cast<double>(Argument(state));
  CountEntries(state, Argument(state));
}

std::size_t ListBelow(const Fat16FsImage& browser, const std::string& path) {
  std::vector<Fat16FsEntry> entries;
  std::string err;
  if (!browser.ListDirectory(path, entries, err)) return 0;
  std::size_t count = entries.size();
  for (const Fat16FsEntry& entry : entries) {
    if (entry.isDirectory) count += ListBelow(browser, entry.path);
  }
  return count;
}

void ListEverything(benchmark::State& state) {
  Fat16FsImage browser;
  std::string err;
  if (!browser.LoadFromBytes(Image(Argument(state)), err)) state.SkipWithError(err.c_str());
  for (auto _ : state) {
    if (ListBelow(browser, "/") < Argument(state)) state.SkipWithError("entries are missing");
  }
  CountEntries(state, Argument(state));
}

void SearchFor(benchmark::State& state, const std::string& query) {
  Fat16FsImage browser;
  std::vector<Fat16FsEntry> found;
  std::string err;
  if (!browser.LoadFromBytes(Image(Argument(state)), err)) state.SkipWithError(err.c_str());
  for (auto _ : state) {
    if (!browser.Search(query, found, err)) state.SkipWithError(err.c_str());
  }
  state.counters["found"] = static_cast<double>(found.size());
  CountEntries(state, Argument(state));
}

// A query of 10,000 bytes that matches nowhere, and nearly does at every component of each path.
void SearchForLongText(benchmark::State& state) {
  Fat16FsImage browser;
  std::vector<Fat16FsEntry> found;
  std::string err;
  if (!browser.LoadFromBytes(NestedImage(Argument(state)), err)) state.SkipWithError(err.c_str());
  std::string query;
  while (query.size() < 10000) query += "DIRECTOR/";
  query += '?';
  for (auto _ : state) {
    if (!browser.Search(query, found, err)) state.SkipWithError(err.c_str());
  }
  CountEntries(state, Argument(state));
}

void ReadEveryFile(benchmark::State& state) {
  Fat16FsImage browser;
  std::vector<Fat16FsEntry> files;
  std::string err;
  if (!browser.LoadFromBytes(Image(Argument(state)), err)) state.SkipWithError(err.c_str());
  if (!browser.Search("/F", files, err)) state.SkipWithError(err.c_str());
  Bytes content;
  for (auto _ : state) {
    for (const Fat16FsEntry& file : files) {
      if (!browser.ReadFile(file.path, content, err)) state.SkipWithError(err.c_str());
    }
  }
  CountEntries(state, Argument(state));
}

#define SIZES Arg(1000)->Arg(4000)->Arg(16000)->Arg(60000)->Unit(benchmark::kMicrosecond)
BENCHMARK(LoadMemory)->SIZES->Iterations(1);
BENCHMARK(Copy)->SIZES;
BENCHMARK(Load)->SIZES;
BENCHMARK_CAPTURE(LoadHostile, one_chain, SharedChainImage)
    ->Arg(30000)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(LoadHostile, nested, NestedImage)->Arg(20000)->Unit(benchmark::kMicrosecond);
BENCHMARK(ListEverything)->SIZES;
BENCHMARK_CAPTURE(SearchFor, one, "F000999")->SIZES;
BENCHMARK_CAPTURE(SearchFor, everything, "0")->SIZES;
BENCHMARK(SearchForLongText)->Arg(8000)->Unit(benchmark::kMicrosecond);
BENCHMARK(ReadEveryFile)->SIZES;
#undef SIZES

}  // namespace
}  // namespace quorbix::virtdisk::bench

BENCHMARK_MAIN();

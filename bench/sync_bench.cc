// Times passes of the synchroniser beside their floors, in turn, in one run, on the same disk.
//
//   cmake --preset release && cmake --build --preset release --target sync_bench
//   build/release/bench/sync_bench
//
// Per case, medians in milliseconds: first_ms (nothing is known yet, both sides are alike), idle_ms
// (nothing changed), image_ms (one file changed in the image), host_ms (one file changed on the
// host: a rebuild). The floors: read_ms (reading the host's files), hash_ms (reading and hashing
// them), copy_ms (writing the image's size once). list_ms is the listing alone. The shares of an
// idle pass are list_pct, read_pct (reading beyond the listing) and hash_pct; idle_ratio is idle_ms
// over hash_ms, us_per_file what an idle pass costs per file beyond reading and hashing.

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <quorbix/virtdisk/fat16_fs_image.h>
#include <quorbix/virtdisk/fat_image_builder.h>
#include <quorbix/virtdisk/folder_sync_manager.h>

#include "support.h"
#include "sync/hash_bytes.h"

namespace quorbix::virtdisk::bench {
namespace {

namespace fs = std::filesystem;

constexpr int kRounds = 5;

struct SyncCase {
  const char* name;
  std::size_t fileCount;
  std::uint64_t bytesEach;
  std::size_t filesPerFolder;
  std::uint64_t imageMiB;
};

constexpr SyncCase kCases[] = {
    {"Sync/100MB/100x1MB", 100, 1'000'000, 50, 128},
    {"Sync/1GB/1000x1MB", 1000, 1'000'000, 50, 1200},
    {"Sync/1000x4KiB", 1000, 4096, 100, 32},
    {"Sync/4000x4KiB", 4000, 4096, 100, 64},
    {"Sync/16000x4KiB", 16000, 4096, 100, 256},
};

std::uint64_t ListEverything(const fs::path& folder) {
  std::uint64_t files = 0;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
    if (entry.is_regular_file()) ++files;
  }
  return files;
}

// With the library's own hash, so that what is left over is the work around it.
std::uint64_t ReadAndHashEverything(const fs::path& folder) {
  std::vector<std::uint8_t> buffer(1 << 20);
  std::uint64_t mixed = 0;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
    if (!entry.is_regular_file()) continue;
    const int file = ::open(entry.path().c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) continue;
    std::uint64_t hash = internal::kEmptyHash;
    for (::ssize_t got; (got = ::read(file, buffer.data(), buffer.size())) > 0;) {
      hash = internal::HashBytes({buffer.data(), static_cast<std::size_t>(got)}, hash);
    }
    ::close(file);
    mixed ^= hash;
  }
  return mixed;
}

std::vector<std::uint8_t> ReadFile(const fs::path& path) {
  std::vector<std::uint8_t> bytes(fs::file_size(path));
  std::ifstream in(path, std::ios::binary);
  in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return bytes;
}

void WriteFile(const fs::path& path, const std::vector<std::uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
  if (!out.flush()) throw std::runtime_error("cannot write " + path.string());
}

// A folder and its image, in the middle of a life.
class Disk {
 public:
  explicit Disk(const SyncCase& shape)
      : host(folder.Path() / "host"), image(folder.Path() / "disk.img") {
    folder.AddFiles("host", shape.fileCount, shape.bytesEach, shape.filesPerFolder);
    const auto builder = CreateFat16Builder();
    if (!builder->Build(host, image, shape.imageMiB << 20)) {
      throw std::runtime_error(builder->LastError());
    }
  }

  // A manager that knows nothing yet. The worker sleeps for weeks.
  std::unique_ptr<IFolderSyncManager> NewManager() const {
    auto manager = CreateFolderSyncManager();
    manager->Start(image, host, 0xFFFFFFFF);
    return manager;
  }

  void ChangeInTheImage(std::uint8_t value) const {
    Fat16FsImage disk;
    std::string err;
    std::vector<std::uint8_t> content;
    const bool done =
        disk.LoadFromBytes(ReadFile(image), err) && disk.ReadFile("/D0/F0.BIN", content, err) &&
        (content.assign(content.size(), value), disk.WriteExistingFile("/D0/F0.BIN", content, err));
    if (!done) throw std::runtime_error(err);
    WriteFile(image, disk.ImageBytes());
  }

  void ChangeOnTheHost(std::uint8_t value) const {
    const fs::path file = host / "D0" / "F1.BIN";
    WriteFile(file, std::vector<std::uint8_t>(fs::file_size(file), value));
  }

  std::uint8_t FirstByteInTheImage() const {
    Fat16FsImage disk;
    std::string err;
    std::vector<std::uint8_t> content;
    const bool done = disk.LoadFromBytes(ReadFile(image), err) &&
                      disk.ReadFile("/D0/F1.BIN", content, err) && !content.empty();
    return done ? content[0] : std::uint8_t{0};
  }

  BenchFolder folder;
  fs::path host;
  fs::path image;
};

struct Times {
  std::vector<double> list, read, hash, copy, first, idle, image, host;
};

void TakeFloors(const Disk& disk, Times& times) {
  times.list.push_back(Seconds([&] { benchmark::DoNotOptimize(ListEverything(disk.host)); }));
  times.read.push_back(Seconds([&] { benchmark::DoNotOptimize(ReadEverything(disk.host)); }));
  times.hash.push_back(
      Seconds([&] { benchmark::DoNotOptimize(ReadAndHashEverything(disk.host)); }));
  const fs::path copy = disk.folder.Path() / "copy.img";
  times.copy.push_back(Seconds([&] { WriteOnce(copy, fs::file_size(disk.image)); }));
  fs::remove(copy);
}

// One of each kind of pass; throws when a change did not arrive.
void TakePasses(const Disk& disk, std::uint8_t value, Times& times) {
  const auto manager = disk.NewManager();
  const auto pass = [&] { return Seconds([&] { manager->SyncNow(); }); };
  times.first.push_back(pass());
  times.idle.push_back(pass());
  disk.ChangeInTheImage(value);
  times.image.push_back(pass());
  if (ReadFile(disk.host / "D0" / "F0.BIN").at(0) != value) throw std::runtime_error("no copy");
  disk.ChangeOnTheHost(value);
  times.host.push_back(pass());
  if (disk.FirstByteInTheImage() != value) throw std::runtime_error("no rebuild");
}

void SyncBesideItsFloors(benchmark::State& state, const SyncCase& shape) {
  const Disk disk(shape);
  Times times;
  std::uint8_t value = 0;
  for (auto _ : state) {
    TakeFloors(disk, times);
    TakePasses(disk, ++value, times);
    state.SetIterationTime(times.idle.back());
  }
  const double list = Median(times.list);
  const double read = Median(times.read);
  const double hash = Median(times.hash);
  const double idle = Median(times.idle);
  state.counters["list_ms"] = list * 1000;
  state.counters["read_ms"] = read * 1000;
  state.counters["hash_ms"] = hash * 1000;
  state.counters["copy_ms"] = Median(times.copy) * 1000;
  state.counters["first_ms"] = Median(times.first) * 1000;
  state.counters["idle_ms"] = idle * 1000;
  state.counters["image_ms"] = Median(times.image) * 1000;
  state.counters["host_ms"] = Median(times.host) * 1000;
  state.counters["list_pct"] = 100 * list / idle;
  state.counters["read_pct"] = 100 * (read - list) / idle;
  state.counters["hash_pct"] = 100 * (hash - read) / idle;
  state.counters["idle_ratio"] = idle / hash;
  state.counters["us_per_file"] = (idle - hash) * 1e6 / static_cast<double>(shape.fileCount);
}

}  // namespace
}  // namespace quorbix::virtdisk::bench

int main(int argc, char** argv) {
  using namespace quorbix::virtdisk::bench;
  benchmark::Initialize(&argc, argv);
  for (const SyncCase& shape : kCases) {
    benchmark::RegisterBenchmark(
        shape.name, [&shape](benchmark::State& state) { SyncBesideItsFloors(state, shape); })
        ->Iterations(kRounds)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
  }
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}

// Times builds and passes of the synchroniser beside their floors, in turn, in one run, on the same
// files, which lie on the machine's memory file system unless $VIRTDISK_BENCH_DIR says otherwise.
//
//   cmake --preset release && cmake --build --preset release --target speed_bench
//   build/release/bench/speed_bench
//
// Per row: floor_ms and ms, the least processor time of the whole process in any round, since what
// disturbs a round only adds to it; their ratio beside the one aimed at; median_ratio, that of the
// medians; and peak_MiB, by how much the resident memory grew at its highest. Floor and job take
// turns at being first: memory that was just given back is quicker to get than memory that was not.
//
// Idle: nothing changed since the pass before. First: nothing is known yet and both sides are
// alike. Host: one file changed on the host, so that the image is rebuilt. Image: one file changed
// in the image.
//
// GuardedIdle and GuardedAnew are passes of guarded synchronising beside `find -printf` of the
// folder, by an object that has looked before and by a new one, as a process has that runs one
// pass. The other guarded rows stand beside a plain pass that carries the same change: GuardedHost
// and GuardedImage of one file, GuardedMany of a hundred files each way, and GuardedFirst is the
// first meeting of two sides that are alike.

#include <sys/resource.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <quorbix/virtdisk/fat16_fs_image.h>
#include <quorbix/virtdisk/fat_image_builder.h>
#include <quorbix/virtdisk/folder_sync_manager.h>
#include <quorbix/virtdisk/guarded_folder_sync.h>

#include "floors.h"
#include "support.h"

namespace quorbix::virtdisk::bench {
namespace {

namespace fs = std::filesystem;

constexpr int kRounds = 8;
constexpr double kMiB = 1048576;

struct Workload {
  const char* name;
  std::size_t fileCount;
  std::uint64_t bytesEach;
  std::size_t filesPerFolder;
  std::uint64_t imageMiB;
  std::uint64_t clusterBytes;  // of that image
};

constexpr Workload kSmoke{"50x4KiB", 50, 4096, 25, 4, 512};
constexpr Workload k3000{"3000x40KiB", 3000, 40 * 1024, 100, 256, 16384};
constexpr Workload k8000{"8000x4400B", 8000, 4400, 200, 128, 8192};
constexpr Workload k20000{"20000x2KiB", 20000, 2048, 200, 1280, 65536};
constexpr Workload kBig{"6x150MiB", 6, 150 * 1048576, 6, 1000, 65536};

double InSeconds(const ::timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

// Of this process, and of those that it has started and that have ended.
double ProcessorSeconds() {
  ::timespec now;
  ::rusage children{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  ::getrusage(RUSAGE_CHILDREN, &children);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9 +
         InSeconds(children.ru_utime) + InSeconds(children.ru_stime);
}

double ProcessorSecondsOf(const std::function<void()>& work) {
  const double before = ProcessorSeconds();
  work();
  return ProcessorSeconds() - before;
}

std::vector<std::uint8_t> ReadWhole(const fs::path& path) {
  std::vector<std::uint8_t> bytes(fs::file_size(path));
  std::ifstream in(path, std::ios::binary);
  in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return bytes;
}

void WriteWhole(const fs::path& path, const std::vector<std::uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
  if (!out.flush()) throw std::runtime_error("cannot write " + path.string());
}

// A folder and its image, in the middle of a life.
class Disk {
 public:
  explicit Disk(const Workload& shape)
      : host(folder.Path() / "host"), image(folder.Path() / "disk.img"), workload(shape) {
    folder.AddFiles("host", shape.fileCount, shape.bytesEach, shape.filesPerFolder);
    Build(image);
  }

  std::uint64_t ImageBytes() const { return workload.imageMiB << 20; }
  std::uint64_t FileBytes() const { return workload.fileCount * workload.bytesEach; }

  void Build(const fs::path& output) const {
    const auto builder = CreateFat16Builder();
    if (!builder->Build(host, output, ImageBytes())) throw std::runtime_error(builder->LastError());
  }

  void FloorOfBuild(const fs::path& output) const {
    ReadIntoPlaceAndWrite(host, output, ImageBytes(), workload.clusterBytes);
  }
  void FloorOfScan() const { benchmark::DoNotOptimize(ReadAndHashFolder(host)); }
  void FloorOfImage() const { benchmark::DoNotOptimize(ReadAndHashImage(image, FileBytes())); }
  // Of a pass that makes no image: it looks at the folder at its beginning and at its end.
  void FloorOfPass() const {
    FloorOfScan();
    FloorOfImage();
    FloorOfScan();
  }

  // A manager that knows nothing yet. The worker sleeps for weeks.
  std::unique_ptr<IFolderSyncManager> NewManager() const {
    auto manager = CreateFolderSyncManager();
    manager->Start(image, host, 0xFFFFFFFF);
    return manager;
  }

  void FloorOfStatus() const {
    const std::string line =
        "find '" + host.string() + "' -printf '%p %s %T@ %C@ %i\\n' > /dev/null";
    if (std::system(line.c_str()) != 0) throw std::runtime_error("find failed");
  }

  // Nobody waits for quiet, and no more than one old image is kept.
  std::unique_ptr<IGuardedFolderSync> NewGuarded() const {
    GuardedSyncOptions options;
    options.settle = std::chrono::milliseconds(0);
    options.trashBytes = 0;
    return CreateGuardedFolderSync(image, host, options);
  }

  void ChangeInTheImage(std::uint8_t value) const { ChangeInTheImage({"/D0/F0.BIN"}, value); }
  void ChangeOnTheHost(std::uint8_t value) const { ChangeOnTheHost("D0/F1.BIN", value); }

  // A hundred files each, or all in the first two folders where they are fewer.
  void ChangeManyInTheImage(std::uint8_t value) const {
    std::vector<std::string> paths;
    for (std::size_t i = 0; i < Many(); ++i) paths.push_back("/D0/F" + std::to_string(i) + ".BIN");
    ChangeInTheImage(paths, value);
  }
  void ChangeManyOnTheHost(std::uint8_t value) const {
    for (std::size_t i = 0; i < Many(); ++i) {
      ChangeOnTheHost("D1/F" + std::to_string(Many() + i) + ".BIN", value);
    }
  }

  BenchFolder folder;
  fs::path host;
  fs::path image;
  Workload workload;

 private:
  std::size_t Many() const { return std::min<std::size_t>(100, workload.filesPerFolder); }

  void ChangeInTheImage(const std::vector<std::string>& paths, std::uint8_t value) const {
    Fat16FsImage disk;
    std::string err;
    std::vector<std::uint8_t> content;
    bool done = disk.LoadFromBytes(ReadWhole(image), err);
    for (const std::string& path : paths) {
      done = done && disk.ReadFile(path, content, err) &&
             (content.assign(content.size(), value), disk.WriteExistingFile(path, content, err));
    }
    if (!done) throw std::runtime_error(err);
    WriteWhole(image, disk.ImageBytes());
  }

  void ChangeOnTheHost(const std::string& path, std::uint8_t value) const {
    const fs::path file = host / path;
    WriteWhole(file, std::vector<std::uint8_t>(fs::file_size(file), value));
  }
};

// What is timed in one row: something to do before each round, the floor and the job itself.
struct Row {
  std::function<void(std::uint8_t round)> prepare = [](std::uint8_t) {};
  std::function<void()> floor;
  std::function<void()> job;
};

void Time(benchmark::State& state, const Row& row, double aim) {
  std::vector<double> floors, jobs;
  double peak = 0;
  std::uint8_t round = 0;
  const auto timeFloor = [&] { floors.push_back(ProcessorSecondsOf(row.floor)); };
  for (auto _ : state) {
    row.prepare(++round);
    const bool floorFirst = round % 2 != 0;
    if (floorFirst) timeFloor();
    ResetPeakMemory();
    const double before = static_cast<double>(CurrentMemory());
    jobs.push_back(ProcessorSecondsOf(row.job));
    peak = std::max(peak, static_cast<double>(PeakMemory()) - before);
    if (!floorFirst) timeFloor();
    state.SetIterationTime(jobs.back());
  }
  const double floor = *std::min_element(floors.begin(), floors.end());
  const double job = *std::min_element(jobs.begin(), jobs.end());
  state.counters["floor_ms"] = floor * 1000;
  state.counters["ms"] = job * 1000;
  state.counters["ratio"] = job / floor;
  state.counters["median_ratio"] = Median(jobs) / Median(floors);
  state.counters["aim"] = aim;
  state.counters["peak_MiB"] = peak / kMiB;
}

void Build(benchmark::State& state, const Workload& workload, double aim) {
  const Disk disk(workload);
  const fs::path output = disk.folder.Path() / "out.img";
  Time(state,
       {.prepare = [&](std::uint8_t) { fs::remove(disk.image); },
        .floor =
            [&] {
              disk.FloorOfBuild(output);
              fs::remove(output);
            },
        .job =
            [&] {
              disk.Build(output);
              fs::remove(output);
            }},
       aim);
}

void Idle(benchmark::State& state, const Workload& workload, double aim) {
  const Disk disk(workload);
  const auto manager = disk.NewManager();
  manager->SyncNow();
  Time(state, {.floor = [&] { disk.FloorOfScan(); }, .job = [&] { manager->SyncNow(); }}, aim);
}

void First(benchmark::State& state, const Workload& workload, double aim) {
  const Disk disk(workload);
  std::unique_ptr<IFolderSyncManager> manager;
  Time(state,
       {.prepare = [&](std::uint8_t) { manager = disk.NewManager(); },
        .floor = [&] { disk.FloorOfPass(); },
        .job = [&] { manager->SyncNow(); }},
       aim);
}

// The folder is looked at, both images are read, and one is built.
void Host(benchmark::State& state, const Workload& workload, double aim) {
  const Disk disk(workload);
  const fs::path output = disk.folder.Path() / "out.img";
  const auto manager = disk.NewManager();
  manager->SyncNow();
  Time(state,
       {.prepare =
            [&](std::uint8_t round) {
              fs::remove(output);
              disk.ChangeOnTheHost(round);
            },
        .floor =
            [&] {
              disk.FloorOfScan();
              disk.FloorOfImage();
              disk.FloorOfBuild(output);
              disk.FloorOfImage();
              fs::remove(output);
            },
        .job = [&] { manager->SyncNow(); }},
       aim);
}

void Image(benchmark::State& state, const Workload& workload, double aim) {
  const Disk disk(workload);
  const auto manager = disk.NewManager();
  manager->SyncNow();
  Time(state,
       {.prepare = [&](std::uint8_t round) { disk.ChangeInTheImage(round); },
        .floor = [&] { disk.FloorOfPass(); },
        .job = [&] { manager->SyncNow(); }},
       aim);
}

void PassOrThrow(IGuardedFolderSync& sync, GuardedOutcome expected = GuardedOutcome::kNothingToDo) {
  const GuardedReport report = sync.Pass();
  if (report.outcome == expected) return;
  throw std::runtime_error("a pass came to something else: " + report.message);
}

void GuardedIdle(benchmark::State& state, const Workload& workload, double aim) {
  const Disk disk(workload);
  const auto sync = disk.NewGuarded();
  // The times of what was written just now tell too little.
  std::this_thread::sleep_for(std::chrono::milliseconds(2500));
  PassOrThrow(*sync);
  Time(state, {.floor = [&] { disk.FloorOfStatus(); }, .job = [&] { PassOrThrow(*sync); }}, aim);
}

void GuardedAnew(benchmark::State& state, const Workload& workload, double aim) {
  const Disk disk(workload);
  PassOrThrow(*disk.NewGuarded());
  std::this_thread::sleep_for(std::chrono::milliseconds(2500));
  PassOrThrow(*disk.NewGuarded());
  PassOrThrow(*disk.NewGuarded());
  Time(state,
       {.floor = [&] { disk.FloorOfStatus(); }, .job = [&] { PassOrThrow(*disk.NewGuarded()); }},
       aim);
}

// The same change on two disks: of one with a plain pass, of the other with a guarded one.
void BesidePlain(benchmark::State& state, const Workload& workload, double aim,
                 const std::function<void(const Disk&, std::uint8_t round)>& change) {
  const Disk plain(workload);
  const Disk guarded(workload);
  const auto manager = plain.NewManager();
  manager->SyncNow();
  const auto sync = guarded.NewGuarded();
  std::this_thread::sleep_for(std::chrono::milliseconds(2500));
  PassOrThrow(*sync);
  Time(state,
       {.prepare =
            [&](std::uint8_t round) {
              change(plain, round);
              change(guarded, round);
            },
        .floor = [&] { manager->SyncNow(); },
        .job = [&] { PassOrThrow(*sync, GuardedOutcome::kDone); }},
       aim);
}

void GuardedHost(benchmark::State& state, const Workload& workload, double aim) {
  BesidePlain(state, workload, aim,
              [](const Disk& disk, std::uint8_t round) { disk.ChangeOnTheHost(round); });
}

void GuardedImage(benchmark::State& state, const Workload& workload, double aim) {
  BesidePlain(state, workload, aim,
              [](const Disk& disk, std::uint8_t round) { disk.ChangeInTheImage(round); });
}

void GuardedMany(benchmark::State& state, const Workload& workload, double aim) {
  BesidePlain(state, workload, aim, [](const Disk& disk, std::uint8_t round) {
    disk.ChangeManyInTheImage(round);
    disk.ChangeManyOnTheHost(round);
  });
}

void GuardedFirst(benchmark::State& state, const Workload& workload, double aim) {
  const Disk disk(workload);
  std::unique_ptr<IFolderSyncManager> manager;
  Time(state,
       {.prepare =
            [&](std::uint8_t) {
              fs::remove_all(DefaultStateFolder(disk.image));
              manager = disk.NewManager();
            },
        .floor = [&] { manager->SyncNow(); },
        .job = [&] { PassOrThrow(*disk.NewGuarded()); }},
       aim);
}

using Job = void (*)(benchmark::State&, const Workload&, double);

struct TableRow {
  const char* name;
  Job job;
  const Workload& workload;
  double aim;  // ratio
};

constexpr TableRow kTable[] = {
    {"Idle", Idle, k3000, 1.15},
    {"Idle", Idle, k8000, 1.3},
    {"Idle", Idle, k20000, 1.3},
    {"Idle", Idle, kBig, 1.15},
    {"First", First, k3000, 1.2},
    {"First", First, kBig, 1.15},
    {"First", First, k20000, 1.15},
    {"Host", Host, k3000, 1.2},
    {"Host", Host, kBig, 1.2},
    {"Image", Image, k3000, 1.2},
    {"Build", Build, k3000, 1.1},
    {"Build", Build, k20000, 0.9},
    {"Build", Build, kBig, 1.1},
    {"GuardedIdle", GuardedIdle, k20000, 1.3},
    {"GuardedAnew", GuardedAnew, k20000, 1.3},
    {"GuardedHost", GuardedHost, k3000, 1.2},
    {"GuardedImage", GuardedImage, k3000, 1.2},
    {"GuardedMany", GuardedMany, k3000, 1.2},
    {"GuardedFirst", GuardedFirst, k3000, 1.2},
};

constexpr TableRow kSmokeTable[] = {
    {"Idle", Idle, kSmoke, 1.3},
    {"First", First, kSmoke, 1.2},
    {"Host", Host, kSmoke, 1.2},
    {"Image", Image, kSmoke, 1.2},
    {"Build", Build, kSmoke, 1.1},
    {"GuardedIdle", GuardedIdle, kSmoke, 1.3},
    {"GuardedAnew", GuardedAnew, kSmoke, 1.3},
    {"GuardedHost", GuardedHost, kSmoke, 1.2},
    {"GuardedImage", GuardedImage, kSmoke, 1.2},
    {"GuardedMany", GuardedMany, kSmoke, 1.2},
    {"GuardedFirst", GuardedFirst, kSmoke, 1.2},
};

template <std::size_t kCount>
void Register(const TableRow (&rows)[kCount]) {
  for (const TableRow& row : rows) {
    benchmark::RegisterBenchmark(
        (std::string(row.name) + "/" + row.workload.name).c_str(),
        [&row](benchmark::State& state) { row.job(state, row.workload, row.aim); })
        ->Iterations(kRounds)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
  }
}

}  // namespace
}  // namespace quorbix::virtdisk::bench

int main(int argc, char** argv) {
  using namespace quorbix::virtdisk::bench;
  Register(kTable);
  Register(kSmokeTable);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}

// The program's commands that read images, and put, beside those of mtools on the same images, in
// turn.
//
//   program_bench VIRTDISK [ROUNDS]
//
// Prints, for each case, the median of both in milliseconds, how they compare, and the peak memory
// of both.

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "support.h"

namespace quorbix::virtdisk::bench {
namespace {

namespace fs = std::filesystem;

using Command = std::vector<std::string>;

const std::string kFirstFile = "/D0/F0.BIN";  // of those that BenchFolder makes

struct Run {
  double milliseconds = 0;
  double peakMiB = 0;
};

// Runs a command, which has to succeed, with its output thrown away.
Run TimeCommand(const Command& command) {
  std::vector<char*> arguments;
  for (const std::string& argument : command) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);
  const auto begin = std::chrono::steady_clock::now();
  const ::pid_t child = ::fork();
  if (child == 0) {
    const int nowhere = ::open("/dev/null", O_WRONLY);
    ::dup2(nowhere, STDOUT_FILENO);
    ::dup2(nowhere, STDERR_FILENO);
    ::execvp(arguments[0], arguments.data());
    ::_exit(127);
  }
  int status = 0;
  struct ::rusage usage {};
  ::wait4(child, &status, 0, &usage);
  const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - begin;
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    std::fprintf(stderr, "failed: %s %s\n", command[0].c_str(), command[1].c_str());
    std::exit(1);
  }
  return {taken.count(), static_cast<double>(usage.ru_maxrss) / 1024};
}

class Series {
 public:
  void Add(const Run& run) {
    times.push_back(run.milliseconds);
    peakMiB = std::max(peakMiB, run.peakMiB);
  }
  double Milliseconds() const { return Median(times); }
  double PeakMiB() const { return peakMiB; }

 private:
  std::vector<double> times;
  double peakMiB = 0;
};

class Bench {
 public:
  Bench(std::string program, int howOften) : virtdisk(std::move(program)), rounds(howOften) {}

  // An image of `mebibytes` from `files` files of `bytes` bytes each.
  fs::path MakeImage(const std::string& name, std::size_t files, std::uint64_t bytes,
                     unsigned mebibytes) {
    folder.AddFiles(name, files, bytes, 400);
    const fs::path image = folder.Path() / (name + ".img");
    TimeCommand({virtdisk, "build", (folder.Path() / name).string(), image.string(), "--size",
                 std::to_string(mebibytes) + "M"});
    fs::remove_all(folder.Path() / name);
    return image;
  }

  void List(const std::string& what, const fs::path& image) {
    Compare(what, {virtdisk, "ls", "-R", image.string()},
            {"mdir", "-/", "-i", image.string() + "@@512", "::"});
    Compare(what + " (names alone)", {virtdisk, "ls", "-R", image.string()},
            {"mdir", "-/", "-b", "-i", image.string() + "@@512", "::"});
  }

  void Print(const std::string& what, const fs::path& image) {
    Compare(what, {virtdisk, "cat", image.string(), kFirstFile},
            {"mtype", "-i", image.string() + "@@512", "::" + kFirstFile});
  }

  void Extract(const std::string& what, const fs::path& image) {
    const std::string dest = Destination().string();
    Compare(what, {virtdisk, "get", image.string(), "/", dest},
            {"mcopy", "-s", "-n", "-i", image.string() + "@@512", "::", dest});
  }

  // Into the first file of an image; the new content is as large as the old.
  void Put(const std::string& what, const fs::path& image, std::uint64_t bytes,
           const std::string& option) {
    folder.AddFiles("new", 1, bytes, 1);
    const std::string source = folder.Path().string() + "/new" + kFirstFile;
    Compare(what, {virtdisk, "put", image.string(), kFirstFile, source, option},
            {"mcopy", "-o", "-i", image.string() + "@@512", source, "::" + kFirstFile});
  }

  void Alone(const std::string& what, const Command& command) {
    Series series;
    for (int round = 0; round < rounds; ++round) series.Add(TimeCommand(command));
    std::printf("| %-40s | %8.1f ms %6.0f MiB | %21s | %5s |\n", what.c_str(),
                series.Milliseconds(), series.PeakMiB(), "", "");
  }

  const std::string& Program() const { return virtdisk; }

 private:
  fs::path Destination() const { return folder.Path() / "dest"; }

  Run TimeAlone(const Command& command) {
    fs::remove_all(Destination());
    fs::create_directory(Destination());
    return TimeCommand(command);
  }

  void Compare(const std::string& what, const Command& own, const Command& peer) {
    Series ownSeries;
    Series peerSeries;
    TimeAlone(own);  // the image is in the page cache then
    for (int round = 0; round < rounds; ++round) {
      ownSeries.Add(TimeAlone(own));
      peerSeries.Add(TimeAlone(peer));
    }
    std::printf("| %-40s | %8.1f ms %6.0f MiB | %8.1f ms %6.0f MiB | %5.2f |\n", what.c_str(),
                ownSeries.Milliseconds(), ownSeries.PeakMiB(), peerSeries.Milliseconds(),
                peerSeries.PeakMiB(), ownSeries.Milliseconds() / peerSeries.Milliseconds());
    std::fflush(stdout);
  }

  BenchFolder folder;
  std::string virtdisk;
  int rounds;
};

void RunCases(Bench& bench) {
  std::printf("| %-40s | %-22s | %-22s | ratio |\n|---|---|---|---|\n", "case", "virtdisk",
              "mtools");
  const fs::path large = bench.MakeImage("large", 20, 4096, 2047);
  bench.List("ls -R, 20 files, 2,047 MiB", large);
  for (const char* command : {"info", "tree", "map", "verify"}) {
    bench.Alone(std::string(command) + ", the same", {bench.Program(), command, large.string()});
  }
  bench.Alone("find, the same", {bench.Program(), "find", large.string(), "F1"});
  bench.Print("cat of 4 KiB, the same", large);
  bench.Put("put of 4 KiB, the same", large, 4096, "--quiet");
  bench.Put("put --in-place of 4 KiB, the same", large, 4096, "--in-place");
  fs::remove(large);
  const fs::path medium = bench.MakeImage("medium", 3000, 40960, 512);
  bench.List("ls -R, 3,000 files, 512 MiB", medium);
  bench.Extract("get, 3,000 files of 40 KiB, 512 MiB", medium);
  bench.Put("put of 40 KiB, the same", medium, 40960, "--quiet");
  bench.Put("put --in-place of 40 KiB, the same", medium, 40960, "--in-place");
  fs::remove(medium);
  const fs::path many = bench.MakeImage("many", 20000, 1024, 1280);
  bench.List("ls -R, 20,000 files, 1,280 MiB", many);
  bench.Extract("get, 20,000 files of 1 KiB, 1,280 MiB", many);
}

}  // namespace
}  // namespace quorbix::virtdisk::bench

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: program_bench VIRTDISK [ROUNDS]\n");
    return 2;
  }
  // The images' FATs may be shorter than mtools likes.
  ::setenv("MTOOLS_SKIP_CHECK", "1", 1);
  quorbix::virtdisk::bench::Bench bench(argv[1], argc > 2 ? std::atoi(argv[2]) : 9);
  quorbix::virtdisk::bench::RunCases(bench);
  return 0;
}

// A signal at any call of the system that changes something ends a command at once, a disk that is
// full from that call on makes it fail, and both leave whole files, old or new, and nothing else.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

#include "host/stop_signals.h"
#include "support/child_process.h"
#include "support/guest_editor.h"
#include "support/memory_folder.h"
#include "support/next_function.h"
#include "support/opening.h"
#include "support/temp_folder.h"
#include "tools/program_run.h"

namespace {

using quorbix::virtdisk::test::NextOf;

int callsBeforeTheEnd = -1;  // negative: nothing happens
bool isDiskFull = false;     // from the end on; otherwise a signal comes
int comingSignal = SIGTERM;

// Whether this call fails.
bool IsRefused() {
  if (callsBeforeTheEnd < 0) return false;
  if (callsBeforeTheEnd > 0) {
    --callsBeforeTheEnd;
    return false;
  }
  if (isDiskFull) {
    errno = ENOSPC;
    return true;
  }
  callsBeforeTheEnd = -1;
  ::raise(comingSignal);
  return false;
}

}  // namespace

int quorbix::virtdisk::test::InPlaceOf(const Opening& opening) {
  const bool isMade = (opening.flags & O_CREAT) != 0;
  return isMade && IsRefused() ? -1 : opening.Next();
}

// These stand in front of the C library's functions for the whole program.

extern "C" int mkostemp(char* path, int flags) {
  if (IsRefused()) return -1;
  return NextOf<int(char*, int)>("mkostemp")(path, flags);
}

extern "C" ssize_t write(int file, const void* bytes, size_t size) {
  if (file > STDERR_FILENO && IsRefused()) return -1;
  return NextOf<ssize_t(int, const void*, size_t)>("write")(file, bytes, size);
}

extern "C" ssize_t pwrite(int file, const void* bytes, size_t size, off_t offset) {
  if (IsRefused()) return -1;
  return NextOf<ssize_t(int, const void*, size_t, off_t)>("pwrite")(file, bytes, size, offset);
}

extern "C" ssize_t copy_file_range(int from, off_t* fromOffset, int to, off_t* toOffset,
                                   size_t size, unsigned flags) {
  if (IsRefused()) return -1;
  using Function = ssize_t(int, off_t*, int, off_t*, size_t, unsigned);
  return NextOf<Function>("copy_file_range")(from, fromOffset, to, toOffset, size, flags);
}

extern "C" int ftruncate(int file, off_t size) noexcept {
  if (IsRefused()) return -1;
  return NextOf<int(int, off_t)>("ftruncate")(file, size);
}

extern "C" int fsync(int file) {
  if (IsRefused()) return -1;
  return NextOf<int(int)>("fsync")(file);
}

extern "C" int fdatasync(int file) {
  if (IsRefused()) return -1;
  return NextOf<int(int)>("fdatasync")(file);
}

extern "C" int rename(const char* from, const char* to) noexcept {
  if (IsRefused()) return -1;
  return NextOf<int(const char*, const char*)>("rename")(from, to);
}

extern "C" int mkdir(const char* path, mode_t mode) noexcept {
  if (IsRefused()) return -1;
  return NextOf<int(const char*, mode_t)>("mkdir")(path, mode);
}

namespace quorbix::virtdisk::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;
using Files = std::map<std::string, std::string>;

class InterruptedCommand : public ::testing::Test {
 protected:
  InterruptedCommand() {
    fs::create_directories(Path("DISK/SUB"));
    WriteWholeFile(Path("DISK/A.TXT"), "a");
    WriteWholeFile(Path("DISK/SUB/LARGE.BIN"), std::string(3'000'000, 'x'));
    WriteWholeFile(Path("DISK/SUB/B.TXT"), std::string(700, 'b'));
    EXPECT_EQ(RunVirtdisk({"build", Path("DISK"), Path("old.img")}).status, 0);
  }

  std::string Path(const std::string& name) const { return folder.Path() / name; }

  // What lies in the folder, by path.
  Files Found() const {
    Files files;
    for (const auto& entry : fs::recursive_directory_iterator(folder.Path())) {
      const std::string path = fs::relative(entry.path(), folder.Path());
      files[path] = entry.is_regular_file() ? ReadWholeFile(entry.path()) : "/";
    }
    return files;
  }

  // Runs the command with a signal, or a disk that gets full, at each of its calls in turn, until
  // none is left for it. `begin` comes before each run, `check` after those that ended so.
  int EndAtEveryCall(const std::vector<std::string>& command, const std::function<void()>& begin,
                     const std::function<void()>& check) {
    return EndAtEveryCall({false, true}, command, begin, check);
  }

  // Signals alone.
  int SignalAtEveryCall(const std::vector<std::string>& command, const std::function<void()>& begin,
                        const std::function<void()>& check) {
    return EndAtEveryCall({false}, command, begin, check);
  }

  // What the run that ended so said on the error output, also by its handler of signals.
  std::string Told() const { return ReadWholeFile(told / "err"); }

  const MemoryFolder folder = MemoryFolder::OrOnDisk();

 private:
  static constexpr int kSilent = 99;
  static constexpr std::array<int, 3> kSignals{SIGTERM, SIGINT, SIGHUP};

  const TempFolder told;

  int EndAtEveryCall(std::initializer_list<bool> ways, const std::vector<std::string>& command,
                     const std::function<void()>& begin, const std::function<void()>& check) {
    for (int calls = 0;; ++calls) {
      SCOPED_TRACE("at call " + std::to_string(calls));
      int ended = 0;
      for (const bool isFull : ways) {
        SCOPED_TRACE(isFull ? "full disk" : "signal");
        begin();
        const int status = RunInChild({}, [&] {
          comingSignal = kSignals[static_cast<std::size_t>(calls) % kSignals.size()];
          ::signal(comingSignal, SIG_DFL);  // which whoever runs the tests may ignore
          tool::EndOnSignals();
          isDiskFull = isFull;
          callsBeforeTheEnd = calls;
          if (std::freopen((told / "err").c_str(), "w", stderr) == nullptr) return kSilent;
          const ProgramRun run = RunVirtdisk(command);
          std::fputs(run.err.c_str(), stderr);
          std::fflush(stderr);
          return run.status == 1 && run.err.empty() ? kSilent : run.status;
        });
        if (status == 0) continue;
        ++ended;
        const int came = kSignals[static_cast<std::size_t>(calls) % kSignals.size()];
        EXPECT_EQ(status, isFull ? 1 : 128 + came);
        check();
      }
      if (ended == 0 || HasFailure()) return calls;
    }
  }
};

TEST_F(InterruptedCommand, Get_LeavesWholeFilesAlone) {
  const Files before = Found();
  const int calls = EndAtEveryCall(
      {"get", Path("old.img"), "/", Path("GOT")}, [&] { fs::remove_all(Path("GOT")); },
      [&] {
        for (const auto& [path, content] : Found()) {
          const std::string source = path.starts_with("GOT/") ? "DISK" + path.substr(3) : path;
          if (path == "GOT") continue;
          ASSERT_TRUE(before.contains(source)) << path;
          EXPECT_TRUE(before.at(source) == content) << path;
        }
      });
  EXPECT_GE(calls, 10);
  EXPECT_EQ(ReadWholeFile(Path("GOT/SUB/LARGE.BIN")), std::string(3'000'000, 'x'));
}

TEST_F(InterruptedCommand, Put_LeavesTheOldImageOrTheNewOne) {
  WriteWholeFile(Path("new"), std::string(2'000'000, 'n'));
  const auto begin = [&] {
    fs::copy_file(Path("old.img"), Path("disk.img"), fs::copy_options::overwrite_existing);
  };
  begin();
  const Files before = Found();
  const int calls =
      EndAtEveryCall({"put", Path("disk.img"), "/SUB/LARGE.BIN", Path("new")}, begin, [&] {
        const Files after = Found();
        EXPECT_EQ(after.size(), before.size());
        const bool isOld = after.at("disk.img") == before.at("disk.img");
        const Files inside = GuestEditor(Path("disk.img")).Files();
        EXPECT_TRUE(isOld || inside.at("SUB/LARGE.BIN") == std::string(2'000'000, 'n'));
        EXPECT_TRUE(inside.at("SUB/B.TXT") == std::string(700, 'b'));
      });
  EXPECT_GE(calls, 4);
}

// What it writes is more than is written at once.
TEST_F(InterruptedCommand, PutInPlace_LeavesTheOldContentOrTheNewOne) {
  const std::string content(3'000'000, 'n');
  WriteWholeFile(Path("new"), content);
  const Files before = Found();
  const std::vector<std::string> command{"put", Path("old.img"), "/SUB/LARGE.BIN", Path("new"),
                                         "--in-place"};
  const auto begin = [&] { WriteWholeFile(Path("old.img"), before.at("old.img")); };
  int isOld = 0;
  int isNew = 0;
  const int calls = SignalAtEveryCall(command, begin, [&] {
    Files inside = GuestEditor(Path("old.img")).Files();
    isOld += inside.at("SUB/LARGE.BIN") == std::string(3'000'000, 'x') ? 1 : 0;
    isNew += inside.at("SUB/LARGE.BIN") == content ? 1 : 0;
    EXPECT_EQ(RunVirtdisk({"verify", Path("old.img")}).status, 0);
    EXPECT_EQ(Found().size(), before.size());
  });
  EXPECT_GE(calls, 5);
  EXPECT_EQ(isOld + isNew, calls);
  EXPECT_GE(isNew, 4);  // every piece and the size
}

TEST_F(InterruptedCommand, PutWithoutRoomForACopy_TellsOfTheOtherWay) {
  WriteWholeFile(Path("new"), "new");
  const int status = RunInChild({}, [&] {
    isDiskFull = true;
    callsBeforeTheEnd = 1;
    const ProgramRun run = RunVirtdisk({"put", Path("old.img"), "A.TXT", Path("new")});
    return run.err.find("--in-place needs no room for a copy.") != std::string::npos ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(InterruptedCommand, BuildWithoutRoomBeside_TellsOfTheOtherWay) {
  const auto isTold = [&](const std::string& size) {
    return RunInChild({}, [&] {
      isDiskFull = true;
      callsBeforeTheEnd = 0;
      const ProgramRun run = RunVirtdisk({"build", Path("DISK"), Path("old.img"), "--size", size});
      if (run.err.find("Nothing was written to ") == std::string::npos) return 9;
      return run.err.find("--in-place needs no room for a copy.") != std::string::npos ? 1 : 0;
    });
  };
  fs::resize_file(Path("old.img"), std::uintmax_t{10} << 20);
  EXPECT_EQ(isTold("10M"), 1);
  EXPECT_EQ(isTold("11M"), 0);
}

TEST_F(InterruptedCommand, Build_LeavesTheOldImageOrTheNewOne) {
  const auto begin = [&] {
    fs::copy_file(Path("old.img"), Path("disk.img"), fs::copy_options::overwrite_existing);
  };
  begin();
  WriteWholeFile(Path("DISK/A.TXT"), "new");
  const Files before = Found();
  const int calls = EndAtEveryCall({"build", Path("DISK"), Path("disk.img")}, begin, [&] {
    const Files after = Found();
    EXPECT_EQ(after.size(), before.size());
    const bool isOld = after.at("disk.img") == before.at("disk.img");
    const Files inside = GuestEditor(Path("disk.img")).Files();
    EXPECT_EQ(inside.at("A.TXT"), isOld ? "a" : "new");
    EXPECT_TRUE(inside.at("SUB/LARGE.BIN") == std::string(3'000'000, 'x'));
    EXPECT_THAT(Told(), Not(HasSubstr("half")));
  });
  EXPECT_GE(calls, 4);
}

// The image is more than is written at once.
TEST_F(InterruptedCommand, BuildInPlace_TellsThatTheImageMayBeHalfWritten) {
  WriteWholeFile(Path("DISK/A.TXT"), "new");
  const Files before = Found();
  const std::string old = before.at("old.img") + std::string(9'000'000, 'o');
  int mixtures = 0;
  const int calls = EndAtEveryCall(
      {"build", Path("DISK"), Path("old.img"), "--in-place", "--size", "10M"},
      [&] { WriteWholeFile(Path("old.img"), old); },
      [&] {
        const std::string now = ReadWholeFile(Path("old.img"));
        mixtures += now != old && now.ends_with("ooo") ? 1 : 0;
        EXPECT_THAT(Told(), HasSubstr(" may be half old and half new; build it again"));
        EXPECT_EQ(Found().size(), before.size());
      });
  EXPECT_GE(calls, 4);  // two pieces, the length, the flush
  EXPECT_GE(mixtures, 2);
}

TEST_F(InterruptedCommand, Map_LeavesTheOldPictureOrTheNewOne) {
  const auto begin = [&] { WriteWholeFile(Path("disk.svg"), "old"); };
  begin();
  const Files before = Found();
  const int calls =
      EndAtEveryCall({"map", Path("old.img"), "-o", Path("disk.svg"), "--force"}, begin, [&] {
        const Files after = Found();
        EXPECT_EQ(after.size(), before.size());
        EXPECT_TRUE(after.at("disk.svg") == "old" || after.at("disk.svg").ends_with("</svg>\n"));
      });
  EXPECT_GE(calls, 2);
}

TEST_F(InterruptedCommand, Restore_LeavesTheWholeFileOrNothing) {
  const std::string trash = Path("old.img.sync/trash/2026-11-21_17.20.05/");
  fs::create_directories(trash);
  WriteWholeFile(trash + "manifest", "item 1 folder deleted LARGE.BIN\n");
  WriteWholeFile(trash + "1", std::string(1'000'000, 'x'));
  const Files before = Found();
  const int calls = EndAtEveryCall(
      {"restore", Path("old.img"), "2026-11-21_17.20.05/1", "--to", Path("BACK.BIN")},
      [&] { fs::remove(Path("BACK.BIN")); },
      [&] {
        Files after = Found();
        if (after.erase("BACK.BIN") != 0) {
          EXPECT_EQ(ReadWholeFile(Path("BACK.BIN")), std::string(1'000'000, 'x'));
        }
        EXPECT_TRUE(after == before);
      });
  EXPECT_GE(calls, 6);
  EXPECT_EQ(ReadWholeFile(Path("BACK.BIN")), std::string(1'000'000, 'x'));
}

}  // namespace
}  // namespace quorbix::virtdisk::test

// A pass that is killed at each of its steps leaves every host file whole, and the next pass ends
// what it began. The killing waits for the pass, not for time: the process ends itself at a given
// call of the system.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "support/child_process.h"
#include "support/next_function.h"
#include "support/opening.h"
#include "sync/sync_pass.h"
#include "sync/synced_disk.h"

namespace {

using quorbix::virtdisk::test::NextOf;

int callsBeforeTheEnd = -1;  // negative: the process lives on

bool IsTheLast() { return callsBeforeTheEnd >= 0 && callsBeforeTheEnd-- == 0; }

void EndIfLast() {
  if (IsTheLast()) ::raise(SIGKILL);
}

}  // namespace

int quorbix::virtdisk::test::InPlaceOf(const Opening& opening) {
  if ((opening.flags & O_CREAT) != 0) EndIfLast();
  return opening.Next();
}

// These stand in front of the C library's functions for the whole program, the C++ library
// included. The process ends before the call, or half way through a write.

extern "C" ssize_t write(int file, const void* bytes, size_t size) {
  static const auto next = NextOf<ssize_t(int, const void*, size_t)>("write");
  if (IsTheLast()) {
    next(file, bytes, size / 2);
    ::raise(SIGKILL);
  }
  EndIfLast();
  return next(file, bytes, size);
}

extern "C" int fchmod(int file, mode_t mode) noexcept {
  EndIfLast();
  return NextOf<int(int, mode_t)>("fchmod")(file, mode);
}

extern "C" int rename(const char* from, const char* to) noexcept {
  EndIfLast();
  return NextOf<int(const char*, const char*)>("rename")(from, to);
}

namespace quorbix::virtdisk::internal {
namespace {

namespace fs = std::filesystem;

constexpr int kFiles = 6;
constexpr std::size_t kFileBytes = 20'000;
constexpr int kNeverKilled = 100'000;

class KilledPass : public SyncedDisk {
 protected:
  static std::string Name(int i) { return "F" + std::to_string(i) + ".BIN"; }

  void FillHost(char content) {
    for (int i = 0; i < kFiles; ++i) {
      folder.File("host/" + Name(i), std::string(kFileBytes, content));
    }
  }

  // Whether the pass ended before the call at which it was to be killed.
  bool PassToTheEnd(int calls) {
    const int status = test::RunInChild({}, [&] {
      callsBeforeTheEnd = calls;
      RunSyncPass(Image(), Host(), state);
      return 0;
    });
    EXPECT_TRUE(status == 0 || status == 256 + SIGKILL) << status;
    return status == 0;
  }

  // How many files are new; every one must be whole, be it the old one or the new.
  int CountNew() const {
    int count = 0;
    for (int i = 0; i < kFiles; ++i) {
      const std::string content = folder.Read("host/" + Name(i));
      const bool isNew = content == std::string(kFileBytes, 'n');
      EXPECT_TRUE(isNew || content == std::string(kFileBytes, 'o')) << Name(i);
      if (isNew) ++count;
    }
    return count;
  }
};

// The image's version of every file wins, so that the pass writes them all.
TEST_F(KilledPass, AtAnyCall_LeavesEveryHostFileWholeAndIsEndedByTheNext) {
  FillHost('n');
  BuildImage(1 << 20);
  int killedHalfWay = 0;
  int calls = 0;
  for (bool ended = false; !ended; ++calls) {
    SCOPED_TRACE("killed at call " + std::to_string(calls));
    ASSERT_LT(calls, kNeverKilled);
    FillHost('o');
    ended = PassToTheEnd(calls);
    const int written = CountNew();
    if (written > 0 && written < kFiles) ++killedHalfWay;
    ASSERT_TRUE(PassToTheEnd(kNeverKilled));
    ASSERT_EQ(CountNew(), kFiles);
  }
  // Opening, half a write, a write, permissions and a rename for each file.
  EXPECT_GE(calls, 5 * kFiles);
  EXPECT_GE(killedHalfWay, kFiles);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal

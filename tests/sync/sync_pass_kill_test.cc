#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <random>
#include <thread>

#include "sync/sync_pass.h"
#include "sync/synced_disk.h"

namespace quorbix::virtdisk::internal {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int kFiles = 40;
constexpr std::size_t kFileBytes = 20'000;
constexpr int kKills = 50;

class KilledPass : public SyncedDisk {
 protected:
  static std::string Name(int i) { return "F" + std::to_string(i) + ".BIN"; }

  void FillHost(char content) {
    for (int i = 0; i < kFiles; ++i) {
      folder.File("host/" + Name(i), std::string(kFileBytes, content));
    }
  }

  // Forks a child that runs a pass as soon as it may. Returns when the child is ready for it.
  ::pid_t StartChild() {
    int ready[2];
    if (::pipe(ready) != 0) return -1;
    const ::pid_t child = ::fork();
    if (child == 0) {
      ::close(ready[0]);
      static_cast<void>(!::write(ready[1], "r", 1));
      RunSyncPass(Image(), Host(), state);
      ::_exit(0);
    }
    ::close(ready[1]);
    char byte = 0;
    static_cast<void>(!::read(ready[0], &byte, 1));
    ::close(ready[0]);
    return child;
  }

  // Whether the file is whole, be it the old one or the new.
  void ExpectOldOrNew() const {
    for (int i = 0; i < kFiles; ++i) {
      const std::string content = folder.Read("host/" + Name(i));
      EXPECT_TRUE(content == std::string(kFileBytes, 'o') ||
                  content == std::string(kFileBytes, 'n'))
          << Name(i) << " has " << content.size() << " bytes";
    }
  }

  std::size_t CountNew() const {
    std::size_t count = 0;
    for (int i = 0; i < kFiles; ++i) {
      if (folder.Read("host/" + Name(i)).starts_with('n')) ++count;
    }
    return count;
  }
};

// The image's version of every file wins, so that the pass writes them all.
TEST_F(KilledPass, EveryHostFile_IsWhole) {
  FillHost('n');
  BuildImage(2 << 20);
  FillHost('o');
  const auto begin = Clock::now();
  const ::pid_t whole = StartChild();
  ASSERT_EQ(::waitpid(whole, nullptr, 0), whole);
  const auto duration = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin);
  ASSERT_EQ(CountNew(), static_cast<std::size_t>(kFiles));
  std::mt19937 random(20240517);
  std::uniform_int_distribution<std::int64_t> moment(0, duration.count());
  int killedHalfway = 0;
  for (int i = 0; i < kKills; ++i) {
    FillHost('o');
    const ::pid_t child = StartChild();
    std::this_thread::sleep_for(std::chrono::microseconds(moment(random)));
    ::kill(child, SIGKILL);
    ASSERT_EQ(::waitpid(child, nullptr, 0), child);
    ExpectOldOrNew();
    const std::size_t written = CountNew();
    if (written > 0 && written < kFiles) ++killedHalfway;
  }
  RecordProperty("killedHalfway", killedHalfway);
  // Were every kill too early or too late, the test would show nothing.
  EXPECT_GT(killedHalfway, 0);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal

// Locks that cannot be had, and what the system tells of those of others.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>

#include "guard/folder_lock.h"
#include "guard/refusals.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

namespace fs = std::filesystem;
using namespace test;
using testing::HasSubstr;
using testing::IsEmpty;
using enum GuardedOutcome;

// As on network file systems.
TEST_F(RefusedCall, FolderThatCannotBeLocked_IsKeptInStepAllTheSame) {
  folder.File("host/a.txt", "a");
  BuildImage();
  for (const int error : {ENOLCK, EOPNOTSUPP, EINVAL, EBADF}) {
    answer = [&](std::string_view call, const std::string& path) {
      return call == "flock" && path == Host() ? error : 0;
    };
    EXPECT_EQ(Sync()->Pass().outcome, kNothingToDo) << error;
  }
}

// What the system tells of locks, with the folder's device and inode in place of "THIS".
class HolderOfAFolder : public RefusedCall {
 protected:
  HolderOfAFolder() {
    folder.Folder("host");
    EXPECT_TRUE(first.Take(Host(), ignored)) << ignored;
  }

  std::string HolderTold(std::string locks) {
    struct ::stat status;
    EXPECT_EQ(::stat(Host().c_str(), &status), 0);
    std::array<char, 64> place{};
    std::snprintf(place.data(), place.size(), "%02x:%02x:%ju", major(status.st_dev),
                  minor(status.st_dev), static_cast<std::uintmax_t>(status.st_ino));
    for (std::size_t at; (at = locks.find("THIS")) != std::string::npos;) {
      locks.replace(at, 4, place.data());
    }
    folder.File("locks", locks);
    locksOfTheSystem = folder / "locks";
    FolderLock second;
    std::string err;
    EXPECT_FALSE(second.Take(Host(), err));
    const std::size_t end = err.find(" keeps the folder " + Host().string() + " in step already");
    EXPECT_NE(end, std::string::npos) << err;
    return err.substr(0, end);
  }

  FolderLock first;
  std::string ignored;
};

TEST_F(HolderOfAFolder, ThatTheSystemTells_IsNamed) {
  EXPECT_EQ(HolderTold("1: POSIX  ADVISORY  WRITE 11 fe:00:5678 0 EOF\n"
                       "2: POSIX  ADVISORY  WRITE 12 THIS 0 EOF\n"
                       "3: FLOCK  ADVISORY  WRITE 13 fe:00:5678 0 EOF\n"
                       "3: -> FLOCK  ADVISORY  WRITE 14 THIS 0 EOF\n"
                       "4: FLOCK  ADVISORY  WRITE 15 THIS 0 EOF\n"),
            "process 15");
  EXPECT_EQ(HolderTold("4: FLOCK  ADVISORY  WRITE 16 THIS 0 EOF"), "process 16");
}

TEST_F(HolderOfAFolder, ThatTheSystemDoesNotTell_IsAnotherProcess) {
  for (const char* locks :
       {"", "\n", "1: FLOCK  ADVISORY  WRITE 13 fe:00:5678 0 EOF\n",
        // In another container.
        "1: FLOCK  ADVISORY  WRITE 0 THIS 0 EOF\n", "1: FLOCK  ADVISORY  WRITE -1 THIS 0 EOF\n",
        // That wait for it, and of other sorts.
        "1: -> FLOCK  ADVISORY  WRITE 14 THIS 0 EOF\n", "1: POSIX  ADVISORY  WRITE 12 THIS 0 EOF\n",
        "1: LEASE  ACTIVE    READ  12 THIS 0 EOF\n"}) {
    EXPECT_EQ(HolderTold(locks), "another process") << locks;
  }
}

TEST_F(HolderOfAFolder, WhereTheSystemDoesNotTellOfLocks_IsAnotherProcess) {
  locksOfTheSystem = folder / "nothing";
  FolderLock second;
  std::string err;
  EXPECT_FALSE(second.Take(Host(), err));
  EXPECT_EQ(err, "another process keeps the folder " + Host().string() +
                     " in step already, and remembers it elsewhere");
}

// What it puts into its folder is none of the first one's affair.
TEST_F(RefusedCall, MissingFolderThatSomebodyElseMakesAndLocks_IsLeftToHim) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  fs::remove_all(Host());
  FolderLock other;
  std::string err;
  answer = [&](std::string_view call, const std::string& path) {
    if (call != "mkdir" || path != Host()) return 0;
    folder.File("host/theirs", "t");
    EXPECT_TRUE(other.Take(Host(), err));
    return 0;
  };
  const GuardedReport report = Sync()->Pass({GuardedHazard::kFolderMissing});
  answer = nullptr;
  EXPECT_EQ(report.outcome, kNotNow);
  EXPECT_THAT(report.message, HasSubstr("keeps the folder " + Host().string()));
  EXPECT_EQ(OnHost(), (FileTree{{"theirs", "t"}}));
  EXPECT_EQ(OnDisk(), (FileTree{{"A.TXT", "a"}}));
}

// Both sides would seem to meet for the first time.
TEST_F(RefusedCall, StateThatGoesOnceItIsLocked_IsWaitedFor) {
  folder.File("host/a.txt", "a").File("host/b.txt", "b");
  BuildAndAgree();
  folder.Remove("host/a.txt");
  answer = [&](std::string_view call, const std::string& path) {
    if (call == "flock" && path == Host()) fs::rename(StateFolder(), folder / "away");
    return 0;
  };
  const GuardedReport report = Sync()->Pass();
  answer = nullptr;
  EXPECT_EQ(report.outcome, kNotNow);
  EXPECT_EQ(report.message, "the folder " + StateFolder().string() + " has gone just now");
  EXPECT_THAT(report.steps, IsEmpty());
  fs::rename(folder / "away", StateFolder());
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnDisk(), (FileTree{{"B.TXT", "b"}}));
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard

// Two that work on one folder of the host and remember it in different places.

#include "guard/folder_lock.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "guard/guarded_pair.h"
#include "support/child_process.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;
using enum GuardedOutcome;

class TwoOnOneFolder : public GuardedPair {
 protected:
  void SetUp() override {
    folder.File("host/a.txt", "a").File("host/b.txt", "b");
    BuildImage();
    fs::copy_file(Image(), folder / "OTHER.IMG");
    first = Sync();
    ASSERT_EQ(first->Pass().outcome, kNothingToDo);
  }

  // Of the same folder, with an image and a state folder of its own.
  std::unique_ptr<IGuardedFolderSync> Other(const std::string& host = "host") const {
    return CreateGuardedFolderSync(folder / "OTHER.IMG", folder / host, options);
  }

  std::string HeldBy(::pid_t process) const {
    return "process " + std::to_string(process) + " keeps the folder " + Host().string() +
           " in step already, and remembers it elsewhere";
  }

  std::unique_ptr<IGuardedFolderSync> first;
};

TEST_F(TwoOnOneFolder, Second_IsToldWhoIsFirst) {
  const auto second = Other();
  const GuardedReport report = second->Pass();
  EXPECT_EQ(report.outcome, kNotNow);
  EXPECT_EQ(report.message, HeldBy(::getpid()));
  folder.File("host/a.txt", "edited");
  EXPECT_EQ(second->Pass().outcome, kNotNow);
  EXPECT_EQ(first->Pass().outcome, kDone);
  first.reset();
  EXPECT_EQ(second->Pass().outcome, kDone);
}

TEST_F(TwoOnOneFolder, SecondOfTheSameImage_IsToldAsWell) {
  GuardedSyncOptions elsewhere = options;
  elsewhere.stateFolder = folder / "state";
  const auto second = CreateGuardedFolderSync(Image(), Host(), elsewhere);
  EXPECT_EQ(second->Pass().message, HeldBy(::getpid()));
  EXPECT_FALSE(folder.Exists("state"));
  first.reset();
  EXPECT_EQ(second->Pass().outcome, kNothingToDo);
}

TEST_F(TwoOnOneFolder, SecondInAnotherProcess_IsToldWhoIsFirst) {
  const ::pid_t self = ::getpid();
  const int status = test::RunInChild({}, [&] {
    const GuardedReport report = Other()->Pass();
    return report.outcome == kNotNow && report.message == HeldBy(self) ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

// Another process that has the lock of a folder.
class Holder {
 public:
  explicit Holder(const fs::path& held) {
    std::array<int, 2> told{};
    EXPECT_EQ(::pipe(told.data()), 0);
    process = ::fork();
    if (process == 0) {
      FolderLock lock;
      std::string err;
      const bool taken = lock.Take(held, err);
      if (taken && ::write(told[1], "h", 1) == 1) ::pause();
      ::_exit(1);
    }
    ::close(told[1]);
    char holds = 0;
    EXPECT_EQ(::read(told[0], &holds, 1), 1);
    ::close(told[0]);
  }
  ~Holder() {
    ::kill(process, SIGKILL);
    ::waitpid(process, nullptr, 0);
  }
  Holder(const Holder&) = delete;
  Holder& operator=(const Holder&) = delete;

  ::pid_t Process() const { return process; }

 private:
  ::pid_t process = -1;
};

TEST_F(TwoOnOneFolder, FirstInAnotherProcess_IsNamedUntilItHasEnded) {
  first.reset();
  auto other = std::make_unique<Holder>(Host());
  const GuardedReport report = Other()->Pass();
  EXPECT_EQ(report.outcome, kNotNow);
  EXPECT_EQ(report.message, HeldBy(other->Process()));
  other.reset();
  EXPECT_EQ(Other()->Pass().outcome, kNothingToDo);
}

TEST_F(TwoOnOneFolder, PreviewOfTheSecond_SaysWhoIsFirstAndWhatThereIsToDo) {
  folder.File("host/new.txt", "new");
  const auto second = Other();
  const GuardedReport report = second->Preview();
  EXPECT_EQ(report.outcome, kNotNow);
  EXPECT_EQ(report.message, HeldBy(::getpid()));
  EXPECT_EQ(report.steps.size(), 1u);
  EXPECT_EQ(first->Preview().outcome, kDone);
}

TEST_F(TwoOnOneFolder, PreviewOfTheSamePair_SaysWhoIsFirst) {
  const GuardedReport report = Sync()->Preview();
  EXPECT_EQ(report.outcome, kNotNow);
  EXPECT_EQ(report.message,
            "process " + std::to_string(::getpid()) + " keeps this pair in step already");
  EXPECT_EQ(first->Preview().outcome, kNothingToDo);
}

TEST_F(TwoOnOneFolder, Preview_TakesNoLock) {
  first.reset();
  const auto second = Other();
  ASSERT_EQ(second->Preview().outcome, kNothingToDo);
  EXPECT_EQ(Sync()->Pass().outcome, kNothingToDo);
}

// As a preview has it.
TEST_F(TwoOnOneFolder, LockThatSomebodyHasForAMoment_IsWaitedFor) {
  first.reset();
  const int file = ::open(Host().c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_EQ(::flock(file, LOCK_SH), 0);
  std::thread other([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    ::close(file);
  });
  std::string err;
  EXPECT_TRUE(FolderLock().Take(Host(), err)) << err;
  other.join();
}

TEST_F(TwoOnOneFolder, FolderInTheOthersPlace_BelongsToWhoeverComesFirst) {
  fs::rename(Host(), folder / "moved");
  fs::copy(folder / "moved", Host());
  auto second = Other();
  EXPECT_EQ(second->Pass().outcome, kNothingToDo);
  EXPECT_EQ(first->Pass().message, HeldBy(::getpid()));
  second.reset();
  EXPECT_THAT(HazardsOf(first->Pass()), testing::ElementsAre(GuardedHazard::kFolderReplaced));
  // The one that was there before is let go.
  GuardedSyncOptions elsewhere = options;
  elsewhere.stateFolder = folder / "state";
  const auto third = CreateGuardedFolderSync(folder / "OTHER.IMG", folder / "moved", elsewhere);
  EXPECT_THAT(third->Pass().message, Not(HasSubstr("keeps the folder")));
}

TEST_F(TwoOnOneFolder, FolderThatIsGone_IsLetGo) {
  fs::rename(Host(), folder / "moved");
  EXPECT_THAT(Other("moved")->Pass().message, HasSubstr("keeps the folder"));
  EXPECT_EQ(first->Pass().outcome, kRefused);
  EXPECT_EQ(Other("moved")->Pass().outcome, kNothingToDo);
}

TEST_F(TwoOnOneFolder, FolderThatAPassHasMade_IsLockedAtOnce) {
  fs::remove_all(Host());
  std::vector<GuardedReport> others;
  options.onProgress = [&](const GuardedProgress& progress) {
    if (progress.work == GuardedWork::kWriteFolder) others.push_back(Other()->Pass());
  };
  first.reset();
  first = Sync();
  EXPECT_EQ(first->Pass({GuardedHazard::kFolderMissing}).outcome, kDone);
  ASSERT_FALSE(others.empty());
  for (const GuardedReport& other : others) {
    EXPECT_EQ(other.outcome, kNotNow);
    EXPECT_EQ(other.message, HeldBy(::getpid()));
  }
  EXPECT_EQ(Other()->Pass().message, HeldBy(::getpid()));
  EXPECT_EQ(OnHost(), (FileTree{{"a.txt", "a"}, {"b.txt", "b"}}));
}

// Nobody locks the image: its id tells.
TEST_F(TwoOnOneFolder, OneImageWithTwoFolders_IsFoundReplaced) {
  folder.File("elsewhere/a.txt", "a").File("elsewhere/b.txt", "b");
  GuardedSyncOptions others = options;
  others.stateFolder = folder / "state";
  const auto second = CreateGuardedFolderSync(Image(), folder / "elsewhere", others);
  ASSERT_EQ(second->Pass().outcome, kNothingToDo);
  folder.File("host/a.txt", "edited");
  ASSERT_EQ(first->Pass().outcome, kDone);
  folder.File("elsewhere/b.txt", "edited");
  EXPECT_THAT(HazardsOf(second->Pass()), testing::ElementsAre(GuardedHazard::kImageReplaced));
  EXPECT_EQ(OnDisk(), (FileTree{{"A.TXT", "edited"}, {"B.TXT", "b"}}));
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard

// What is looked at again when nothing seems to have changed, within one process and by the next
// one. Times are of no use to tell changes that come within the same tick: here the clock is ahead
// of the files, as if they had been quiet for long.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "common/host_file.h"
#include "guard/guarded_pair.h"
#include "guard/lines.h"
#include "support/child_process.h"
#include "support/clock_ahead.h"
#include "support/memory_folder.h"
#include "support/opening.h"

namespace {

int statesRead = 0;
std::function<void()> beforeReadingTheDisk;  // once

}  // namespace

int quorbix::virtdisk::test::InPlaceOf(const Opening& opening) {
  const std::string_view path = opening.path;
  const bool isToRead = (opening.flags & O_NOCTTY) != 0;  // as an image is opened for that
  if (beforeReadingTheDisk && isToRead && path.ends_with("/DISK.IMG")) {
    std::exchange(beforeReadingTheDisk, nullptr)();
  }
  if (path.ends_with(".sync/state")) ++statesRead;
  return opening.Next();
}

namespace quorbix::virtdisk::internal::guard {
namespace {

namespace fs = std::filesystem;
using enum GuardedOutcome;

class QuietPair : public GuardedPair {
 protected:
  QuietPair() {
    folder.File("host/a.txt", "a").File("host/SUB/b.txt", "b").Folder("host/EMPTY");
    folder.Link("host/link.txt", "a.txt").File("host/.dot", "d").Link("host/SUB/nowhere", "gone");
    BuildImage();
    test::secondsAhead = 10;
    BecomeQuiet();
  }
  ~QuietPair() override { test::secondsAhead = 0; }

  void BecomeQuiet() {
    sync = Sync();
    whole = sync->Pass();
    EXPECT_EQ(whole.outcome, kNothingToDo);
    EXPECT_EQ(sync->Pass().outcome, kNothingToDo);
    // Longer than the tick of the file system's times.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }

  // Whether a pass found that nothing has changed without what is remembered.
  bool IsQuick(IGuardedFolderSync& quick) {
    statesRead = 0;
    report = quick.Pass();
    return statesRead == 0;
  }

  // As another process does.
  bool IsQuickAnew() {
    sync.reset();
    sync = Sync();
    return IsQuick(*sync);
  }

  fs::path Quiet() const { return StateFolder() / "quiet"; }

  std::unique_ptr<IGuardedFolderSync> sync;
  GuardedReport whole;   // of a look at everything
  GuardedReport report;  // of the latest one
};

TEST_F(QuietPair, NextLook_TakesNoMemory) {
  EXPECT_TRUE(IsQuick(*sync));
  EXPECT_EQ(report.outcome, kNothingToDo);
}

TEST_F(QuietPair, FirstLookOfAProcess_TakesNoMemory) {
  EXPECT_TRUE(IsQuickAnew());
  EXPECT_EQ(report.outcome, kNothingToDo);
  EXPECT_TRUE(IsQuick(*sync));
}

TEST_F(QuietPair, ReportOfAQuickLook_SaysTheSame) {
  ASSERT_TRUE(IsQuickAnew());
  EXPECT_EQ(report.files, 3u);
  EXPECT_EQ(report.files, whole.files);
  EXPECT_EQ(report.bytes, whole.bytes);
  EXPECT_EQ(report.lastReadInFull, whole.lastReadInFull);
  EXPECT_GT(report.lastReadInFull, 0);
  EXPECT_FALSE(report.isFirstMeeting);
  EXPECT_EQ(report.notes.size(), 3u);  // two of the folder, and the disk's ".dot" has no name
  ASSERT_EQ(report.notes.size(), whole.notes.size());
  for (std::size_t i = 0; i < whole.notes.size(); ++i) {
    EXPECT_EQ(report.notes[i].path, whole.notes[i].path);
    EXPECT_EQ(report.notes[i].text, whole.notes[i].text);
  }
}

TEST_F(QuietPair, EachKindOfChange_IsNoticed) {
  const std::vector<std::function<void()>> changes{
      [&] { folder.File("host/a.txt", "A"); },
      [&] {
        // The size and the time of the last change are put back; the time of the last change to
        // what is noted about the file is not.
        const auto time = fs::last_write_time(Host() / "a.txt");
        folder.File("host/a.txt", "B");
        fs::last_write_time(Host() / "a.txt", time);
      },
      [&] { folder.File("host/SUB/new.txt", "n"); },
      [&] { folder.Remove("host/SUB/b.txt"); },
      [&] { folder.Folder("host/SUB/NEW"); },
      [&] { folder.Remove("host/EMPTY"); },
      [&] { fs::rename(Host() / "a.txt", Host() / "c.txt"); },
      [&] { folder.File("host/SUB/gone", "the link leads somewhere now"); },
      [&] { GuestWrites("SUB/GUEST.TXT", "g"); },
  };
  for (const bool isAnew : {false, true}) {
    for (std::size_t i = 0; i < changes.size(); ++i) {
      SCOPED_TRACE(std::to_string(i) + (isAnew ? " anew" : ""));
      ASSERT_TRUE(isAnew ? IsQuickAnew() : IsQuick(*sync));
      if (isAnew) sync = Sync();
      changes[i]();
      EXPECT_EQ(sync->Preview().outcome, kDone);
      EXPECT_FALSE(IsQuick(*sync));
      EXPECT_EQ(report.outcome, kDone) << report.message;
      BecomeQuiet();
    }
    folder.File("host/a.txt", "a").File("host/SUB/b.txt", "b").Folder("host/EMPTY");
    folder.Remove("host/SUB/new.txt").Remove("host/SUB/NEW").Remove("host/SUB/gone");
    folder.Remove("host/SUB/GUEST.TXT");
    EXPECT_EQ(sync->Pass().outcome, kDone);
    BecomeQuiet();
  }
}

TEST_F(QuietPair, AnotherFolderInItsPlace_IsNoticed) {
  for (const bool isAnew : {false, true}) {
    SCOPED_TRACE(isAnew);
    if (isAnew) sync = Sync();
    fs::rename(Host(), folder / "old");
    fs::create_directory(Host());
    for (const auto& entry : fs::directory_iterator(folder / "old")) {
      fs::rename(entry.path(), Host() / entry.path().filename());
    }
    fs::remove(folder / "old");
    EXPECT_FALSE(IsQuick(*sync));
    EXPECT_EQ(report.outcome, kRefused);
    EXPECT_EQ(sync->Pass({GuardedHazard::kFolderReplaced}).outcome, kNothingToDo);
    BecomeQuiet();
  }
}

TEST_F(QuietPair, LinkToAnotherImage_IsNoticed) {
  fs::copy_file(Image(), folder / "other.img");
  folder.Link("link.img", Image());
  sync.reset();  // gives the lock back
  options.stateFolder = StateFolder();
  sync = CreateGuardedFolderSync(folder / "link.img", Host(), options);
  ASSERT_TRUE(IsQuick(*sync));
  folder.Remove("link.img").Link("link.img", folder / "other.img");
  EXPECT_FALSE(IsQuick(*sync));
}

// What changes next could not be remembered.
TEST_F(QuietPair, StateThatCannotBeWrittenTo_IsRefusedAsAPreviewSays) {
  sync.reset();
  for (const fs::path& file : {Image(), StateFolder() / "state", StateFolder() / "lock", Quiet()}) {
    fs::permissions(file, fs::perms{0666});
  }
  ASSERT_TRUE(IsQuickAnew() || IsQuickAnew());
  sync.reset();
  fs::permissions(folder.Path(), fs::perms{0777});
  fs::permissions(StateFolder(), fs::perms{0555});
  const int status = test::RunInChild({.dropRoot = true}, [&] {
    if (Sync()->Preview().outcome != kRefused) return 1;
    return Sync()->Pass().outcome == kRefused ? 0 : 2;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(QuietPair, FileInTheTrashsPlace_IsRefusedAsAPreviewSays) {
  folder.File("DISK.IMG.sync/trash", "mine");
  EXPECT_EQ(sync->Preview().outcome, kRefused);
  EXPECT_EQ(sync->Pass().outcome, kRefused);
}

TEST_F(QuietPair, TimeWhenEverythingWasRead_IsThatOfTheLastPassThatDid) {
  const std::int64_t before = sync->Pass().lastReadInFull;
  test::secondsAhead = 100;
  folder.File("host/a.txt", "A");
  EXPECT_EQ(sync->Pass().lastReadInFull, before);
  sync.reset();
  options.verify = true;
  const std::int64_t verified = Sync()->Pass().lastReadInFull;
  EXPECT_GE(verified, before + 80);
  options.verify = false;
  test::secondsAhead = 200;
  EXPECT_EQ(Sync()->Pass().lastReadInFull, verified);
}

TEST_F(QuietPair, StateThatIsGone_IsNotDoneWithout) {
  fs::remove(StateFolder() / "state");
  EXPECT_FALSE(IsQuick(*sync));
  EXPECT_TRUE(report.isFirstMeeting);
}

TEST_F(QuietPair, StateThatIsGone_IsNotDoneWithoutByTheNextProcess) {
  fs::remove(StateFolder() / "state");
  EXPECT_FALSE(IsQuickAnew());
  EXPECT_TRUE(report.isFirstMeeting);
}

TEST_F(QuietPair, Verify_ReadsEverything) {
  sync.reset();
  options.verify = true;
  sync = Sync();
  EXPECT_FALSE(IsQuick(*sync));
  EXPECT_EQ(report.outcome, kNothingToDo);
}

TEST_F(QuietPair, FileThatCannotBeUsed_IsPassedOver) {
  const std::string text = test::ReadWholeFile(Quiet());
  std::vector<std::string> damaged{"", "something else", text.substr(0, text.size() - 1)};
  for (std::size_t i = 0; i < text.size(); i += 7) {
    damaged.push_back(text);
    damaged.back()[i] ^= 1;
  }
  for (const std::string& other : damaged) {
    test::WriteWholeFile(Quiet(), other);
    EXPECT_FALSE(IsQuickAnew());
    EXPECT_EQ(report.outcome, kNothingToDo);
  }
}

TEST_F(QuietPair, FileOfSomebodyElse_Stays) {
  sync.reset();
  fs::remove(Quiet());
  test::WriteWholeFile(Quiet(), "my notes");
  EXPECT_FALSE(IsQuickAnew());
  EXPECT_EQ(report.outcome, kNothingToDo);
  EXPECT_EQ(test::ReadWholeFile(Quiet()), "my notes");
}

TEST_F(QuietPair, ListThatLeadsOutOfTheFolder_IsNotUsed) {
  const std::string text = test::ReadWholeFile(Quiet());
  const std::size_t title = text.find('\n') + 1;
  const std::size_t body = text.find('\n', title) + 1;
  std::string lines = text.substr(body);
  ASSERT_EQ(text, Sealed(text.substr(0, title), lines));
  test::WriteWholeFile(Quiet(), Sealed(text.substr(0, title), lines + "in ../elsewhere\n"));
  fs::create_directory(folder / "elsewhere");
  EXPECT_FALSE(IsQuickAnew());
}

// Between the look at the folder and the list of what is quiet there.
TEST_F(QuietPair, PipeThatBecameAFileMeanwhile_IsNoticed) {
  folder.Pipe("host/pipe");
  const auto touch = [this](int seconds) {
    fs::last_write_time(Image(), fs::file_time_type::clock::now() - std::chrono::seconds(seconds));
  };
  touch(5);  // by a clock that is ahead: later than it was, so that it is read
  BecomeQuiet();
  ASSERT_TRUE(IsQuick(*sync));
  touch(4);
  beforeReadingTheDisk = [this] { folder.Remove("host/pipe").File("host/pipe", "a file"); };
  EXPECT_EQ(sync->Pass().outcome, kNothingToDo);
  EXPECT_FALSE(beforeReadingTheDisk);
  EXPECT_EQ(sync->Pass().outcome, kDone);
  EXPECT_EQ(test::GuestEditor(Image()).Files().at("PIPE"), "a file");
}

// A file that a program has mapped: what is written through that to a page that was written to
// already changes no time. Both sides have agreed on "old".
class MappedFile : public testing::Test {
 protected:
  void SetUp() override {
    fs::create_directory(host);
    test::WriteWholeFile(host / "a.txt", "...");
    const Descriptor file = OpenHostPath((host / "a.txt").c_str(), O_RDWR);
    bytes = ::mmap(nullptr, 3, PROT_READ | PROT_WRITE, MAP_SHARED, file.Get(), 0);
    ASSERT_NE(bytes, MAP_FAILED);
    std::memcpy(bytes, "old", 3);
    ASSERT_TRUE(CreateFat16Builder()->Build(host, image, std::uint64_t{3} << 20));
    test::secondsAhead = 10;
    ASSERT_EQ(Pass().outcome, kNothingToDo);
  }
  ~MappedFile() override {
    test::secondsAhead = 0;
    if (bytes != MAP_FAILED) ::munmap(bytes, 3);
  }

  GuardedReport Pass() const { return CreateGuardedFolderSync(image, host, options)->Pass(); }
  std::string OnDisk() const { return test::GuestEditor(image).Files().at("A.TXT"); }

  const test::MemoryFolder memory = test::MemoryFolder::OrOnDisk();
  const fs::path host = memory.Path() / "host";
  const fs::path image = memory.Path() / "DISK.IMG";
  GuardedSyncOptions options{.settle = std::chrono::milliseconds(0)};
  void* bytes = MAP_FAILED;
};

TEST_F(MappedFile, IsFoundChangedWhenEverythingIsRead) {
  std::memcpy(bytes, "new", 3);
  EXPECT_EQ(Pass().outcome, kNothingToDo);
  options.verify = true;
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kDone) << report.message;
  EXPECT_EQ(OnDisk(), "new");
}

// It is no reason to wait for ever.
TEST_F(MappedFile, IsReadOnceItIsFoundToDiffer) {
  std::memcpy(bytes, "new", 3);
  test::WriteWholeFile(host / "b.txt", "b");
  const GuardedReport first = Pass();
  EXPECT_EQ(first.outcome, kNotNow);
  EXPECT_EQ(first.message, "a.txt has changed since it was looked at");
  const GuardedReport second = Pass();
  EXPECT_EQ(second.outcome, kDone) << second.message;
  EXPECT_EQ(OnDisk(), "new");
}

// Times cannot tell whether such a file is changed once more.
TEST_F(QuietPair, SidesThatWereChangedJustNow_AreLookedAtWhole) {
  test::secondsAhead = 0;
  folder.File("host/a.txt", "new");
  EXPECT_EQ(sync->Pass().outcome, kDone);
  EXPECT_EQ(sync->Pass().outcome, kNothingToDo);
  EXPECT_FALSE(IsQuick(*sync));
  EXPECT_FALSE(IsQuickAnew());
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard

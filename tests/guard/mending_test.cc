// What a pass finds that was left by one that was cut off.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "common/byte_order.h"
#include "guard/guarded_pair.h"
#include "guard/state_file.h"
#include "support/child_process.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using enum GuardedOutcome;

constexpr std::size_t kVolumeIdAt = 512 + 39;

std::vector<std::string> NotesOf(const GuardedReport& report) {
  std::vector<std::string> notes;
  for (const GuardedNote& note : report.notes) {
    notes.push_back(note.path + (note.path.empty() ? "" : ": ") + note.text);
  }
  return notes;
}

// Killed when the new image had its name and the old one was not in the trash yet; then somebody
// brought back a backup.
class OldImageBesideABackup : public GuardedPair {
 protected:
  void SetUp() override {
    folder.File("host/a.txt", "a");
    BuildAndAgree();
    State state;
    std::string err;
    ASSERT_EQ(LoadState(StateFolder(), state, err), StateLoad::kLoaded) << err;
    state.pending = Pending{.memory = state.memory,
                            .volumeId = state.image->volumeId ^ 1,
                            .wholeImage = ".quorbix-1-7fffffff-3.tmp"};
    ASSERT_TRUE(SaveState(StateFolder(), state, err)) << err;
    std::filesystem::copy_file(Image(), folder / ".quorbix-1-7fffffff-3.tmp");
  }
};

TEST_F(OldImageBesideABackup, GoesToTheTrash) {
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kDone) << report.message;
  EXPECT_THAT(NotesOf(report), ElementsAre(HasSubstr("the image that it left behind")));
  EXPECT_FALSE(folder.Exists(".quorbix-1-7fffffff-3.tmp"));
  EXPECT_EQ(InTrash(), (FileTree{{"image replaced DISK.IMG", test::ReadWholeFile(Image())}}));
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

TEST_F(OldImageBesideABackup, StaysWhenItIsStoppedMeanwhile) {
  std::atomic<bool> stop = false;
  int imagesRead = 0;
  options.stop = &stop;
  options.onProgress = [&](const GuardedProgress& progress) {
    if (progress.work == GuardedWork::kReadDisk) stop = ++imagesRead == 2;
  };
  EXPECT_EQ(Sync()->Pass().outcome, kStopped);
  EXPECT_TRUE(folder.Exists(".quorbix-1-7fffffff-3.tmp"));
  EXPECT_EQ(InTrash(), FileTree{});
}

// Killed when the first bytes of the image were those of the new one, and nothing else.
class TornImage : public GuardedPair {
 protected:
  static constexpr std::uint32_t kTornId = 0x12345678;

  void SetUp() override {
    std::string err;
    folder.File("host/a.txt", "a");
    BuildAndAgree();
    options.inPlace = true;
    folder.File("host/a.txt", "edited");
    State before;
    ASSERT_EQ(LoadState(StateFolder(), before, err), StateLoad::kLoaded) << err;
    old = test::ReadWholeFile(Image());
    ASSERT_EQ(Pass().outcome, kDone);
    whole = test::ReadWholeFile(Image());
    State state;
    ASSERT_EQ(LoadState(StateFolder(), state, err), StateLoad::kLoaded) << err;
    state.pending = Pending{.memory = state.memory,
                            .volumeId = state.image->volumeId,
                            .tornId = kTornId,
                            .wholeImage = ".quorbix-1-7fffffff-3.tmp"};
    state.image = before.image;
    state.memory.pairs.at(0).agreed = before.memory.pairs.at(0).agreed;
    ASSERT_TRUE(SaveState(StateFolder(), state, err)) << err;
    test::WriteWholeFile(Whole(), whole);
    std::string torn = whole.substr(0, 1024) + old.substr(1024);
    StoreU32(reinterpret_cast<std::uint8_t*>(&torn[kVolumeIdAt]), kTornId);
    test::WriteWholeFile(Image(), torn);
  }

  std::filesystem::path Whole() const { return StateFolder() / ".quorbix-1-7fffffff-3.tmp"; }

  std::string old;
  std::string whole;
};

TEST_F(TornImage, IsWrittenToItsEndAndThatIsTold) {
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kDone) << report.message;
  EXPECT_THAT(NotesOf(report), ElementsAre(HasSubstr("done to its end")));
  EXPECT_TRUE(test::ReadWholeFile(Image()) == whole);
  EXPECT_FALSE(std::filesystem::exists(Whole()));
  const GuardedReport next = Pass();
  EXPECT_EQ(next.outcome, kNothingToDo) << next.message;
  EXPECT_THAT(NotesOf(next), IsEmpty());
}

TEST_F(TornImage, IsWrittenToItsEndBeforeItIsMadeAnew) {
  folder.File("host/b.txt", "b");
  GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kDone) << report.message;
  EXPECT_EQ(OnDisk(), (FileTree{{"A.TXT", "edited"}, {"B.TXT", "b"}}));
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

// What the pass threw away that was cut off, and what the one throws away that ends it, belong
// together: neither pushes the other out.
TEST_F(TornImage, PushesNothingOutOfTheTrash) {
  options.trashPasses = 1;
  ASSERT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(InTrash().at("image replaced DISK.IMG"), old);
  EXPECT_EQ(InTrash().at("half written DISK.IMG").size(), old.size());
  folder.File("host/b.txt", "b");
  ASSERT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(InTrash(), (FileTree{{"image replaced DISK.IMG", whole}}));
}

TEST_F(TornImage, WithoutTheWholeOne_IsToldForWhatItIs) {
  std::filesystem::remove(Whole());
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kRefused);
  EXPECT_THAT(HazardsOf(report), ElementsAre(GuardedHazard::kImageUnreadable));
  EXPECT_THAT(report.message, HasSubstr("is half written"));
  EXPECT_THAT(report.message, HasSubstr(Whole().string()));
}

TEST_F(TornImage, BesideADamagedWholeOne_IsToldForWhatItIs) {
  for (const std::string& damaged : {whole.substr(0, 1000), whole.substr(0, 100'000), old}) {
    test::WriteWholeFile(Whole(), damaged);
    const GuardedReport report = Pass();
    EXPECT_THAT(HazardsOf(report), ElementsAre(GuardedHazard::kImageUnreadable));
    EXPECT_THAT(report.message, HasSubstr("is half written"));
  }
}

TEST_F(TornImage, GivesWayToTheOldOneFromTheTrash) {
  std::filesystem::remove(Whole());
  ASSERT_EQ(Pass().outcome, kRefused);
  test::WriteWholeFile(Image(), old);
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kDone) << report.message;
  EXPECT_EQ(OnDisk(), (FileTree{{"A.TXT", "edited"}}));
  EXPECT_EQ(OnHost(), (FileTree{{"a.txt", "edited"}}));
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

TEST_F(TornImage, GivesWayToAnyOtherOneThatIsAccepted) {
  std::filesystem::remove(Whole());
  std::string other = whole;
  other[kVolumeIdAt] ^= 0x55;
  test::WriteWholeFile(Image(), other);
  EXPECT_THAT(HazardsOf(Pass()), ElementsAre(GuardedHazard::kImageReplaced));
  EXPECT_EQ(Pass({GuardedHazard::kImageReplaced}).outcome, kNothingToDo);
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

class Leftover : public GuardedPair {};

TEST_F(Leftover, ThatMayNotBeTakenAway_IsLeftAlone) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs another user";
  namespace fs = std::filesystem;
  folder.File("host/d/a.txt", "a");
  BuildAndAgree();
  folder.File("host/d/.quorbix-1-7fffffff-3.tmp", "half way");
  folder.File("host/b.txt", "b");
  for (const fs::path& place : {folder.Path(), Host(), StateFolder()}) {
    fs::permissions(place, fs::perms{0777});
  }
  for (const fs::path& file : {Image(), StateFolder() / "state", StateFolder() / "lock"}) {
    fs::permissions(file, fs::perms{0666});
  }
  fs::permissions(Host() / "d", fs::perms{0555});
  const int status = test::RunInChild({.dropRoot = true}, [&] {
    const GuardedReport report = Sync()->Pass();
    const bool isTold = std::any_of(
        report.notes.begin(), report.notes.end(),
        [](const GuardedNote& note) { return note.path == "d/.quorbix-1-7fffffff-3.tmp"; });
    if (report.outcome != kDone || !isTold) return 1;
    return Sync()->Pass().outcome == kNothingToDo ? 0 : 2;
  });
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(folder.Exists("host/d/.quorbix-1-7fffffff-3.tmp"));
}

TEST_F(Leftover, OfTheFolder_IsToldOnce) {
  folder.File("host/d/a.txt", "a");
  BuildAndAgree();
  folder.File("host/d/.quorbix-1-7fffffff-3.tmp", "half way");
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kDone) << report.message;
  EXPECT_THAT(NotesOf(report), ElementsAre(HasSubstr("d/.quorbix-1-7fffffff-3.tmp: left over")));
  EXPECT_EQ(InTrash(), (FileTree{{"left over d/.quorbix-1-7fffffff-3.tmp", "half way"}}));
  const GuardedReport next = Pass();
  EXPECT_EQ(next.outcome, kNothingToDo);
  EXPECT_THAT(NotesOf(next), IsEmpty());
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard

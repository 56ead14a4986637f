// Bringing back from the trash what something else has taken the place of.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "guard/guarded_pair.h"
#include "support/memory_folder.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::UnorderedElementsAre;
using enum GuardedOutcome;

// The trash holds the folder's "sub/a.txt" with "old", and the whole image that was before.
class RestoringOver : public GuardedPair {
 protected:
  void SetUp() override {
    folder.File("host/sub/a.txt", "old").File("host/b.txt", "b1");
    BuildAndAgree();
    GuestWrites("SUB/A.TXT", "new");
    guestsImage = test::ReadWholeFile(Image());
    folder.File("host/b.txt", "b2");
    ASSERT_EQ(Pass().outcome, kDone);
    ASSERT_EQ(InTrash(),
              (FileTree{{"replaced sub/a.txt", "old"}, {"image replaced DISK.IMG", guestsImage}}));
  }

  // The latest of the trash that is there for this reason.
  std::string IdOf(const std::string& why) const {
    std::vector<TrashedItem> items;
    std::string ignored;
    EXPECT_TRUE(ListTrash(StateFolder(), items, ignored)) << ignored;
    std::string id;
    for (const TrashedItem& item : items) {
      if (item.why == why) id = item.id;
    }
    return id;
  }

  bool Over(const fs::path& target, const std::string& why = "replaced") {
    return RestoreTrashedOver(StateFolder(), IdOf(why), target, err);
  }

  std::vector<std::string> NamesIn(const fs::path& place) const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(place)) {
      names.push_back(entry.path().filename());
    }
    return names;
  }

  std::string guestsImage;
  std::string err;
};

TEST_F(RestoringOver, File_GoesToTheTrashAndCanComeBackInTurn) {
  ASSERT_TRUE(Over(Host() / "sub/a.txt")) << err;
  EXPECT_EQ(OnHost().at("sub/a.txt"), "old");
  EXPECT_EQ(InTrash().at("restored over sub/a.txt"), "new");
  EXPECT_EQ(InTrash().at("replaced sub/a.txt"), "old");
  EXPECT_THAT(NamesIn(Host() / "sub"), ElementsAre("a.txt"));
  ASSERT_TRUE(Over(Host() / "sub/a.txt", "restored over")) << err;
  EXPECT_EQ(OnHost().at("sub/a.txt"), "new");
  EXPECT_EQ(fs::hard_link_count(Host() / "sub/a.txt"), 1u);
}

TEST_F(RestoringOver, File_IsAnEditToTheNextPass) {
  ASSERT_TRUE(Over(Host() / "sub/a.txt")) << err;
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnDisk(), (FileTree{{"B.TXT", "b2"}, {"SUB/A.TXT", "old"}}));
}

TEST_F(RestoringOver, FileOfAnotherName_KeepsThatInTheTrash) {
  folder.File("elsewhere.txt", "e");
  ASSERT_TRUE(Over(folder / "elsewhere.txt")) << err;
  EXPECT_EQ(folder.Read("elsewhere.txt"), "old");
  EXPECT_EQ(InTrash().at("restored over elsewhere.txt"), "e");
}

TEST_F(RestoringOver, Nothing_IsRestoring) {
  ASSERT_TRUE(Over(folder / "made/a.txt")) << err;
  EXPECT_EQ(folder.Read("made/a.txt"), "old");
  EXPECT_EQ(InTrash().size(), 2u);
}

TEST_F(RestoringOver, WholeImage_IsAnotherDiskForTheNextPassWhichDeletesNothing) {
  folder.File("host/b.txt", "b3").File("host/c.txt", "c");
  ASSERT_EQ(Pass().outcome, kDone);
  const std::string before = test::ReadWholeFile(Image());
  std::vector<TrashedItem> items;
  ASSERT_TRUE(ListTrash(StateFolder(), items, err)) << err;
  const TrashedItem& first = items.at(1);
  ASSERT_EQ(first.side, "disk");
  ASSERT_TRUE(RestoreTrashedOver(StateFolder(), first.id, Image(), err)) << err;
  EXPECT_EQ(test::ReadWholeFile(Image()), guestsImage);
  EXPECT_EQ(InTrash().at("restored over DISK.IMG"), before);
  EXPECT_THAT(NamesIn(folder.Path()), UnorderedElementsAre("host", "DISK.IMG", "DISK.IMG.sync"));
  EXPECT_THAT(HazardsOf(Pass()), ElementsAre(GuardedHazard::kImageReplaced));
  EXPECT_EQ(Pass({GuardedHazard::kImageReplaced}).outcome, kDone);
  EXPECT_EQ(OnHost().at("c.txt"), "c");
  EXPECT_EQ(OnDisk().at("C.TXT"), "c");
}

TEST_F(RestoringOver, Link_IsReplacedItself) {
  folder.File("elsewhere", "e").Remove("host/sub/a.txt").Link("host/sub/a.txt", "../../elsewhere");
  ASSERT_TRUE(Over(Host() / "sub/a.txt")) << err;
  EXPECT_EQ(folder.Read("elsewhere"), "e");
  EXPECT_FALSE(fs::is_symlink(Host() / "sub/a.txt"));
  EXPECT_EQ(OnHost().at("sub/a.txt"), "old");
  const fs::path kept = StateFolder() / "trash" / IdOf("restored over");
  EXPECT_EQ(fs::read_symlink(kept), "../../elsewhere");
}

TEST_F(RestoringOver, FolderOrPipe_IsRefused) {
  folder.File("folder/inside", "i").Pipe("pipe");
  for (const char* name : {"folder", "pipe"}) {
    EXPECT_FALSE(Over(folder / name));
    EXPECT_EQ(err, (folder / name).string() + " is no file, and is not replaced");
  }
  EXPECT_EQ(folder.Read("folder/inside"), "i");
}

TEST_F(RestoringOver, WhatTheTrashDoesNotHold_IsRefused) {
  EXPECT_FALSE(RestoreTrashedOver(StateFolder(), "nothing", Host() / "b.txt", err));
  EXPECT_EQ(err, "the trash holds nothing named nothing");
  EXPECT_EQ(OnHost().at("b.txt"), "b2");
}

TEST_F(RestoringOver, WhileAnotherKeepsThePairInStep_IsRefused) {
  const auto sync = Sync();
  ASSERT_EQ(sync->Pass().outcome, kNothingToDo);
  EXPECT_FALSE(Over(Host() / "sub/a.txt"));
  EXPECT_EQ(err, "process " + std::to_string(::getpid()) + " keeps this pair in step already");
  EXPECT_EQ(OnHost().at("sub/a.txt"), "new");
  EXPECT_EQ(InTrash().size(), 2u);
}

TEST_F(RestoringOver, ImageThatIsOpenForWriting_IsRefused) {
  const std::string before = test::ReadWholeFile(Image());
  const int guest = ::open(Image().c_str(), O_WRONLY | O_CLOEXEC);
  EXPECT_FALSE(Over(Image(), "image replaced"));
  EXPECT_THAT(err, HasSubstr(Image().string() + " open for writing"));
  ::close(guest);
  EXPECT_EQ(test::ReadWholeFile(Image()), before);
  EXPECT_TRUE(Over(Image(), "image replaced")) << err;
}

TEST_F(RestoringOver, StoppedWhileItIsCopied_LeavesWhatIsThere) {
  std::atomic<bool> stop = false;
  EXPECT_FALSE(RestoreTrashedOver(StateFolder(), IdOf("image replaced"), Image(), err, &stop,
                                  [&](const GuardedProgress&) { stop = true; }));
  EXPECT_EQ(err, "it was stopped");
  EXPECT_EQ(Sync()->Preview().outcome, kNothingToDo);
  EXPECT_THAT(NamesIn(folder.Path()), UnorderedElementsAre("host", "DISK.IMG", "DISK.IMG.sync"));
}

// Who saves a file meanwhile has the last word.
TEST_F(RestoringOver, FileThatIsReplacedMeanwhile_Stays) {
  const fs::path target = Host() / "sub/a.txt";
  bool wasSaved = false;
  EXPECT_FALSE(RestoreTrashedOver(StateFolder(), IdOf("replaced"), target, err, nullptr,
                                  [&](const GuardedProgress&) {
                                    if (std::exchange(wasSaved, true)) return;
                                    folder.File("saved", "saved just now");
                                    fs::rename(folder / "saved", target);
                                  }));
  EXPECT_EQ(err, target.string() + " has changed just now, and is not replaced");
  EXPECT_EQ(test::ReadWholeFile(target), "saved just now");
  EXPECT_EQ(InTrash().size(), 2u);
  EXPECT_THAT(NamesIn(Host() / "sub"), ElementsAre("a.txt"));
}

TEST_F(RestoringOver, FileOnAnotherFileSystem_IsCopiedToTheTrash) {
  const test::MemoryFolder memory;
  if (!memory.Usable()) GTEST_SKIP() << "no memory file system to write to";
  test::WriteWholeFile(memory.Path() / "a.txt", "there");
  ASSERT_TRUE(Over(memory.Path() / "a.txt")) << err;
  EXPECT_EQ(test::ReadWholeFile(memory.Path() / "a.txt"), "old");
  EXPECT_EQ(InTrash().at("restored over a.txt"), "there");
  EXPECT_THAT(NamesIn(memory.Path()), ElementsAre("a.txt"));
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard

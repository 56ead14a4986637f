#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "guard/guarded_pair.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using enum GuardedOutcome;

class GuardedPassTest : public GuardedPair {};

TEST_F(GuardedPassTest, FreshlyBuiltDisk_IsInStepAtOnce) {
  folder.File("host/Long File Name.txt", "long")
      .File("host/a_b.txt", "1")
      .File("host/a+b.txt", "2");
  BuildImage();
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kNothingToDo) << report.message;
  EXPECT_TRUE(report.isFirstMeeting);
  EXPECT_THAT(StepsOf(report), IsEmpty());
  EXPECT_EQ(report.files, 3u);
}

TEST_F(GuardedPassTest, GuestsEdit_ReachesTheFileUnderItsOwnName) {
  folder.File("host/Long File Name.txt", "long");
  BuildAndAgree();
  GuestWrites("LONG_FIL.TXT", "edited");
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kDone) << report.message;
  EXPECT_THAT(StepsOf(report), ElementsAre("write on host: Long File Name.txt = /LONG_FIL.TXT"));
  EXPECT_EQ(OnHost(), (FileTree{{"Long File Name.txt", "edited"}}));
  EXPECT_EQ(InTrash(), (FileTree{{"replaced Long File Name.txt", "long"}}));
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

TEST_F(GuardedPassTest, HostsEdit_ReachesTheDisk) {
  folder.File("host/a.txt", "old");
  BuildAndAgree();
  folder.File("host/a.txt", "newer");
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kDone) << report.message;
  EXPECT_EQ(OnDisk(), (FileTree{{"A.TXT", "newer"}}));
  EXPECT_THAT(InTrash(), SizeIs(1));  // the old image
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

TEST_F(GuardedPassTest, NewFilesOnBothSides_CrossOver) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  folder.File("host/New Folder/from host.txt", "h");
  GuestMakesFolder("GAMES");
  GuestWrites("GAMES/SAVE.DAT", "g");
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kDone) << report.message;
  EXPECT_EQ(OnHost(),
            (FileTree{{"GAMES/SAVE.DAT", "g"}, {"New Folder/from host.txt", "h"}, {"a.txt", "a"}}));
  EXPECT_EQ(OnDisk(),
            (FileTree{{"A.TXT", "a"}, {"GAMES/SAVE.DAT", "g"}, {"NEW_FOLD/FROM_HOS.TXT", "h"}}));
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

TEST_F(GuardedPassTest, Deletions_CrossOverAndStayInTheTrash) {
  folder.File("host/a.txt", "a").File("host/b.txt", "b").File("host/c.txt", "c");
  BuildAndAgree();
  folder.Remove("host/a.txt");
  GuestRemoves("B.TXT");
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kDone) << report.message;
  EXPECT_EQ(OnHost(), (FileTree{{"c.txt", "c"}}));
  EXPECT_EQ(OnDisk(), (FileTree{{"C.TXT", "c"}}));
  EXPECT_EQ(InTrash().at("deleted b.txt"), "b");
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

TEST_F(GuardedPassTest, Conflict_KeepsBothOnBothSides) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  folder.File("host/a.txt", "of the host");
  GuestWrites("A.TXT", "of the guest");
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kDone) << report.message;
  const FileTree host = OnHost();
  ASSERT_THAT(host, SizeIs(2));
  EXPECT_EQ(host.at("a.txt"), "of the host");
  EXPECT_TRUE(host.begin()->first.starts_with("a (disk 2")) << host.begin()->first;
  EXPECT_EQ(host.begin()->second, "of the guest");
  EXPECT_EQ(OnDisk(), (FileTree{{"A.TXT", "of the host"}, {"A_(DISK_.TXT", "of the guest"}}));
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard

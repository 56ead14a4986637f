#include "sync/sync_pass.h"

#include <gtest/gtest.h>

#include "support/image_crafter.h"
#include "sync/synced_disk.h"

namespace quorbix::virtdisk::internal {
namespace {

namespace fs = std::filesystem;
using test::GuestEditor;
using test::ImageCrafter;

using DoSyncTest = SyncedDisk;

TEST_F(DoSyncTest, FirstPass_MergesBothSides) {
  folder.File("host/IMAGE.TXT", "i").File("host/BOTH.TXT", "b");
  BuildImage();
  folder.Remove("host/IMAGE.TXT").File("host/HOST.TXT", "h");

  Pass();

  const FileTree merged{{"BOTH.TXT", "b"}, {"HOST.TXT", "h"}, {"IMAGE.TXT", "i"}};
  EXPECT_EQ(OnHost(), merged);
  EXPECT_EQ(InImage(), merged);
}

TEST_F(DoSyncTest, FirstPassWithADatedImageFile_TakesTheImagesVersion) {
  folder.File("host/A.TXT", "image");
  BuildImage();
  folder.File("host/A.TXT", "host");
  Pass();
  EXPECT_EQ(OnHost(), (FileTree{{"A.TXT", "image"}}));
}

TEST_F(DoSyncTest, FirstPassWithAHostFileOfALaterStamp_TakesTheHostsVersion) {
  folder.File("host/A.TXT", "image");
  BuildImage();
  folder.File("host/A.TXT", "host");
  DateAfter2174("A.TXT");
  Pass();
  EXPECT_EQ(OnHost(), (FileTree{{"A.TXT", "host"}}));
  EXPECT_EQ(InImage(), (FileTree{{"A.TXT", "host"}}));
}

TEST_F(DoSyncTest, MissingHostFolder_IsCreatedAndFilled) {
  folder.File("host/SUB/A.TXT", "a");
  BuildImage();
  folder.Remove("host");
  Pass();
  EXPECT_EQ(OnHost(), (FileTree{{"SUB/A.TXT", "a"}}));
}

TEST_F(DoSyncTest, MissingImage_LeavesTheHostUncreated) {
  Pass();
  EXPECT_FALSE(folder.Exists("host"));
}

TEST_F(DoSyncTest, FileEditedInTheImage_IsCopiedUnderTheHostsOwnName) {
  folder.File("host/ReadMe.txt", "old");
  BuildAndAgree();
  GuestEditor guest(Image());
  ASSERT_TRUE(guest.Write("README.TXT", "new"));
  guest.Save();
  const auto image = test::ReadBytes(Image());

  Pass();

  EXPECT_EQ(OnHost(), (FileTree{{"ReadMe.txt", "new"}}));
  EXPECT_EQ(test::ReadBytes(Image()), image);  // not rebuilt
}

TEST_F(DoSyncTest, FileNewInTheImage_IsCopiedUnderTheImagesName) {
  BuildAndAgree();
  GuestEditor guest(Image());
  ASSERT_TRUE(guest.MakeFolder("SUB") && guest.Write("SUB/NEW.TXT", std::string(5000, 'n')));
  guest.Save();
  Pass();
  EXPECT_EQ(OnHost(), (FileTree{{"SUB/NEW.TXT", std::string(5000, 'n')}}));
}

TEST_F(DoSyncTest, EmptyFileNewInTheImage_IsCopied) {
  BuildAndAgree();
  GuestEditor guest(Image());
  ASSERT_TRUE(guest.Write("EMPTY", ""));
  guest.Save();
  Pass();
  EXPECT_EQ(OnHost(), (FileTree{{"EMPTY", ""}}));
}

TEST_F(DoSyncTest, FileEditedOnTheHost_RebuildsTheImageAtItsSize) {
  folder.File("host/A.TXT", "old").File("host/B.TXT", "b");
  BuildAndAgree(100 * 1024);
  folder.File("host/A.TXT", "new");

  Pass();

  EXPECT_EQ(InImage(), (FileTree{{"A.TXT", "new"}, {"B.TXT", "b"}}));
  EXPECT_EQ(fs::file_size(Image()), 100u * 1024);
}

TEST_F(DoSyncTest, FileNewOnTheHost_ReachesTheImage) {
  BuildAndAgree();
  folder.File("host/Sub/new.txt", "n");
  Pass();
  EXPECT_EQ(InImage(), (FileTree{{"SUB/NEW.TXT", "n"}}));
}

TEST_F(DoSyncTest, FileDeletedOnTheHost_LeavesTheImage) {
  folder.File("host/A.TXT", "a").File("host/B.TXT", "b");
  BuildAndAgree();
  folder.Remove("host/A.TXT");
  Pass();
  EXPECT_EQ(InImage(), (FileTree{{"B.TXT", "b"}}));
  EXPECT_EQ(OnHost(), (FileTree{{"B.TXT", "b"}}));
}

TEST_F(DoSyncTest, FileDeletedInTheImage_LeavesTheHostWithItsEmptyFolders) {
  folder.File("host/A/B/C.TXT", "c").File("host/A/KEEP.TXT", "k");
  BuildAndAgree();
  GuestEditor guest(Image());
  ASSERT_TRUE(guest.Remove("A/B/C.TXT"));
  guest.Save();

  Pass();

  EXPECT_EQ(OnHost(), (FileTree{{"A/KEEP.TXT", "k"}}));
  EXPECT_FALSE(folder.Exists("host/A/B"));
}

TEST_F(DoSyncTest, LastFileDeletedInTheImage_LeavesTheHostFolderItself) {
  folder.File("host/A/B.TXT", "b");
  BuildAndAgree();
  GuestEditor guest(Image());
  ASSERT_TRUE(guest.Remove("A/B.TXT"));
  guest.Save();
  Pass();
  EXPECT_TRUE(fs::is_empty(Host()));
}

TEST_F(DoSyncTest, EmptyFolders_StayAsLongAsNothingIsDeleted) {
  folder.Folder("host/EMPTY").File("host/A.TXT", "a");
  BuildAndAgree();
  folder.File("host/B.TXT", "b");
  Pass();
  EXPECT_TRUE(folder.Exists("host/EMPTY"));
}

TEST_F(DoSyncTest, FileDeletedInTheImageAndChangedOnTheHost_ComesBackIntoTheImage) {
  folder.File("host/A.TXT", "old");
  BuildAndAgree();
  folder.File("host/A.TXT", "new");
  GuestEditor guest(Image());
  ASSERT_TRUE(guest.Remove("A.TXT"));
  guest.Save();
  Pass();
  EXPECT_EQ(InImage(), (FileTree{{"A.TXT", "new"}}));
}

TEST_F(DoSyncTest, FileDeletedOnTheHostAndChangedInTheImage_ComesBackToTheHost) {
  folder.File("host/A.TXT", "old");
  BuildAndAgree();
  folder.Remove("host/A.TXT");
  GuestEditor guest(Image());
  ASSERT_TRUE(guest.Write("A.TXT", "new"));
  guest.Save();
  Pass();
  EXPECT_EQ(OnHost(), (FileTree{{"A.TXT", "new"}}));
}

TEST_F(DoSyncTest, BothSidesEdited_TheImageWinsByItsStamp) {
  folder.File("host/A.TXT", "old");
  BuildAndAgree();
  folder.File("host/A.TXT", "host");
  GuestEditor guest(Image());
  ASSERT_TRUE(guest.Write("A.TXT", "image"));
  guest.Save();
  Pass();
  EXPECT_EQ(OnHost(), (FileTree{{"A.TXT", "image"}}));
  EXPECT_EQ(InImage(), (FileTree{{"A.TXT", "image"}}));
}

TEST_F(DoSyncTest, BothSidesEditedWithEqualStamps_TheHostWins) {
  folder.File("host/A.TXT", "old");
  BuildAndAgree();
  folder.File("host/A.TXT", "host");
  // 1980 in the image's units, in the host's nanoseconds.
  fs::last_write_time(Host() / "A.TXT",
                      fs::file_time_type{} + std::chrono::nanoseconds(1980ll << 26));
  GuestEditor guest(Image());
  ASSERT_TRUE(guest.Write("A.TXT", "image") && guest.SetStamp("A.TXT", 0, 0));
  guest.Save();
  Pass();
  EXPECT_EQ(OnHost(), (FileTree{{"A.TXT", "host"}}));
  EXPECT_EQ(InImage(), (FileTree{{"A.TXT", "host"}}));
}

TEST_F(DoSyncTest, BothSidesEditedAlike_ChangeNothing) {
  folder.File("host/A.TXT", "old");
  BuildAndAgree();
  folder.File("host/A.TXT", "new");
  GuestEditor guest(Image());
  ASSERT_TRUE(guest.Write("A.TXT", "new"));
  guest.Save();
  const auto image = test::ReadBytes(Image());
  Pass();
  EXPECT_EQ(OnHost(), (FileTree{{"A.TXT", "new"}}));
  EXPECT_EQ(test::ReadBytes(Image()), image);
}

TEST_F(DoSyncTest, CopyAndRebuildInOnePass_BothArrive) {
  folder.File("host/A.TXT", "a").File("host/B.TXT", "b");
  BuildAndAgree();
  folder.File("host/A.TXT", "from host");
  GuestEditor guest(Image());
  ASSERT_TRUE(guest.Write("B.TXT", "from image"));
  guest.Save();

  Pass();

  const FileTree both{{"A.TXT", "from host"}, {"B.TXT", "from image"}};
  EXPECT_EQ(OnHost(), both);
  EXPECT_EQ(InImage(), both);
}

TEST_F(DoSyncTest, FileThatBecameAFolderInTheImage_BecomesOneOnTheHost) {
  folder.File("host/A", "file");
  BuildAndAgree();
  GuestEditor guest(Image());
  ASSERT_TRUE(guest.Remove("A") && guest.MakeFolder("A") && guest.Write("A/B.TXT", "b"));
  guest.Save();
  Pass();
  EXPECT_EQ(OnHost(), (FileTree{{"A/B.TXT", "b"}}));
}

TEST_F(DoSyncTest, FolderThatBecameAFileInTheImage_BecomesOneOnTheHost) {
  folder.File("host/A/B.TXT", "b");
  BuildAndAgree();
  GuestEditor guest(Image());
  ASSERT_TRUE(guest.Remove("A/B.TXT") && guest.Remove("A") && guest.Write("A", "file"));
  guest.Save();
  Pass();
  EXPECT_EQ(OnHost(), (FileTree{{"A", "file"}}));
}

TEST_F(DoSyncTest, HiddenHostFiles_AreLeftAlone) {
  folder.File("host/.hidden", "h").File("host/A.TXT", "a");
  BuildAndAgree();
  GuestEditor guest(Image());
  ASSERT_TRUE(guest.Remove("A.TXT"));
  guest.Save();
  Pass();
  EXPECT_EQ(folder.Read("host/.hidden"), "h");
}

TEST_F(DoSyncTest, UnreadableImageFile_IsLeftOutAndTheOthersArrive) {
  folder.Folder("host").File("DISK.IMG", ImageCrafter()
                                             .File("LOOP", {.firstCluster = 2, .size = 9999})
                                             .File("GOOD", {.firstCluster = 3, .size = 1})
                                             .FatWord(2, 2)
                                             .Chain({3})
                                             .Data(3, "g")
                                             .Bytes());
  Pass();
  EXPECT_EQ(OnHost(), (FileTree{{"GOOD", "g"}}));
}

TEST_F(DoSyncTest, FileThatCannotBeWrittenToTheHost_IsTriedAgainAtTheNextChange) {
  folder.File("host/A.TXT/inside", "x");
  BuildAndAgree();
  folder.File(
      "DISK.IMG",
      ImageCrafter().File("A.TXT", {.firstCluster = 2, .size = 1}).Chain({2}).Data(2, "a").Bytes());
  folder.File("host/A.TXT/another", "y");  // keeps the folder from being emptied
  Pass();
  EXPECT_TRUE(folder.Exists("host/A.TXT/another"));
  folder.Remove("host/A.TXT");
  GuestEditor guest(Image());
  ASSERT_TRUE(guest.Write("A.TXT", "later"));
  guest.Save();

  Pass();

  EXPECT_EQ(OnHost(), (FileTree{{"A.TXT", "later"}}));
}

TEST_F(DoSyncTest, NamesThatLeadOutOfTheFolder_TouchNothingThere) {
  // An absolute path of eight bytes: what such a name could reach of the root.
  const fs::path absolute = "/qvxfile";
  ASSERT_FALSE(fs::exists(absolute));
  folder.Folder("a/b/host")
      .File("X", "mine")
      .File("a/X", "mine")
      .File("a/b/X", "mine")
      .File("DISK.IMG", ImageCrafter({.rootEntryCount = 32})
                            .RawSlot("../../X    ", {.firstCluster = 2, .size = 4})
                            .RawSlot("../X       ", {.firstCluster = 2, .size = 4})
                            .RawSlot("/qvxfile   ", {.firstCluster = 2, .size = 4})
                            .RawSlot("..      /X ", {.firstCluster = 2, .size = 4})
                            .RawSlot("../..      ", {.attributes = 0x10, .firstCluster = 3})
                            .RawSlot("/          ", {.attributes = 0x10, .firstCluster = 3})
                            .RawSlot("..         ", {.attributes = 0x10, .firstCluster = 3})
                            .File("GOOD", {.firstCluster = 2, .size = 4})
                            .Chain({2})
                            .Data(2, "evil")
                            .InCluster(3)
                            .File("X", {.firstCluster = 2, .size = 4})
                            .Chain({3})
                            .Bytes());

  RunSyncPass(Image(), folder / "a/b/host", state);

  FileTree all = folder.Files();
  all.erase("DISK.IMG");
  EXPECT_EQ(
      all,
      (FileTree{{"X", "mine"}, {"a/X", "mine"}, {"a/b/X", "mine"}, {"a/b/host/GOOD", "evil"}}));
  EXPECT_FALSE(fs::exists(absolute));
}

// The builder follows a link to a folder, so that the image holds what lies behind it.
TEST_F(DoSyncTest, LinkToAFolder_IsNoWayOutForTheImage) {
  folder.File("outside/X.TXT", "theirs").Link("host/LINK", folder / "outside");
  folder.File("host/A.TXT", "a");
  BuildAndAgree();
  test::GuestEditor guest(Image());
  ASSERT_TRUE(guest.Write("LINK/X.TXT", "mine"));
  ASSERT_TRUE(guest.Write("LINK/NEW.TXT", "mine"));
  guest.Save();
  Pass();
  EXPECT_EQ(folder.Files("outside"), (FileTree{{"X.TXT", "theirs"}}));
}

TEST_F(DoSyncTest, LinkToAFolderFurtherDown_IsNoWayOutEither) {
  folder.File("outside/X.TXT", "theirs").Link("host/A/B/LINK", folder / "outside");
  folder.File("host/A/B/C.TXT", "c");
  BuildAndAgree();
  test::GuestEditor guest(Image());
  ASSERT_TRUE(guest.Write("A/B/LINK/X.TXT", "mine"));
  ASSERT_TRUE(guest.Write("A/B/LINK/NEW.TXT", "mine"));
  guest.Save();
  Pass();
  EXPECT_EQ(folder.Files("outside"), (FileTree{{"X.TXT", "theirs"}}));
}

// The image has two files of one key: the version and the path must be the same one's.
TEST_F(DoSyncTest, ImageFilesThatShareAKey_AreCopiedAsTheLastOfThem) {
  folder.Folder("host").File("DISK.IMG", ImageCrafter()
                                             .RawSlot("NAME    TXT", {.firstCluster = 2, .size = 5})
                                             .RawSlot("name    txt", {.firstCluster = 3, .size = 4})
                                             .Chain({2})
                                             .Chain({3})
                                             .Data(2, "first")
                                             .Data(3, "last")
                                             .Bytes());
  Pass();
  EXPECT_EQ(OnHost(), (FileTree{{"name.txt", "last"}}));
}

// Were the host's empty folders removed after the rebuild, the image would get them.
TEST_F(DoSyncTest, FoldersThatADeletionEmptied_DoNotReachTheRebuiltImage) {
  folder.File("host/GONE/DEEP/A.TXT", "a").File("host/B.TXT", "b");
  BuildAndAgree();
  GuestEditor guest(Image());
  ASSERT_TRUE(guest.Remove("GONE/DEEP/A.TXT"));
  guest.Save();
  folder.File("host/B.TXT", "new");

  Pass();

  EXPECT_FALSE(folder.Exists("host/GONE"));
  EXPECT_FALSE(GuestEditor(Image()).Exists("GONE"));
  EXPECT_EQ(InImage(), (FileTree{{"B.TXT", "new"}}));
}

TEST_F(DoSyncTest, FolderInAnotherLetterCase_IsMadeAnewBesideTheOther) {
  folder.File("host/docs/A.TXT", "a");
  BuildAndAgree();
  test::GuestEditor guest(Image());
  ASSERT_TRUE(guest.Write("DOCS/NEW.TXT", "new"));
  guest.Save();
  Pass();
  EXPECT_EQ(OnHost(), (FileTree{{"docs/A.TXT", "a"}, {"DOCS/NEW.TXT", "new"}}));
}

}  // namespace
}  // namespace quorbix::virtdisk::internal

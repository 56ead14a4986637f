#include <gtest/gtest.h>

#include "support/child_process.h"
#include "support/temp_folder.h"
#include "sync/host_write.h"

namespace quorbix::virtdisk::internal {
namespace {

namespace fs = std::filesystem;
using test::RunInChild;
using test::TempFolder;

TEST(RemoveEmptyDirsRec, NestedEmptyFolders_AllGoInOneCall) {
  TempFolder folder;
  folder.Folder("host/a/b/c/d").Folder("host/e").Folder("host/a/f");
  RemoveEmptyDirsRec(folder / "host");
  EXPECT_TRUE(fs::is_empty(folder / "host"));
}

TEST(RemoveEmptyDirsRec, HostFolderItself_Stays) {
  TempFolder folder;
  folder.Folder("host");
  RemoveEmptyDirsRec(folder / "host");
  EXPECT_TRUE(folder.Exists("host"));
}

TEST(RemoveEmptyDirsRec, FoldersWithFiles_StayWithTheirParents) {
  TempFolder folder;
  folder.File("a/b/keep").Folder("a/c");
  RemoveEmptyDirsRec(folder.Path());
  EXPECT_TRUE(folder.Exists("a/b/keep"));
  EXPECT_FALSE(folder.Exists("a/c"));
}

TEST(RemoveEmptyDirsRec, HiddenFile_KeepsItsFolder) {
  TempFolder folder;
  folder.File("a/.hidden");
  RemoveEmptyDirsRec(folder.Path());
  EXPECT_TRUE(folder.Exists("a/.hidden"));
}

TEST(RemoveEmptyDirsRec, LongNameBesideADeepPath_DoesNotDisturbTheOrder) {
  TempFolder folder;
  folder.Folder(std::string(200, 'n')).Folder("a/b/c");
  RemoveEmptyDirsRec(folder.Path());
  EXPECT_TRUE(fs::is_empty(folder.Path()));
}

TEST(RemoveEmptyDirsRec, LinkToAFolder_GoesAndItsTargetStays) {
  TempFolder folder;
  folder.File("outside/file").Folder("host").Link("host/link", "../outside");
  RemoveEmptyDirsRec(folder / "host");
  EXPECT_FALSE(folder.Exists("host/link"));
  EXPECT_TRUE(folder.Exists("outside/file"));
}

TEST(RemoveEmptyDirsRec, LinkToAFile_Stays) {
  TempFolder folder;
  folder.File("outside").Folder("host").Link("host/link", "../outside");
  RemoveEmptyDirsRec(folder / "host");
  EXPECT_TRUE(folder.Exists("host/link"));
}

TEST(RemoveEmptyDirsRec, LinkThatCannotBeQueried_EndsTheWalkAndStays) {
  TempFolder folder;
  folder.Link("self", "self");
  RemoveEmptyDirsRec(folder.Path());
  EXPECT_TRUE(folder.Exists("self"));
}

// The deliberate end of the walk: which folders were listed before the link is the file system's
// choice, so the test reads the same listing.
TEST(RemoveEmptyDirsRec, FoldersListedBeforeSuchALink_AreStillRemoved) {
  TempFolder folder;
  for (int i = 0; i < 20; ++i) folder.Folder("d" + std::to_string(i));
  folder.Link("dangling", "nowhere");
  for (int i = 20; i < 40; ++i) folder.Folder("d" + std::to_string(i));
  std::vector<fs::path> before;
  std::vector<fs::path> after;
  bool passed = false;
  for (const auto& entry : fs::directory_iterator(folder.Path())) {
    if (entry.is_symlink()) {
      passed = true;
    } else {
      (passed ? after : before).push_back(entry.path());
    }
  }

  RemoveEmptyDirsRec(folder.Path());

  for (const fs::path& path : before) EXPECT_FALSE(fs::exists(path)) << path;
  for (const fs::path& path : after) EXPECT_TRUE(fs::exists(path)) << path;
}

TEST(RemoveEmptyDirsRec, MissingFolder_IsNothingToDo) {
  TempFolder folder;
  RemoveEmptyDirsRec(folder / "none");
  EXPECT_TRUE(fs::is_empty(folder.Path()));
}

TEST(RemoveEmptyDirsRec, FolderThatCannotBeRemoved_Stays) {
  TempFolder folder;
  folder.Folder("a");  // the parent belongs to root
  const int status = RunInChild({.dropRoot = true}, [&] {
    RemoveEmptyDirsRec(folder.Path());
    return 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(folder.Exists("a"));
}

TEST(RemoveEmptyDirsRec, SubfolderThatCannotBeOpened_IsAnException) {
  TempFolder folder;
  folder.Folder("locked").Forbidden("locked");
  const int status = RunInChild({.dropRoot = true}, [&] {
    try {
      RemoveEmptyDirsRec(folder.Path());
    } catch (const fs::filesystem_error&) {
      return 0;
    }
    return 1;
  });
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal

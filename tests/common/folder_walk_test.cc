#include "common/folder_walk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::internal {
namespace {

namespace fs = std::filesystem;
using test::RunInChild;
using test::TempFolder;
using testing::ElementsAre;

std::vector<std::string> Walked(const fs::path& root) {
  std::vector<std::string> paths;
  std::error_code error;
  for (FolderWalk walk(root, error); !walk.AtEnd(); walk.Advance()) paths.push_back(walk.Path());
  return paths;
}

std::vector<std::string> Iterated(const fs::path& root) {
  std::vector<std::string> paths;
  for (const auto& entry : fs::recursive_directory_iterator(root)) paths.push_back(entry.path());
  return paths;
}

// The order decides signatures, so it must be the standard library's.
TEST(FolderWalk, Tree_IsWalkedInTheOrderOfTheRecursiveIterator) {
  TempFolder folder;
  std::mt19937 random(7);
  for (int i = 0; i < 300; ++i) {
    fs::path path;
    for (auto depth = random() % 5; depth > 0; --depth) path /= "d" + std::to_string(random() % 4);
    path /= "f" + std::to_string(i);
    random() % 5 == 0 ? folder.Folder(path) : folder.File(path);
  }
  folder.Link("d1/link", "..").Link("dangling", "nowhere").Pipe("d2/pipe");
  const std::vector<std::string> expected = Iterated(folder.Path());
  EXPECT_GT(expected.size(), 300u);
  EXPECT_EQ(Walked(folder.Path()), expected);
  EXPECT_EQ(Walked(folder.Path().native() + "/"), Iterated(folder.Path().native() + "/"));
}

TEST(FolderWalk, EmptyFolder_HasNoEntries) {
  TempFolder folder;
  EXPECT_TRUE(Walked(folder.Path()).empty());
}

TEST(FolderWalk, MissingRoot_HasNoEntriesAndSaysWhy) {
  TempFolder folder;
  std::error_code error;
  EXPECT_TRUE(FolderWalk(folder / "none", error).AtEnd());
  EXPECT_EQ(error, std::errc::no_such_file_or_directory);
}

TEST(FolderWalk, LinkToAFolder_IsListedAndNotEntered) {
  TempFolder folder;
  folder.File("outside/file").Folder("root").Link("root/link", "../outside");
  EXPECT_THAT(Walked(folder / "root"), ElementsAre((folder / "root/link").string()));
}

TEST(FolderWalk, LinkAsRoot_IsFollowed) {
  TempFolder folder;
  folder.File("root/file").Link("link", "root");
  EXPECT_THAT(Walked(folder / "link"), ElementsAre((folder / "link/file").string()));
}

TEST(FolderWalk, KindOfALink_IsThatOfItsTarget) {
  TempFolder folder;
  folder.File("outside/file").Folder("root").Link("root/link", "../outside/file");
  std::error_code error;
  const FolderWalk walk(folder / "root", error);
  EXPECT_TRUE(walk.IsRegularFile(error));
  EXPECT_FALSE(walk.IsFolder(error));
  EXPECT_FALSE(error);
}

TEST(FolderWalk, KindOfADanglingLink_IsNothingAndAnError) {
  TempFolder folder;
  folder.Link("root/link", "nowhere");
  std::error_code error;
  const FolderWalk walk(folder / "root", error);
  EXPECT_FALSE(walk.IsRegularFile(error));
  EXPECT_EQ(error, std::errc::no_such_file_or_directory);
}

TEST(FolderWalk, SubfolderThatVanishes_IsAnException) {
  TempFolder folder;
  folder.Folder("a");
  std::error_code error;
  FolderWalk walk(folder.Path(), error);
  folder.Remove("a");
  EXPECT_THROW(walk.Advance(), fs::filesystem_error);
}

TEST(FolderWalk, LinkThatTookASubfoldersPlace_IsNotFollowed) {
  TempFolder folder;
  folder.File("outside/file").Folder("root/a");
  std::error_code error;
  FolderWalk walk(folder / "root", error);
  folder.Remove("root/a").Link("root/a", "../outside");
  EXPECT_THROW(walk.Advance(), fs::filesystem_error);
}

TEST(FolderWalk, SubfolderThatCannotBeOpened_IsAnExceptionWithTheCause) {
  TempFolder folder;
  folder.Folder("locked").Forbidden("locked");
  const int status = RunInChild({.dropRoot = true}, [&] {
    try {
      Walked(folder.Path());
    } catch (const fs::filesystem_error& e) {
      return e.code() == std::errc::permission_denied ? 0 : 2;
    }
    return 1;
  });
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal

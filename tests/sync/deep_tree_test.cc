// Folders nested so deep that a descriptor for each level, or a path for the deepest, is too much.

#include <fcntl.h>
#include <gtest/gtest.h>

#include <exception>

#include "common/descriptor.h"
#include "support/child_process.h"
#include "support/deep_folder.h"
#include "support/image_crafter.h"
#include "support/temp_folder.h"
#include "sync/host_scan.h"
#include "sync/host_write.h"
#include "sync/sync_pass.h"

namespace quorbix::virtdisk::internal {
namespace {

namespace fs = std::filesystem;
using test::DeepFolder;
using test::DeepPath;
using test::ImageCrafter;
using test::RunInChild;
using test::TempFolder;

constexpr test::ChildLimits kFewDescriptors{.openFileLimit = 64};

PathMap ScannedPaths(const fs::path& root) {
  HostSnapshot snapshot;
  std::string error;
  ScanHostFiles(root, snapshot, error);
  return PathsOf(snapshot);
}

TEST(DeepFolders, Of1500Levels_AreScannedToTheBottom) {
  TempFolder folder;
  const DeepFolder deep(folder.Path(), 1500);
  const fs::path bottom = DeepPath(1500) / "F";
  folder.File(bottom, "deep");
  const int status = RunInChild(kFewDescriptors, [&] {
    return ScannedPaths(folder.Path()) == PathMap{{bottom.native().substr(0, 3000) + "f", bottom}}
               ? 0
               : 1;
  });
  EXPECT_EQ(status, 0);
}

TEST(DeepFolders, Of4000Levels_AreScannedAsFarAsPathsReach) {
  TempFolder folder;
  const DeepFolder deep(folder.Path(), 4000);
  folder.File("d/F", "a").File("z/F", "z");
  const int status = RunInChild(kFewDescriptors, [&] {
    return ScannedPaths(folder.Path()) == PathMap{{"d/f", "d/F"}, {"z/f", "z/F"}} ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

// By a path of 4,096 bytes, its end mark not counted, no file can be opened.
TEST(DeepFolders, FileWhosePathIsLongerThanTheHostCanName_IsLeftOut) {
  TempFolder folder;
  const auto levels = static_cast<int>((4000 - folder.Path().native().size()) / 2);
  const DeepFolder deep(folder.Path(), levels);
  const std::string bottom = (folder / DeepPath(levels)).native();
  const std::string longest(4095 - bottom.size() - 1, 'a');
  const std::string tooLong(longest.size() + 1, 'b');
  folder.File(DeepPath(levels) / longest, "taken");
  const Descriptor inside(::open(bottom.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const Descriptor file(
      ::openat(inside.Get(), tooLong.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
  ASSERT_TRUE(file);
  EXPECT_EQ(ScannedPaths(folder.Path()),
            (PathMap{{DeepPath(levels) / longest, DeepPath(levels) / longest}}));
}

TEST(DeepFolders, Of1500LevelsWithNothingInThem_AreAllRemoved) {
  TempFolder folder;
  const DeepFolder deep(folder.Path(), 1500);
  const int status = RunInChild(kFewDescriptors, [&] {
    RemoveEmptyDirsRec(folder.Path());
    return fs::is_empty(folder.Path()) ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

TEST(DeepFolders, Of4000LevelsWithNothingInThem_StayAndAreNoException) {
  TempFolder folder;
  const DeepFolder deep(folder.Path(), 4000);
  folder.Folder("empty");
  const int status = RunInChild(kFewDescriptors, [&] {
    RemoveEmptyDirsRec(folder.Path());
    return fs::exists(folder / "d") && !fs::exists(folder / "empty") ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

constexpr std::uint16_t kHalfWay = 800;
constexpr std::uint16_t kBottom = 1500;

// Directories nested in each other, a file in the innermost and one half way: the standard library
// makes no more than 1,000 missing folders at once.
ImageCrafter NestedDisk() {
  constexpr std::uint16_t kData = kBottom + 2;
  ImageCrafter image({.sectorsPerFat = 8, .clusters = 2000});
  image.Directory("D", 2).Chain({kData}).Data(kData, "deep");
  for (std::uint16_t level = 1; level <= kBottom; ++level) {
    const auto cluster = static_cast<std::uint16_t>(level + 1);
    image.Chain({cluster}).InCluster(cluster);
    if (level == kHalfWay || level == kBottom) image.File("F", {.firstCluster = kData, .size = 4});
    if (level < kBottom) image.Directory("D", static_cast<std::uint16_t>(cluster + 1));
  }
  return image;
}

TEST(DeepFolders, ThatAGuestMade_AreCopiedOutAndEndNoLaterPass) {
  TempFolder folder;
  folder.Folder("host").File("DISK.IMG", NestedDisk().Bytes());
  const int status = RunInChild(kFewDescriptors, [&] {
    std::size_t agreed = 0;
    for (int pass = 0; pass < 3; ++pass) {
      SyncState state;
      RunSyncPass(folder / "DISK.IMG", folder / "host", state);
      agreed = state.baseline.size();
    }
    return agreed == 2 ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
  std::string bottom = (folder / "host/").string();
  for (int level = 0; level < kBottom; ++level) bottom += "D/";
  EXPECT_EQ(test::ReadWholeFile(bottom + "F"), "deep");
  test::RunCommand({"rm", "-rf", (folder / "host").string()});
}

}  // namespace
}  // namespace quorbix::virtdisk::internal

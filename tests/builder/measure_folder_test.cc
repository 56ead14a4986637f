#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "builder/fat16_builder.h"
#include "support/child_process.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::internal {
namespace {

namespace fs = std::filesystem;
using test::TempFolder;

std::uint64_t Measure(const fs::path& folder) { return Fat16Builder().MeasureFolderSize(folder); }

TEST(MeasureFolderSize, SumsAllFilesOfAllFolders) {
  TempFolder folder;
  folder.File("a", std::string(1000, 'a')).File("sub/b", "12").File("sub/sub/c", "3").Folder("d");
  EXPECT_EQ(Measure(folder.Path()), 1003u);
}

TEST(MeasureFolderSize, OfAnEmptyOrMissingFolderIsZero) {
  TempFolder folder;
  EXPECT_EQ(Measure(folder.Path()), 0u);
  EXPECT_EQ(Measure(folder / "missing"), 0u);
}

TEST(MeasureFolderSize, OfAFileIsZero) {
  TempFolder folder;
  folder.File("a", "content");
  EXPECT_EQ(Measure(folder / "a"), 0u);
}

TEST(MeasureFolderSize, CountsALinkToAFileAsItsTarget) {
  TempFolder folder;
  TempFolder elsewhere;
  elsewhere.File("target", std::string(500, 't'));
  folder.Link("link", elsewhere / "target").Link("dangling", "nowhere");
  EXPECT_EQ(Measure(folder.Path()), 500u);
}

TEST(MeasureFolderSize, FollowsNoLinkToAFolder) {
  TempFolder folder;
  folder.File("sub/a", "12345").Link("link", "sub").Link("sub/loop", "..");
  EXPECT_EQ(Measure(folder.Path()), 5u);
}

TEST(MeasureFolderSize, FollowsALinkGivenAsTheFolder) {
  TempFolder folder;
  folder.File("sub/a", "12345").Link("link", "sub");
  EXPECT_EQ(Measure(folder / "link"), 5u);
}

TEST(MeasureFolderSize, PassesPipesAndDevicesOver) {
  TempFolder folder;
  folder.Pipe("pipe").Link("zero", "/dev/zero").File("a", "1");
  EXPECT_EQ(Measure(folder.Path()), 1u);
}

TEST(MeasureFolderSize, UnreadableFolder_AddsNothingAndTheWalkGoesOn) {
  TempFolder folder;
  for (char name = 'a'; name <= 'h'; ++name) folder.File(std::string(1, name) + "/f", "12");
  folder.Forbidden("d");
  const int status = test::RunInChild({.dropRoot = true},
                                      [&] { return static_cast<int>(Measure(folder.Path())); });
  fs::permissions(folder / "d", fs::perms::owner_all);
  EXPECT_EQ(status, 14);
}

TEST(MeasureFolderSize, CountsSizesThatDoNotFit32Bits) {
  TempFolder folder;
  folder.File("a").File("b");
  fs::resize_file(folder / "a", 5'000'000'000);
  fs::resize_file(folder / "b", 6'000'000'000);
  EXPECT_EQ(Measure(folder.Path()), 11'000'000'000u);
}

TEST(MeasureFolderSize, OfADeepTreeWithFewDescriptors) {
  TempFolder folder;
  fs::path deep = ".";
  for (int level = 0; level < 1000; ++level) deep /= "d";
  folder.File(deep / "f", "123");
  const int status = test::RunInChild({.openFileLimit = 32},
                                      [&] { return static_cast<int>(Measure(folder.Path())); });
  EXPECT_EQ(status, 3);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal

#include "guard/places.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "quorbix/virtdisk/fat_image_builder.h"
#include "quorbix/virtdisk/guarded_folder_sync.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

namespace fs = std::filesystem;

class PlacesTest : public testing::Test {
 protected:
  void SetUp() override {
    folder.File("real/docs/right.txt", "").Folder("real/inner").Folder("docs");
    fs::create_directory_symlink("real/inner", folder / "link");
  }

  fs::path FolderFor(const fs::path& path) const {
    return FindPlaces(folder / "DISK.IMG", path, {}).folder;
  }

  test::TempFolder folder;
};

TEST_F(PlacesTest, FolderBehindALinkAndUp_IsTheOneThatTheSystemFinds) {
  EXPECT_EQ(FolderFor(folder / "link/../docs"), folder / "real/docs");
  EXPECT_EQ(FolderFor(folder / "link/../docs/"), folder / "real/docs");
  EXPECT_EQ(FolderFor(folder / "link/.."), folder / "real");
  EXPECT_EQ(FolderFor(folder / "docs/../real"), folder / "real");
}

TEST_F(PlacesTest, StateFolderBehindALinkAndUp_IsTheOneThatTheSystemFinds) {
  EXPECT_EQ(FindPlaces(folder / "DISK.IMG", folder / "docs", folder / "link/../state").stateFolder,
            folder / "real/state");
  EXPECT_EQ(FindPlaces(folder / "link/../DISK.IMG", folder / "docs", {}).stateFolder,
            folder / "real/DISK.IMG.sync");
}

TEST_F(PlacesTest, FolderThatIsMissing_IsMissingWhereTheSystemMissesIt) {
  EXPECT_EQ(FolderFor(folder / "link/../new"), folder / "real/new");
  EXPECT_FALSE(fs::exists(FolderFor(folder / "nowhere/../docs")));
}

TEST_F(PlacesTest, PathThatGoesNowhereUp_StaysAsItIsButForWhatSaysNothing) {
  EXPECT_EQ(FolderFor(folder / "docs/"), folder / "docs");
  EXPECT_EQ(FolderFor(folder / "./docs/."), folder / "docs");
  EXPECT_EQ(FolderFor(folder / "link"), folder / "link");
}

// An emulator goes to its data's folder while it starts.
TEST_F(PlacesTest, ProcessThatGoesElsewhere_KeepsThePairThatItNamed) {
  for (const char* place : {"one", "two"}) {
    folder.File(std::string(place) + "/host/a.txt", place);
    const auto builder = CreateFat16Builder();
    ASSERT_TRUE(builder->Build(folder / place / "host", folder / place / "DISK.IMG", 3 << 20));
  }
  const fs::path before = fs::current_path();
  fs::current_path(folder / "one");
  GuardedSyncOptions options;
  options.settle = std::chrono::milliseconds(0);
  options.stateFolder = "state";
  const auto sync = CreateGuardedFolderSync("DISK.IMG", "host", options);
  fs::current_path(folder / "two");
  folder.File("one/host/new.txt", "n").File("two/host/new.txt", "n");
  const GuardedReport report = sync->Pass();
  fs::current_path(before);
  EXPECT_EQ(report.outcome, GuardedOutcome::kDone);
  EXPECT_TRUE(folder.Exists("one/state/state"));
  EXPECT_FALSE(folder.Exists("two/state"));
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard

#include "guard/places.h"

#include <gtest/gtest.h>

#include <filesystem>

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

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/child_process.h"
#include "support/temp_folder.h"
#include "sync/host_scan.h"

namespace quorbix::virtdisk::internal {
namespace {

namespace fs = std::filesystem;
using test::RunInChild;
using test::TempFolder;

// Relative paths must come out the same in whatever way the folder is named.
class NamedFolder : public testing::Test {
 protected:
  NamedFolder() { folder.File("host/Sub/File.TXT", "abc").File("host/Top.TXT", "x"); }

  static bool ScansAlike(const fs::path& root) {
    HostSnapshot snapshot;
    std::string error;
    ScanHostFiles(root, snapshot, error);
    return error.empty() &&
           PathsOf(snapshot) == PathMap{{"sub/file.txt", "Sub/File.TXT"}, {"top.txt", "Top.TXT"}};
  }

  // In a child, because the working folder belongs to the whole process.
  int ScanFrom(const fs::path& workingFolder, const fs::path& root) const {
    return RunInChild({}, [&] {
      fs::current_path(workingFolder);
      return ScansAlike(root) ? 0 : 1;
    });
  }

  TempFolder folder;
};

TEST_F(NamedFolder, AbsolutePath) { EXPECT_TRUE(ScansAlike(folder / "host")); }

TEST_F(NamedFolder, TrailingSlash) { EXPECT_TRUE(ScansAlike((folder / "host").native() + "/")); }

TEST_F(NamedFolder, SeveralSlashes) {
  EXPECT_TRUE(ScansAlike(folder.Path().native() + "//host//"));
}

TEST_F(NamedFolder, RelativePath) { EXPECT_EQ(ScanFrom(folder.Path(), "host"), 0); }

TEST_F(NamedFolder, RelativePathWithATrailingSlash) {
  EXPECT_EQ(ScanFrom(folder.Path(), "./host/"), 0);
}

TEST_F(NamedFolder, Dot) { EXPECT_EQ(ScanFrom(folder / "host", "."), 0); }

TEST_F(NamedFolder, DotSlash) { EXPECT_EQ(ScanFrom(folder / "host", "./"), 0); }

TEST_F(NamedFolder, DotDot) { EXPECT_EQ(ScanFrom(folder / "host/Sub", ".."), 0); }

TEST_F(NamedFolder, PathWithDotDot) {
  EXPECT_TRUE(ScansAlike(folder / "host/Sub/../../host"));
  EXPECT_TRUE(ScansAlike(folder / "host/Sub/.."));
}

TEST_F(NamedFolder, SymbolicLink) {
  folder.Link("link", "host");
  EXPECT_TRUE(ScansAlike(folder / "link"));
  EXPECT_TRUE(ScansAlike((folder / "link").native() + "/"));
}

TEST_F(NamedFolder, DotDotBehindASymbolicLink) {
  folder.Folder("elsewhere/deep").Link("elsewhere/link", "../host/Sub");
  EXPECT_TRUE(ScansAlike(folder / "elsewhere/link/.."));
}

}  // namespace
}  // namespace quorbix::virtdisk::internal

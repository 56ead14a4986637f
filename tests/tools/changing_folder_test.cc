// What happens to the folder, and to the place of the image, while a build is at work.

#include <dirent.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "support/next_function.h"
#include "support/temp_folder.h"
#include "tools/program_run.h"

namespace {

// What is done before each listing of a folder, by their order; returns whether that succeeds.
std::function<bool(int listing)> beforeListing;
int listings = 0;

}  // namespace

// Stands in front of the C library's function for the whole program.
extern "C" DIR* fdopendir(int folder) {
  if (beforeListing && !beforeListing(++listings)) {
    errno = EMFILE;
    return nullptr;
  }
  return quorbix::virtdisk::test::NextOf<DIR*(int)>("fdopendir")(folder);
}

namespace quorbix::virtdisk::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

// A folder DISK of two files, which a build lists twice: once to look at it, and once to copy it.
class ChangingFolder : public ::testing::Test {
 protected:
  ChangingFolder() { folder.File("DISK/A.TXT", "a").File("DISK/B.TXT", "bb"); }
  ~ChangingFolder() override { beforeListing = {}; }

  ProgramRun Build(std::vector<std::string> more = {}) {
    more.insert(more.begin(),
                {"build", (folder / "DISK").string(), (folder / "disk.img").string()});
    listings = 0;
    ProgramRun run = RunVirtdisk(std::move(more));
    beforeListing = {};
    return run;
  }

  static void AtListing(int number, const std::function<void()>& change) {
    beforeListing = [=](int listing) {
      if (listing == number) change();
      return true;
    };
  }

  TempFolder folder;
};

TEST_F(ChangingFolder, FileThatComesIntoTheImagesPlace_Stays) {
  for (const char* option : {"--size=3M", "--in-place"}) {
    fs::remove(folder / "disk.img");
    AtListing(1, [this] { folder.File("disk.img", "a letter"); });
    const ProgramRun run = Build({option});
    EXPECT_EQ(run.status, 1) << option;
    EXPECT_THAT(run.err, HasSubstr("it has changed meanwhile, and was left as it is"));
    EXPECT_EQ(folder.Read("disk.img"), "a letter");
  }
}

TEST_F(ChangingFolder, ImageThatIsWrittenToMeanwhile_StaysAlsoInPlace) {
  for (const char* option : {"--size=3M", "--in-place"}) {
    ASSERT_EQ(Build({"--force"}).status, 0);
    const std::string changed = folder.Read("disk.img") + "more";
    AtListing(2, [&] { WriteWholeFile(folder / "disk.img", changed); });
    EXPECT_EQ(Build({option}).status, 1) << option;
    EXPECT_TRUE(folder.Read("disk.img") == changed) << option;
  }
}

TEST_F(ChangingFolder, FolderThatGoesAway_LeavesTheOldImage) {
  ASSERT_EQ(Build().status, 0);
  const std::string before = folder.Read("disk.img");
  AtListing(2, [this] { fs::rename(folder / "DISK", folder / "elsewhere"); });
  const ProgramRun run = Build();
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("DISK: it has gone while it was copied\n  Nothing was written"));
  EXPECT_TRUE(folder.Read("disk.img") == before);
}

TEST_F(ChangingFolder, FolderThatCannotBeListedAgain_LeavesTheOldImage) {
  ASSERT_EQ(Build().status, 0);
  const std::string before = folder.Read("disk.img");
  beforeListing = [](int listing) { return listing != 2; };
  const ProgramRun run = Build();
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("cannot list "));
  EXPECT_TRUE(folder.Read("disk.img") == before);
}

TEST_F(ChangingFolder, FileThatGoesAway_IsNotCountedAndTold) {
  AtListing(2, [this] { fs::remove(folder / "DISK/A.TXT"); });
  const ProgramRun run = Build({"--json"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.Json()["files"], 1);
  EXPECT_EQ(run.Json()["folderChanged"], true);
  EXPECT_THAT(run.err, HasSubstr("DISK has changed while it was copied"));
}

TEST_F(ChangingFolder, FileThatComes_IsCountedAndToldAndARemark) {
  AtListing(2, [this] { folder.File("DISK/C.TXT", "c"); });
  const ProgramRun run = Build({"--strict"});
  EXPECT_EQ(run.status, 4);
  EXPECT_THAT(run.out, HasSubstr("  files           3\n"));
}

TEST_F(ChangingFolder, FolderThatStaysAsItIs_IsNoRemark) {
  const ProgramRun run = Build({"--strict", "--json"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.Json()["folderChanged"], false);
  EXPECT_THAT(run.err, Not(HasSubstr("changed")));
}

}  // namespace
}  // namespace quorbix::virtdisk::test

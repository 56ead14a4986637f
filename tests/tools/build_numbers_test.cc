// What a build says that it made, what was foretold, and what is there.

#include <gtest/gtest.h>

#include <random>
#include <string>

#include <quorbix/virtdisk/build_preview.h>

#include "program_run.h"
#include "support/random_tree.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::tool {
namespace {

using test::RunVirtdisk;
using test::TempFolder;

// Dot files, long names, names that clash when shortened or in upper case, links, and what no image
// takes.
void FillWithAllSorts(TempFolder& folder) {
  folder.File("DISK/.profile", "p").File("DISK/.bashrc").File("DISK/.bash_history", "h");
  folder.File("DISK/.git/HEAD", "ref").File("DISK/.git/objects/aa/bb", "blob");
  folder.File("DISK/A long name of a file.text", "1").File("DISK/A long name of another.text", "2");
  folder.File("DISK/readme", "lower").File("DISK/README", "upper").File("DISK/Empty");
  folder.File("DISK/SUB/caf\xC3\xA9.txt", "e").File("DISK/SUB/sub/deep.txt", "d");
  folder.Link("DISK/again", "SUB").Link("DISK/file link", "readme").Link("DISK/nowhere", "missing");
  folder.Pipe("DISK/pipe").Folder("DISK/EMPTY");
}

void ExpectOneTruth(const TempFolder& folder, const std::string& size) {
  const std::string disk = (folder / "DISK").string();
  const std::string image = (folder / "disk.img").string();
  const auto built = RunVirtdisk({"build", disk, image, "--size", size, "--json"}).Json();
  const auto info = RunVirtdisk({"info", image, "--json"}).Json();
  const auto sum = [&](const char* listed, const char* hidden) {
    return info.at(listed).get<std::uint64_t>() + info.at(hidden).get<std::uint64_t>();
  };
  EXPECT_EQ(built.at("files"), sum("files", "hiddenFiles"));
  EXPECT_EQ(built.at("directories"), sum("directories", "hiddenDirectories"));
  EXPECT_EQ(built.at("hidden"), info.at("hiddenFiles").get<std::uint64_t>() +
                                    info.at("hiddenDirectories").get<std::uint64_t>());
  EXPECT_EQ(built.at("clustersUsed"), info.at("clustersUsed"));

  BuildPreview preview;
  std::string err;
  ASSERT_TRUE(PreviewBuild(disk, preview, err)) << err;
  const ImageFit fit = FitIntoImage(preview, built.at("bytes"));
  EXPECT_EQ(built.at("files"), preview.files - fit.dropped);
  EXPECT_EQ(built.at("directories"), preview.directories);
  EXPECT_EQ(built.at("clustersUsed"), fit.clustersNeeded);
}

TEST(BuildNumbers, FolderOfAllSorts_AreThoseOfTheImage) {
  TempFolder folder;
  FillWithAllSorts(folder);
  ExpectOneTruth(folder, "auto");
  ExpectOneTruth(folder, "100K");
}

TEST(BuildNumbers, EmptyFilesWithoutAPlaceInTheRoot_DoNotCount) {
  TempFolder folder;
  for (int i = 0; i < 520; ++i) folder.File("DISK/F" + std::to_string(i));
  ExpectOneTruth(folder, "auto");
}

TEST(BuildNumbers, RandomFolders_AreThoseOfTheImage) {
  for (std::uint32_t seed = 0; seed < 6; ++seed) {
    SCOPED_TRACE(seed);
    TempFolder folder;
    std::mt19937 random(seed);
    test::MakeRandomTree(folder / "DISK", {.seed = seed,
                                           .directories = random() % 20,
                                           .files = random() % 150,
                                           .mostBytes = 1 + random() % 3000,
                                           .innerBlanks = random() % 2 == 0,
                                           .dotFiles = true});
    ExpectOneTruth(folder, "auto");
  }
}

}  // namespace
}  // namespace quorbix::virtdisk::tool

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <quorbix/virtdisk/virtdisk.h>

#include "disk/volume_view.h"
#include "host/folder_survey.h"
#include "host/names.h"
#include "host/plan.h"
#include "support/sizes.h"
#include "support/temp_folder.h"

// The program's own calculations against what the library does.

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

using test::kMiB;
using test::TempFolder;

// Trees of odd names and sizes around whole clusters.
class RandomTree {
 public:
  explicit RandomTree(unsigned seed) : random(seed) {
    folder.Folder("DISK");
    Fill("DISK", 0);
  }

  const TempFolder& Folder() const { return folder; }

 private:
  std::size_t Below(std::size_t bound) { return random() % bound; }

  std::string Name() {
    static const std::vector<std::string> pieces{
        "a", "B", "readme", "LONGER NAME", ".", "+", "\xC3\xA9", "~1", "7", "-", "_", "[x]", "txt"};
    std::string name = pieces[Below(4)];
    for (std::size_t i = Below(4); i > 0; --i) name += pieces[Below(pieces.size())];
    if (Below(2) == 0) name += ".TXT";
    return name;
  }

  void Fill(const fs::path& rel, int depth) {
    const std::size_t entries = Below(depth == 0 ? 60 : 20);
    for (std::size_t i = 0; i < entries; ++i) {
      const fs::path path = rel / Name();
      if (folder.Exists(path)) continue;
      if (depth < 3 && Below(6) == 0) {
        folder.Folder(path);
        Fill(path, depth + 1);
      } else {
        const std::size_t size = Below(4) == 0 ? 512 * Below(5) : Below(3000);
        folder.File(path, path.string() + std::string(size, 'x'));
      }
    }
    if (Below(3) == 0) folder.Pipe(rel / "a pipe");
    if (Below(3) == 0) folder.Link(rel / "a link", "nowhere");
    if (Below(3) == 0) folder.File(rel / "empty");
  }

  std::mt19937 random;
  TempFolder folder;
};

// Path in the image and content of every file, as names.* gives them.
void PredictFiles(const fs::path& host, const std::string& image,
                  std::map<std::string, std::string>& files) {
  DirectoryNames names;
  for (const fs::directory_entry& entry : fs::directory_iterator(host)) {
    const std::string path = image + "/" + ShownName(names.Take(entry.path().filename().string()));
    if (entry.is_directory()) PredictFiles(entry.path(), path, files);
    if (entry.is_regular_file()) files[path] = test::ReadWholeFile(entry.path());
  }
}

std::map<std::string, std::string> FilesOf(const Fat16FsImage& image) {
  std::map<std::string, std::string> files;
  std::vector<Fat16FsEntry> entries;
  std::string err;
  image.Search("/", entries, err);
  for (const Fat16FsEntry& entry : entries) {
    if (entry.isDirectory) continue;
    std::vector<std::uint8_t> content;
    EXPECT_TRUE(image.ReadFile(entry.path, content, err)) << entry.path << ": " << err;
    files[entry.path] = std::string(content.begin(), content.end());
  }
  return files;
}

class BuildAgreement : public ::testing::TestWithParam<unsigned> {
 protected:
  BuildAgreement() : tree(GetParam()), survey(SurveyFolder(Source())) {}

  fs::path Source() const { return tree.Folder() / "DISK"; }
  fs::path Disk() const { return tree.Folder() / "disk.img"; }
  bool Build(std::uint64_t size) { return builder->Build(Source(), Disk(), size); }
  void Load() {
    std::string err;
    ASSERT_TRUE(image.LoadFromBytes(test::ReadBytes(Disk()), err)) << err;
  }

  const RandomTree tree;
  const FolderSurvey survey;
  const std::unique_ptr<IFatImageBuilder> builder = CreateFat16Builder();
  Fat16FsImage image;
};

TEST_P(BuildAgreement, Names_AreThoseOfTheImage) {
  ASSERT_TRUE(Build(*SmallestSize(survey.content))) << builder->LastError();
  Load();
  std::map<std::string, std::string> expected;
  PredictFiles(Source(), "", expected);
  EXPECT_EQ(FilesOf(image), expected);
}

TEST_P(BuildAgreement, Counts_AreThoseOfTheImage) {
  ASSERT_TRUE(Build(*SmallestSize(survey.content))) << builder->LastError();
  Load();
  const VolumeView view(image.Info(), image.ImageBytes());
  EXPECT_EQ(view.CountClusters().used, ClustersNeeded(survey.content, view.ClusterBytes()));
  EXPECT_EQ(FilesOf(image).size(), survey.files);
  std::vector<Fat16FsEntry> entries;
  std::string err;
  image.Search("/", entries, err);
  EXPECT_EQ(entries.size(), survey.files + survey.directories);
}

TEST_P(BuildAgreement, SmallestSizeOfAll_BuildsAndOneSectorLessDoesNot) {
  std::uint64_t size = 65536;
  while (!Fits(survey.content, *GeometryFor(size))) size += 512;
  EXPECT_TRUE(Build(size)) << size << ": " << builder->LastError();
  if (size == 65536) return;
  EXPECT_FALSE(Build(size - 512)) << size;
  EXPECT_THAT(builder->LastError(), ::testing::StartsWith("Disk full"));
}

INSTANTIATE_TEST_SUITE_P(Seeds, BuildAgreement, ::testing::Range(1U, 13U));

TEST(GeometryFor, ManySizes_AreThoseOfTheLibrary) {
  TempFolder folder;
  folder.Folder("DISK");
  const auto builder = CreateFat16Builder();
  for (std::uint64_t size = 65536; size < 40 * 1024 * 1024; size += size / 7 + 512) {
    ASSERT_TRUE(builder->Build(folder / "DISK", folder / "disk.img", size));
    Fat16FsImage image;
    std::string err;
    ASSERT_TRUE(image.LoadFromBytes(test::ReadBytes(folder / "disk.img"), err));
    const Geometry geometry = *GeometryFor(size);
    EXPECT_EQ(image.Info().sectorsPerCluster, geometry.sectorsPerCluster) << size;
    EXPECT_EQ(image.Info().sectorsPerFat, geometry.sectorsPerFat) << size;
    EXPECT_EQ(image.Info().dataStartSector, geometry.dataStartSector) << size;
    EXPECT_EQ(VolumeView(image.Info(), image.ImageBytes()).ClusterCount(), UsableClusters(geometry))
        << size;
  }
}

TEST(Fits, FilledShortFat_IsWhereTheLibraryIsFull) {
  for (const std::uint64_t size : {148992U, 149504U, 150016U, 150528U, 282112U}) {
    const Geometry geometry = *GeometryFor(size);
    TempFolder folder;
    folder.File("DISK/A.BIN", std::string(std::size_t{UsableClusters(geometry)} * 512, 'a'));
    const auto builder = CreateFat16Builder();
    EXPECT_TRUE(builder->Build(folder / "DISK", folder / "disk.img", size)) << size;
    folder.File("DISK/B.BIN", "b");
    EXPECT_FALSE(builder->Build(folder / "DISK", folder / "disk.img", size)) << size;
  }
}

}  // namespace
}  // namespace quorbix::virtdisk::tool

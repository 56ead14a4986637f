#include "builder/fat16_builder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "builder/build_identity.h"
#include "support/blank_disk.h"
#include "support/child_process.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::internal {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using test::BlankDisk;
using test::ImageCrafter;
using test::TempFolder;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

std::uint32_t VolumeIdOf(const std::vector<std::uint8_t>& image) {
  std::uint32_t id = 0;
  for (std::size_t i = 4; i-- > 0;) id = id << 8 | image.at(512 + 39 + i);
  return id;
}

std::string LabelOf(const std::vector<std::uint8_t>& image) {
  return {image.begin() + 512 + 43, image.begin() + 512 + 54};
}

class Fat16BuilderTest : public testing::Test {
 protected:
  bool Build(const fs::path& source, std::uint64_t sizeBytes = 65536) {
    return builder.Build(source, output, sizeBytes);
  }

  std::vector<std::uint8_t> Output() const { return test::ReadBytes(output); }

  TempFolder folder;
  TempFolder outside;
  fs::path output = outside / "disk.img";
  Fat16Builder builder;
};

TEST_F(Fat16BuilderTest, EmptyFolder_IsTheWholeImageByteForByte) {
  folder.Folder("MyDisk");
  ASSERT_TRUE(Build(folder / "MyDisk")) << builder.LastError();
  const std::vector<std::uint8_t> image = Output();
  EXPECT_EQ(image, BlankDisk({.label = "MYDISK     ", .volumeId = VolumeIdOf(image)}).Bytes());
  EXPECT_EQ(builder.LastError(), "");
  EXPECT_THAT(builder.SkippedFiles(), IsEmpty());
}

TEST_F(Fat16BuilderTest, FirstCluster_IsChosenByTheVolumeId) {
  folder.File("Disk/f.txt", "hello");
  ASSERT_TRUE(Build(folder / "Disk")) << builder.LastError();
  const std::vector<std::uint8_t> image = Output();
  const std::uint32_t volumeId = VolumeIdOf(image);
  const auto cluster = static_cast<std::uint16_t>(volumeId % 92 + 2);
  ImageCrafter expected = BlankDisk({.label = "DISK       ", .volumeId = volumeId});
  expected.File("F.TXT", {.firstCluster = cluster, .size = 5});
  expected.Chain({cluster}).Data(cluster, "hello");
  EXPECT_EQ(image, expected.Bytes());
}

TEST_F(Fat16BuilderTest, SizeIsRoundedDownToWholeSectors) {
  ASSERT_TRUE(Build(folder.Path(), 100000)) << builder.LastError();
  EXPECT_EQ(fs::file_size(output), 99840u);
}

struct LabelRow {
  const char* name;
  std::string folderName;
  std::string label;
};

class BuiltLabel : public Fat16BuilderTest, public testing::WithParamInterface<LabelRow> {};

TEST_P(BuiltLabel, ComesFromTheFoldersName) {
  folder.Folder(GetParam().folderName);
  ASSERT_TRUE(Build(folder / GetParam().folderName)) << builder.LastError();
  const std::vector<std::uint8_t> image = Output();
  EXPECT_EQ(image, BlankDisk({.label = GetParam().label, .volumeId = VolumeIdOf(image)}).Bytes());
}

INSTANTIATE_TEST_SUITE_P(
    Names, BuiltLabel,
    testing::Values(LabelRow{"Short", "MyDisk", "MYDISK     "},
                    LabelRow{"TrailingSeparator", "MyDisk/", "           "},
                    LabelRow{"CutAt11", "Holiday Photos 2024", "HOLIDAY PHO"},
                    LabelRow{"NothingIsMapped", "a+b=c.d", "A+B=C.D    "},
                    LabelRow{"Utf8StaysAsItIs", "gr\xC3\xBC\xC3\x9F", "GR\xC3\xBC\xC3\x9F     "}),
    [](const testing::TestParamInfo<LabelRow>& row) { return row.param.name; });

TEST_F(Fat16BuilderTest, SourceGivenAsDot_IsLabelledDot) {
  const fs::path before = fs::current_path();
  fs::current_path(folder.Path());
  const bool built = Build(".");
  fs::current_path(before);
  ASSERT_TRUE(built) << builder.LastError();
  EXPECT_EQ(LabelOf(Output()), ".          ");
}

TEST_F(Fat16BuilderTest, MissingSource_Fails) {
  EXPECT_FALSE(Build(folder / "missing"));
  EXPECT_EQ(builder.LastError(), "Source folder does not exist: " + (folder / "missing").string());
}

TEST_F(Fat16BuilderTest, DanglingLinkAsSource_DoesNotExist) {
  folder.Link("link", "nowhere");
  EXPECT_FALSE(Build(folder / "link"));
  EXPECT_EQ(builder.LastError(), "Source folder does not exist: " + (folder / "link").string());
}

TEST_F(Fat16BuilderTest, FileAsSource_Fails) {
  folder.File("file");
  EXPECT_FALSE(Build(folder / "file"));
  EXPECT_EQ(builder.LastError(), "Source path is not a directory: " + (folder / "file").string());
}

TEST_F(Fat16BuilderTest, LinkToAFolderAsSource_IsFollowed) {
  folder.File("real/f").Link("link", "real");
  ASSERT_TRUE(Build(folder / "link")) << builder.LastError();
  EXPECT_EQ(LabelOf(Output()), "LINK       ");
}

TEST_F(Fat16BuilderTest, SourceBehindAForbiddenParent_Throws) {
  folder.Folder("parent/source").Forbidden("parent");
  const int status = test::RunInChild({.dropRoot = true}, [&] {
    try {
      Build(folder / "parent" / "source");
    } catch (const fs::filesystem_error& error) {
      return error.code() == std::errc::permission_denied ? 0 : 1;
    }
    return 2;
  });
  fs::permissions(folder / "parent", fs::perms::owner_all);
  EXPECT_EQ(status, 0);
}

TEST_F(Fat16BuilderTest, SizeBelow64K_FailsAndWritesNothing) {
  EXPECT_FALSE(Build(folder.Path(), 65535));
  EXPECT_EQ(builder.LastError(), "Image too small (minimum 64 KB)");
  EXPECT_FALSE(fs::exists(output));
}

TEST_F(Fat16BuilderTest, SizeOfTheWhole64Bits_FailsWithoutAllocating) {
  EXPECT_FALSE(Build(folder.Path(), ~std::uint64_t{0}));
  EXPECT_EQ(builder.LastError(), "Volume too large for FAT16 (max ~2 GB)");
}

TEST_F(Fat16BuilderTest, FolderThatDoesNotFit_LeavesTheOldImageAndItsTimeAlone) {
  outside.File("disk.img", "the old image");
  const auto oldTime = fs::file_time_type::clock::now() - std::chrono::hours(5);
  fs::last_write_time(output, oldTime);
  folder.File("big", std::string(92 * 512 + 1, 'b'));
  EXPECT_FALSE(Build(folder.Path()));
  EXPECT_THAT(builder.LastError(), StartsWith("Disk full"));
  EXPECT_EQ(test::ReadWholeFile(output), "the old image");
  EXPECT_EQ(fs::last_write_time(output), oldTime);
}

TEST_F(Fat16BuilderTest, OutputThatCannotBeOpened_Fails) {
  output = outside / "missing" / "disk.img";
  EXPECT_FALSE(Build(folder.Path()));
  EXPECT_EQ(builder.LastError(), "Cannot open output image: " + output.string());
}

TEST_F(Fat16BuilderTest, FullDevice_Fails) {
  output = "/dev/full";
  EXPECT_FALSE(Build(folder.Path()));
  EXPECT_EQ(builder.LastError(), "Write failed for: /dev/full");
}

TEST_F(Fat16BuilderTest, OutputInsideTheSource_IsNoPartOfTheImage) {
  output = folder / "disk.img";
  ASSERT_TRUE(Build(folder.Path())) << builder.LastError();
  EXPECT_EQ(Output()[2048 + 32], 0) << "the root holds more than the label";
}

TEST_F(Fat16BuilderTest, SkippedEntries_DoNotFailTheBuild) {
  folder.Link("mem", "/proc/self/mem").File("f");
  EXPECT_TRUE(Build(folder.Path()));
  EXPECT_EQ(builder.LastError(), "");
  EXPECT_THAT(builder.SkippedFiles(),
              ElementsAre((folder / "mem").string() +
                          " [transient read error \xE2\x80\x94 file may have changed]"));
}

TEST_F(Fat16BuilderTest, SkippedEntries_AreKeptUpToAFailure) {
  folder.File("a").File("b");
  const fs::path first = fs::directory_iterator(folder.Path())->path();
  const fs::path second = first.filename() == "a" ? folder / "b" : folder / "a";
  fs::permissions(first, fs::perms::none);
  test::WriteWholeFile(second, std::string(60000, 'b'));
  const int status = test::RunInChild({.dropRoot = true}, [&] {
    if (Build(folder.Path())) return 1;
    const std::vector<std::string> expected = {
        first.string() + " [transient read error \xE2\x80\x94 file may have changed]"};
    return builder.SkippedFiles() == expected ? 0 : 2;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(Fat16BuilderTest, EachBuild_BeginsWithoutTheErrorAndTheListOfTheLast) {
  folder.Link("mem", "/proc/self/mem");
  ASSERT_TRUE(Build(folder.Path()));
  ASSERT_EQ(builder.SkippedFiles().size(), 1u);
  EXPECT_FALSE(Build(folder / "missing"));
  EXPECT_THAT(builder.SkippedFiles(), IsEmpty());
  folder.Remove("mem");
  EXPECT_TRUE(Build(folder.Path()));
  EXPECT_EQ(builder.LastError(), "");
}

TEST_F(Fat16BuilderTest, DroppedEmptyFile_LeavesItsMessageOnASuccess) {
  for (int i = 0; i < 512; ++i) folder.File("F" + std::to_string(i));
  EXPECT_TRUE(Build(folder.Path()));
  EXPECT_EQ(builder.LastError(), "Root directory is full");
  EXPECT_THAT(builder.SkippedFiles(), IsEmpty());
}

TEST_F(Fat16BuilderTest, TwoBuilds_GetDifferentVolumeIds) {
  std::set<std::uint32_t> ids;
  for (int i = 0; i < 20; ++i) {
    ASSERT_TRUE(Build(folder.Path()));
    ids.insert(VolumeIdOf(Output()));
  }
  EXPECT_EQ(ids.size(), 20u);
}

TEST_F(Fat16BuilderTest, QuickBuilds_GetTimesOneMillisecondApart) {
  ASSERT_TRUE(Build(folder.Path()));
  fs::file_time_type last = fs::last_write_time(output);
  for (int i = 0; i < 20; ++i) {
    ASSERT_TRUE(Build(folder.Path()));
    const fs::file_time_type now = fs::last_write_time(output);
    EXPECT_GE(now - last, milliseconds(1));
    last = now;
  }
}

TEST_F(Fat16BuilderTest, BuiltImage_IsNewerThanWhatWasStampedBefore) {
  outside.File("other.img");
  // So often that the last stamp lies far ahead of the clock.
  for (int i = 0; i < 3000; ++i) StampOutputImageMtime(outside / "other.img");
  const fs::file_time_type before = fs::last_write_time(outside / "other.img");
  ASSERT_TRUE(Build(folder.Path()));
  EXPECT_EQ(fs::last_write_time(output), before + milliseconds(1));
}

TEST_F(Fat16BuilderTest, BuildersOnManyThreads_BuildWholeImages) {
  folder.File("f", std::string(5000, 'f'));
  std::vector<std::thread> threads;
  std::vector<int> built(4, 0);
  for (std::size_t i = 0; i < built.size(); ++i) {
    threads.emplace_back([&, i] {
      Fat16Builder own;
      for (int n = 0; n < 10; ++n) {
        built[i] += own.Build(folder.Path(), outside / ("t" + std::to_string(i)), 65536) ? 1 : 0;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(built, testing::Each(10));
}

TEST(CreateFat16Builder, GivesAFreshBuilder) {
  const std::unique_ptr<IFatImageBuilder> builder = CreateFat16Builder();
  EXPECT_EQ(builder->LastError(), "");
  EXPECT_THAT(builder->SkippedFiles(), IsEmpty());
}

}  // namespace
}  // namespace quorbix::virtdisk::internal

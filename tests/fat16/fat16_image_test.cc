#include "fat16/fat16_image.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cctype>
#include <string>
#include <vector>

#include "fat16/fat16_fixture.h"
#include "support/blank_disk.h"
#include "support/image_bytes.h"
#include "support/latin1_locale.h"

namespace quorbix::virtdisk::internal {
namespace {

using test::BlankDisk;
using test::BytesOf;
using test::ImageCrafter;
using ::testing::ElementsAre;

Fat16Image BootableImage(std::uint64_t sizeBytes, std::string_view label, std::uint32_t volumeId) {
  Fat16Image image = EmptyImage(sizeBytes);
  image.WriteBootSector(label, volumeId);
  image.SetVolumeLabel(label);
  image.WriteMbr();
  return image;
}

std::vector<std::uint8_t> BytesAt(const Fat16Image& image, std::size_t offset, std::size_t count) {
  const auto begin = image.Bytes().begin() + static_cast<std::ptrdiff_t>(offset);
  return {begin, begin + static_cast<std::ptrdiff_t>(count)};
}

TEST(Fat16Image, Init_ZeroesAllButTheReservedFatWords) {
  const Fat16Image image = EmptyImage(65536 + 700);
  std::vector<std::uint8_t> bytes(65536 + 512, 0);
  for (const std::size_t fat : {1024u, 1536u}) {
    bytes[fat] = 0xF8;
    bytes[fat + 1] = bytes[fat + 2] = bytes[fat + 3] = 0xFF;
  }
  EXPECT_EQ(BytesOf(image), bytes);
}

TEST(Fat16Image, Init_FailsWithTheMessageOfTheGeometryAndReplacesAnOlderOne) {
  Fat16Image image;
  std::string err = "an older message";
  EXPECT_FALSE(image.Init(65535, err));
  EXPECT_EQ(err, "Image too small (minimum 64 KB)");
  EXPECT_FALSE(image.Init(~std::uint64_t{0}, err));
  EXPECT_EQ(err, "Volume too large for FAT16 (max ~2 GB)");
  EXPECT_TRUE(image.Bytes().empty());
}

TEST(Fat16Image, BlankDiskOf64K_IsTheWholeImageByteForByte) {
  const Fat16Image image = BootableImage(65536, "Games", 0x1A2B3C4D);
  const ImageCrafter expected = BlankDisk({.label = "GAMES      ", .volumeId = 0x1A2B3C4D});
  EXPECT_EQ(BytesOf(image), expected.Bytes());
}

TEST(Fat16Image, BlankDiskOf33MiB_IsTheWholeImageByteForByte) {
  const Fat16Image image = BootableImage(33 * kMiB, "", 7);
  // 67,583 sectors of partition; the last, LBA 67,583, is cylinder 67, head 0, sector 48.
  const ImageCrafter expected = BlankDisk({.sectorsPerCluster = 8,
                                           .sectorsPerFat = 33,
                                           .clusters = 8435,
                                           .trailingSectors = 4,
                                           .partitionSectors = 67583,
                                           .lastSectorChs = {0x00, 0x30, 0x43},
                                           .volumeId = 7});
  EXPECT_TRUE(BytesOf(image) == expected.Bytes());
}

TEST(Fat16Image, WriteBootSector_CountsUpTo65535SectorsIn16Bits) {
  const Fat16Image image = BootableImage(65536 * 512, "", 1);
  EXPECT_THAT(BytesAt(image, 512 + 19, 2), ElementsAre(0xFF, 0xFF));
  EXPECT_THAT(BytesAt(image, 512 + 32, 4), ElementsAre(0, 0, 0, 0));
}

TEST(Fat16Image, WriteBootSector_Counts65536SectorsIn32Bits) {
  const Fat16Image image = BootableImage(65537 * 512, "", 1);
  EXPECT_THAT(BytesAt(image, 512 + 19, 2), ElementsAre(0, 0));
  EXPECT_THAT(BytesAt(image, 512 + 32, 4), ElementsAre(0x00, 0x00, 0x01, 0x00));
}

TEST(Fat16Image, Label_IsCutAt11InBothPlaces) {
  const Fat16Image image = BootableImage(65536, "Holiday Photos 2024", 1);
  const ImageCrafter expected = BlankDisk({.label = "HOLIDAY PHO", .volumeId = 1});
  EXPECT_EQ(BytesOf(image), expected.Bytes());
}

TEST(Fat16Image, Label_UpperCasesAsciiLettersOnlyWhateverTheLocale) {
  const test::Latin1Locale locale;
  ASSERT_EQ(std::toupper(0xE4), 0xC4) << "the locale is not in force";
  const Fat16Image image = BootableImage(65536, "b\xE4r +.z", 1);
  const ImageCrafter expected = BlankDisk({.label = "B\xE4R +.Z    ", .volumeId = 1});
  EXPECT_EQ(BytesOf(image), expected.Bytes());
}

TEST(Fat16Image, SetVolumeLabel_OnAFullRootWritesNothing) {
  Fat16Image image = EmptyImage(65536);
  std::string err;
  for (int i = 0; i < 512; ++i) ASSERT_NE(image.AddFile(0, "TAKEN", nullptr, 0, err), 0);
  const std::vector<std::uint8_t> before = BytesOf(image);
  image.SetVolumeLabel("LATE");
  EXPECT_EQ(BytesOf(image), before);
}

struct ChsRow {
  const char* name;
  std::uint32_t lastLba;
  std::array<std::uint8_t, 3> chs;
};

class LastSectorChs : public testing::TestWithParam<ChsRow> {};

// The image of lastLba + 1 sectors, whose master boot record is all that is looked at.
TEST_P(LastSectorChs, IsWrittenIntoThePartitionEntry) {
  Fat16Image image = EmptyImage((std::uint64_t{GetParam().lastLba} + 1) * 512);
  image.WriteMbr();
  const auto& chs = GetParam().chs;
  EXPECT_THAT(BytesAt(image, 446, 8),
              ElementsAre(0x80, 0x00, 0x02, 0x00, 0x04, chs[0], chs[1], chs[2]));
}

INSTANTIATE_TEST_SUITE_P(
    Lba, LastSectorChs,
    testing::Values(ChsRow{"Sector2OfHead2", 127, {0x02, 0x02, 0x00}},
                    ChsRow{"LastOfCylinder0", 1007, {0x0F, 0x3F, 0x00}},
                    ChsRow{"FirstOfCylinder1", 1008, {0x00, 0x01, 0x01}},
                    ChsRow{"FirstOfCylinder256", 256 * 1008, {0x00, 0x41, 0x00}},
                    ChsRow{"FirstOfCylinder769", 769 * 1008, {0x00, 0xC1, 0x01}},
                    ChsRow{"LastReachable", 1032191, {0x0F, 0xFF, 0xFF}},
                    ChsRow{"JustBefore", 1032190, {0x0F, 0xFE, 0xFF}},
                    ChsRow{"FirstSaturated", 1032192, {0x0F, 0xFF, 0xFF}},
                    ChsRow{"FarBeyond", 4 * 1032192 + 5, {0x0F, 0xFF, 0xFF}}),
    [](const testing::TestParamInfo<ChsRow>& row) { return row.param.name; });

TEST(Fat16Image, PartitionType_Is04WhateverTheSize) {
  for (const std::uint64_t size : {std::uint64_t{65536}, 64 * kMiB, 1025 * kMiB}) {
    Fat16Image image = EmptyImage(size);
    image.WriteMbr();
    EXPECT_EQ(image.Bytes()[450], 0x04) << size;
  }
}

TEST(Fat16Image, DiskWithAFileAndADirectory_IsTheWholeImageByteForByte) {
  Fat16Image image = BootableImage(65536, "DISK", 0xCAFE);
  image.SeedClusterAllocator(5);
  std::string err;
  const std::string text = "hello";
  ASSERT_EQ(
      image.AddFile(0, "HELLO   TXT", reinterpret_cast<const std::uint8_t*>(text.data()), 5, err),
      7);
  ASSERT_EQ(image.AddDirectory(0, "SUB        ", err), 8);
  ASSERT_EQ(image.AddDirectory(8, "DEEP", err), 9);
  ASSERT_EQ(image.AddFile(9, "EMPTY", nullptr, 0, err), 0xFFFF);

  ImageCrafter expected = BlankDisk({.label = "DISK       ", .volumeId = 0xCAFE});
  expected.File("HELLO.TXT", {.firstCluster = 7, .size = 5}).Directory("SUB", 8);
  expected.Chain({7}).Data(7, "hello");
  expected.Chain({8}).InCluster(8).DotEntries(8, 0).Directory("DEEP", 9);
  expected.Chain({9}).InCluster(9).DotEntries(9, 8).File("EMPTY");
  EXPECT_EQ(BytesOf(image), expected.Bytes());
}

}  // namespace
}  // namespace quorbix::virtdisk::internal

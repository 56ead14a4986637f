#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fat16/fat16_image.h"
#include "support/blank_disk.h"
#include "support/image_bytes.h"

namespace quorbix::virtdisk::internal {
namespace {

using test::BlankDisk;
using test::BytesOf;
using test::ImageCrafter;

class FileData : public testing::Test {
 protected:
  // 65,536 bytes: 92 clusters of 512 bytes.
  FileData() {
    EXPECT_TRUE(image.Init(65536, err)) << err;
    image.WriteBootSector("", 0);
    image.SetVolumeLabel("");
    image.WriteMbr();
  }

  std::uint16_t Add(std::string_view shortName, const std::string& content) {
    return image.AddFile(0, shortName, reinterpret_cast<const std::uint8_t*>(content.data()),
                         static_cast<std::uint32_t>(content.size()), err);
  }

  Fat16Image image;
  std::string err;
};

TEST_F(FileData, EmptyFile_TakesNoClusterAndReturnsAllOnes) {
  EXPECT_EQ(Add("EMPTY   DAT", ""), 0xFFFF);
  EXPECT_EQ(BytesOf(image), BlankDisk({}).File("EMPTY.DAT").Bytes());
  EXPECT_EQ(image.AllocCluster(), 2);
}

TEST_F(FileData, ExactlyOneCluster_TakesOne) {
  EXPECT_EQ(Add("ONE        ", std::string(512, 'o')), 2);
  ImageCrafter expected = BlankDisk({});
  expected.File("ONE", {.firstCluster = 2, .size = 512}).Chain({2}).Fill(2, 'o');
  EXPECT_EQ(BytesOf(image), expected.Bytes());
}

TEST_F(FileData, OneByteMore_TakesTwo) {
  EXPECT_EQ(Add("TWO        ", std::string(513, 't')), 2);
  ImageCrafter expected = BlankDisk({});
  expected.File("TWO", {.firstCluster = 2, .size = 513}).Chain({2, 3}).Fill(2, 't').Data(3, "t");
  EXPECT_EQ(BytesOf(image), expected.Bytes());
}

TEST_F(FileData, FirstCluster_FollowsTheSeed) {
  image.SeedClusterAllocator(1000);  // 1,000 mod 92 = 80
  EXPECT_EQ(Add("SEEDED     ", "x"), 82);
}

TEST_F(FileData, ChainThatWraps_GoesOnAtTwo) {
  image.SeedClusterAllocator(90);
  EXPECT_EQ(Add("WRAP       ", std::string(3 * 512, 'w')), 92);
  ImageCrafter expected = BlankDisk({});
  expected.File("WRAP", {.firstCluster = 92, .size = 1536}).Chain({92, 93, 2});
  expected.Fill(92, 'w').Fill(93, 'w').Fill(2, 'w');
  EXPECT_EQ(BytesOf(image), expected.Bytes());
}

TEST_F(FileData, ShortNameOfFewerThan11Characters_IsPadded) {
  ASSERT_EQ(Add("AB", ""), 0xFFFF);
  EXPECT_EQ(BytesOf(image), BlankDisk({}).RawSlot("AB         ", {}).Bytes());
}

TEST_F(FileData, ShortNameOfMoreThan11Characters_IsCut) {
  ASSERT_EQ(Add("ABCDEFGHIJKLM", ""), 0xFFFF);
  EXPECT_EQ(BytesOf(image), BlankDisk({}).RawSlot("ABCDEFGHIJK", {}).Bytes());
}

TEST_F(FileData, FileThatFillsTheDisk_Fits) {
  EXPECT_EQ(Add("ALL        ", std::string(92 * 512, 'a')), 2);
  EXPECT_EQ(Add("EMPTY      ", ""), 0xFFFF);
}

TEST_F(FileData, FileOfOneByteMoreThanTheDisk_FailsWhileWriting) {
  err = "what was there before";
  EXPECT_EQ(Add("ALL        ", std::string(92 * 512 + 1, 'a')), 0);
  EXPECT_EQ(err, "Disk full while writing file");
}

TEST_F(FileData, FileOnAFullDisk_FailsAtItsFirstCluster) {
  ASSERT_NE(Add("ALL        ", std::string(92 * 512, 'a')), 0);
  EXPECT_EQ(Add("MORE       ", "m"), 0);
  EXPECT_EQ(err, "Disk full");
}

TEST_F(FileData, FailedAdd_GivesItsClustersNotBack) {
  ASSERT_EQ(Add("ALL        ", std::string(92 * 512 + 1, 'a')), 0);
  EXPECT_EQ(image.AllocCluster(), 0);
}

TEST_F(FileData, SuccessfulAdd_LeavesTheMessageAlone) {
  err = "an older message";
  ASSERT_EQ(Add("A          ", "a"), 2);
  EXPECT_EQ(err, "an older message");
}

// 33 MiB: 8 sectors, so 4,096 bytes and 128 slots, to a cluster.
class LargeClusters : public testing::Test {
 protected:
  LargeClusters() {
    EXPECT_TRUE(image.Init(33 * 1048576, err)) << err;
    image.WriteBootSector("", 0);
    image.SetVolumeLabel("");
    image.WriteMbr();
  }

  static ImageCrafter Blank() {
    return BlankDisk({.sectorsPerCluster = 8,
                      .sectorsPerFat = 33,
                      .clusters = 8435,
                      .trailingSectors = 4,
                      .partitionSectors = 67583,
                      .lastSectorChs = {0x00, 0x30, 0x43}});
  }

  Fat16Image image;
  std::string err;
};

TEST_F(LargeClusters, Files_TakeOneClusterAndOneByteMoreTakesTwo) {
  const std::string content(4097, 'x');
  const auto* data = reinterpret_cast<const std::uint8_t*>(content.data());
  EXPECT_EQ(image.AddFile(0, "ONE", data, 4096, err), 2);
  EXPECT_EQ(image.AddFile(0, "TWO", data, 4097, err), 3);
  ImageCrafter expected = Blank();
  expected.File("ONE", {.firstCluster = 2, .size = 4096}).Chain({2}).Fill(2, 'x');
  expected.File("TWO", {.firstCluster = 3, .size = 4097}).Chain({3, 4}).Fill(3, 'x').Data(4, "x");
  EXPECT_TRUE(BytesOf(image) == expected.Bytes());
}

TEST_F(LargeClusters, Subdirectory_GrowsAfter126EntriesBesideTheDots) {
  ASSERT_EQ(image.AddDirectory(0, "SUB", err), 2);
  ImageCrafter expected = Blank();
  expected.Directory("SUB", 2).Chain({2, 3}).InCluster(2).DotEntries(2, 0);
  for (int i = 0; i < 127; ++i) {
    const std::string name = "F" + std::to_string(i);
    ASSERT_EQ(image.AddFile(2, name, nullptr, 0, err), 0xFFFF);
    expected.File(name);
  }
  EXPECT_TRUE(BytesOf(image) == expected.Bytes());
}

}  // namespace
}  // namespace quorbix::virtdisk::internal

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fat16/fat16_image.h"
#include "support/image_bytes.h"

namespace quorbix::virtdisk::internal {
namespace {

using test::BytesOf;

// 65,536 bytes: FATs at 1,024 and 1,536, root at 2,048, cluster 2 at 18,432, 16 slots to a cluster.
constexpr std::int64_t kRootOffset = 2048;
constexpr std::int64_t kDataOffset = 18432;

class DirectorySlots : public testing::Test {
 protected:
  DirectorySlots() { EXPECT_TRUE(image.Init(65536, err)) << err; }

  void AddEmptyFiles(std::uint32_t directory, int count) {
    for (int i = 0; i < count; ++i) {
      ASSERT_EQ(image.AddFile(directory, "FILE", nullptr, 0, err), 0xFFFF) << i << ": " << err;
    }
  }

  void TakeAllClusters() {
    while (image.AllocCluster() != 0) continue;
  }

  Fat16Image image;
  std::string err;
};

TEST_F(DirectorySlots, FindFreeDirSlot_GivesTheRootsSlotsInOrder) {
  EXPECT_EQ(image.FindFreeDirSlot(0, err), kRootOffset);
  AddEmptyFiles(0, 3);
  EXPECT_EQ(image.FindFreeDirSlot(0, err), kRootOffset + 3 * 32);
}

TEST_F(DirectorySlots, FindFreeDirSlot_WithoutAWriteGivesTheSameSlotAgain) {
  EXPECT_EQ(image.FindFreeDirSlot(0, err), kRootOffset);
  EXPECT_EQ(image.FindFreeDirSlot(0, err), kRootOffset);
}

TEST_F(DirectorySlots, FindFreeDirSlot_TakesASlotThatLooksDeleted) {
  AddEmptyFiles(0, 1);
  ASSERT_EQ(image.AddFile(0, "\xE5LD", nullptr, 0, err), 0xFFFF);
  EXPECT_EQ(image.FindFreeDirSlot(0, err), kRootOffset + 32);
}

// Meant, odd as it is: nothing of a label is mapped, and 0xE5 as a first byte says "deleted".
TEST_F(DirectorySlots, ALabelThatBeginsWithE5_GivesItsSlotToTheFirstEntry) {
  image.SetVolumeLabel(
      "\xE5"
      "abc");
  EXPECT_EQ(image.FindFreeDirSlot(0, err), kRootOffset);
}

TEST_F(DirectorySlots, The513thEntryOfTheRoot_Fails) {
  AddEmptyFiles(0, 512);
  err = "what was there before";
  EXPECT_EQ(image.FindFreeDirSlot(0, err), -1);
  EXPECT_EQ(err, "Root directory is full");
}

TEST_F(DirectorySlots, TheLabelEntry_CountsAsOneOfTheRoots512) {
  image.SetVolumeLabel("LABEL");
  AddEmptyFiles(0, 511);
  EXPECT_EQ(image.AddFile(0, "FILE", nullptr, 0, err), 0);
  EXPECT_EQ(err, "Root directory is full");
}

TEST_F(DirectorySlots, AddFileWithContent_InAFullRootFails) {
  AddEmptyFiles(0, 512);
  const std::uint8_t byte = 'x';
  EXPECT_EQ(image.AddFile(0, "FILE", &byte, 1, err), 0);
  EXPECT_EQ(err, "Root directory is full");
}

TEST_F(DirectorySlots, AddDirectory_InAFullRootFails) {
  AddEmptyFiles(0, 512);
  EXPECT_EQ(image.AddDirectory(0, "DIR", err), 0);
  EXPECT_EQ(err, "Root directory is full");
}

TEST_F(DirectorySlots, AddDirectory_WithoutAFreeClusterFails) {
  TakeAllClusters();
  EXPECT_EQ(image.AddDirectory(0, "DIR", err), 0);
  EXPECT_EQ(err, "Disk full");
}

TEST_F(DirectorySlots, AddDirectory_TakesItsOwnClusterBeforeItsParentGrows) {
  ASSERT_EQ(image.AddDirectory(0, "DIR", err), 2);
  AddEmptyFiles(2, 14);
  EXPECT_EQ(image.AddDirectory(2, "INNER", err), 3);
  EXPECT_EQ(image.FindFreeDirSlot(2, err), kDataOffset + 2 * 512 + 32);  // cluster 4, second slot
}

TEST_F(DirectorySlots, ASubdirectory_HasRoomFor14EntriesBesideTheDots) {
  ASSERT_EQ(image.AddDirectory(0, "DIR", err), 2);
  EXPECT_EQ(image.FindFreeDirSlot(2, err), kDataOffset + 2 * 32);
  AddEmptyFiles(2, 13);
  EXPECT_EQ(image.FindFreeDirSlot(2, err), kDataOffset + 15 * 32);
}

TEST_F(DirectorySlots, AFullSubdirectory_GrowsByALinkedCluster) {
  image.SeedClusterAllocator(2);
  ASSERT_EQ(image.AddDirectory(0, "DIR", err), 4);
  image.SeedClusterAllocator(7);
  AddEmptyFiles(4, 14);
  const std::vector<std::uint8_t> before = BytesOf(image);

  EXPECT_EQ(image.FindFreeDirSlot(4, err), kDataOffset + 7 * 512);

  std::vector<std::uint8_t> expected = before;
  for (const std::size_t fat : {1024u, 1536u}) {
    expected[fat + 8] = 9;
    expected[fat + 9] = 0;
    expected[fat + 18] = expected[fat + 19] = 0xFF;
  }
  EXPECT_EQ(BytesOf(image), expected);
}

TEST_F(DirectorySlots, AFullSubdirectoryOnAFullDisk_CannotGrow) {
  ASSERT_EQ(image.AddDirectory(0, "DIR", err), 2);
  AddEmptyFiles(2, 14);
  TakeAllClusters();
  err = "what was there before";
  EXPECT_EQ(image.FindFreeDirSlot(2, err), -1);
  EXPECT_EQ(err, "Disk full, cannot extend directory");
  EXPECT_EQ(image.FindFreeDirSlot(2, err), -1);
}

TEST_F(DirectorySlots, AddFileAndAddDirectory_PassTheMessageOfTheSlotSearchOn) {
  ASSERT_EQ(image.AddDirectory(0, "DIR", err), 2);
  AddEmptyFiles(2, 14);
  const std::uint8_t byte = 'x';
  for (int i = 0; i < 90; ++i) ASSERT_NE(image.AllocCluster(), 0);
  EXPECT_EQ(image.AddFile(2, "LAST", &byte, 1, err), 0);  // takes the last cluster, then no slot
  EXPECT_EQ(err, "Disk full, cannot extend directory");
}

TEST_F(DirectorySlots, AddDirectory_PassesTheMessageOfTheSlotSearchOn) {
  ASSERT_EQ(image.AddDirectory(0, "DIR", err), 2);
  AddEmptyFiles(2, 14);
  for (int i = 0; i < 90; ++i) ASSERT_NE(image.AllocCluster(), 0);
  EXPECT_EQ(image.AddDirectory(2, "LAST", err), 0);
  EXPECT_EQ(err, "Disk full, cannot extend directory");
}

TEST_F(DirectorySlots, InterleavedDirectories_FillTheirOwnSlotsInOrder) {
  ASSERT_EQ(image.AddDirectory(0, "A", err), 2);
  ASSERT_EQ(image.AddDirectory(0, "B", err), 3);
  for (unsigned i = 0; i < 40; ++i) {
    const std::string name = "F" + std::to_string(i);
    ASSERT_EQ(image.AddFile(2 + i % 2, name, nullptr, 0, err), 0xFFFF);
  }
  std::vector<std::uint8_t> bytes = BytesOf(image);
  // A's chain is 2, 4; B's is 3, 5: each grew when its 15th entry came.
  EXPECT_EQ(bytes[1024 + 4], 4);
  EXPECT_EQ(bytes[1024 + 6], 5);
  const auto nameAt = [&](std::int64_t offset) {
    return std::string(bytes.begin() + offset, bytes.begin() + offset + 4);
  };
  EXPECT_EQ(nameAt(kDataOffset + 15 * 32), "F26 ");           // A's 14th
  EXPECT_EQ(nameAt(kDataOffset + 2 * 512), "F28 ");           // A's 15th, in cluster 4
  EXPECT_EQ(nameAt(kDataOffset + 3 * 512 + 5 * 32), "F39 ");  // B's 20th, in cluster 5
}

}  // namespace
}  // namespace quorbix::virtdisk::internal

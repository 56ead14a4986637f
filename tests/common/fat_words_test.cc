#include "common/fat_words.h"

#include <gtest/gtest.h>

#include <vector>

namespace quorbix::virtdisk::internal {
namespace {

TEST(FatWords, OnlyZero_IsFree) {
  EXPECT_TRUE(fat::IsFree(0x0000));
  EXPECT_FALSE(fat::IsFree(0x0001));
  EXPECT_FALSE(fat::IsFree(0xFFFF));
}

TEST(FatWords, EndOfChain_BeginsAtFFF8) {
  EXPECT_FALSE(fat::IsEndOfChain(0xFFF7));
  EXPECT_TRUE(fat::IsEndOfChain(0xFFF8));
  EXPECT_TRUE(fat::IsEndOfChain(0xFFFF));
}

TEST(FatWords, EverythingFromTwoToTheBadMark_LeadsToACluster) {
  for (const std::uint16_t word :
       std::vector<std::uint16_t>{0x0002, 0x1234, 0xFFEF, 0xFFF0, 0xFFF7}) {
    EXPECT_TRUE(fat::LeadsToCluster(word)) << word;
  }
  for (const std::uint16_t word : std::vector<std::uint16_t>{0x0000, 0x0001, 0xFFF8, 0xFFFF}) {
    EXPECT_FALSE(fat::LeadsToCluster(word)) << word;
  }
}

}  // namespace
}  // namespace quorbix::virtdisk::internal

#include "guard/kept_contents.h"

#include <gtest/gtest.h>

namespace quorbix::virtdisk::internal::guard {
namespace {

const Content kOne{.hash = 1, .size = 3};

TEST(KeptContents, WhatIsKept_IsFoundByItsPathAndContent) {
  KeptContents kept;
  kept.Keep("a", kOne, {1, 2, 3});
  ASSERT_NE(kept.Find("a", kOne), nullptr);
  EXPECT_EQ(*kept.Find("a", kOne), (std::vector<std::uint8_t>{1, 2, 3}));
  EXPECT_EQ(kept.Find("b", kOne), nullptr);
  EXPECT_EQ(kept.Find("a", {.hash = 2, .size = 3}), nullptr);
}

TEST(KeptContents, Room_IsOneForAllFiles) {
  KeptContents kept;
  EXPECT_TRUE(kept.HasRoomFor(kMostKeptBytes));
  EXPECT_FALSE(kept.HasRoomFor(kMostKeptBytes + 1));
  kept.Keep("a", kOne, {1, 2, 3});
  EXPECT_TRUE(kept.HasRoomFor(kMostKeptBytes - 3));
  EXPECT_FALSE(kept.HasRoomFor(kMostKeptBytes - 2));
  kept.Clear();
  EXPECT_TRUE(kept.HasRoomFor(kMostKeptBytes));
  EXPECT_EQ(kept.Find("a", kOne), nullptr);
}

TEST(KeptContents, WhatComesInItsPlace_GivesItsRoomBack) {
  KeptContents kept;
  kept.Keep("a", kOne, {1, 2, 3});
  kept.Keep("a", {.hash = 2, .size = 1}, {4});
  EXPECT_EQ(kept.Find("a", kOne), nullptr);
  EXPECT_TRUE(kept.HasRoomFor(kMostKeptBytes - 1));
  EXPECT_FALSE(kept.HasRoomFor(kMostKeptBytes));
}

TEST(KeptContents, FileOfTheDisk_IsNoneOfTheFolder) {
  KeptContents kept;
  kept.Keep(KeptContents::KeyOnDisk("a"), kOne, {1, 2, 3});
  EXPECT_EQ(kept.Find("a", kOne), nullptr);
  EXPECT_NE(kept.Find(KeptContents::KeyOnDisk("a"), kOne), nullptr);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard

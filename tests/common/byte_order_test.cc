#include "common/byte_order.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

namespace quorbix::virtdisk::internal {
namespace {

using ::testing::ElementsAre;

TEST(ByteOrder, Load_TakesTheLowByteFirst) {
  const std::array<std::uint8_t, 5> bytes = {0xFF, 0x12, 0x34, 0x56, 0x89};
  EXPECT_EQ(LoadU16(&bytes[1]), 0x3412);
  EXPECT_EQ(LoadU32(&bytes[1]), 0x89563412u);
}

TEST(ByteOrder, Store_PutsTheLowByteFirstAndTouchesNoOther) {
  std::array<std::uint8_t, 8> bytes{};
  StoreU16(&bytes[1], 0xBEEF);
  StoreU32(&bytes[3], 0x89ABCDEF);
  EXPECT_THAT(bytes, ElementsAre(0x00, 0xEF, 0xBE, 0xEF, 0xCD, 0xAB, 0x89, 0x00));
}

}  // namespace
}  // namespace quorbix::virtdisk::internal

#include "common/partition_types.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace quorbix::virtdisk::internal {
namespace {

TEST(PartitionTypes, FourOfAll_AreSupported) {
  std::vector<int> supported;
  for (int type = 0; type < 256; ++type) {
    if (partition_entry::IsSupportedType(static_cast<std::uint8_t>(type))) {
      supported.push_back(type);
    }
  }
  EXPECT_THAT(supported, testing::ElementsAre(0x01, 0x04, 0x06, 0x0E));
}

}  // namespace
}  // namespace quorbix::virtdisk::internal

#ifndef QUORBIX_VIRTDISK_TESTS_FAT16_FAT16_FIXTURE_H_
#define QUORBIX_VIRTDISK_TESTS_FAT16_FAT16_FIXTURE_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "fat16/fat16_image.h"
#include "support/sizes.h"

namespace quorbix::virtdisk::internal {

using test::kMiB;

inline Fat16Image EmptyImage(std::uint64_t sizeBytes) {
  Fat16Image image;
  std::string err;
  EXPECT_TRUE(image.Init(sizeBytes, err)) << err;
  return image;
}

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_TESTS_FAT16_FAT16_FIXTURE_H_

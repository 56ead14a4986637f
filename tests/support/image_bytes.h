#ifndef QUORBIX_VIRTDISK_TESTS_SUPPORT_IMAGE_BYTES_H_
#define QUORBIX_VIRTDISK_TESTS_SUPPORT_IMAGE_BYTES_H_

#include <cstdint>
#include <vector>

#include "fat16/fat16_image.h"

namespace quorbix::virtdisk::test {

// A copy of the image as it is now, for comparisons.
inline std::vector<std::uint8_t> BytesOf(const internal::Fat16Image& image) {
  return {image.Bytes().begin(), image.Bytes().end()};
}

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_SUPPORT_IMAGE_BYTES_H_

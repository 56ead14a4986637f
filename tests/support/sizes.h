#ifndef QUORBIX_VIRTDISK_TESTS_SUPPORT_SIZES_H_
#define QUORBIX_VIRTDISK_TESTS_SUPPORT_SIZES_H_

#include <cstdint>

namespace quorbix::virtdisk::test {

inline constexpr std::uint64_t kKiB = 1024;
inline constexpr std::uint64_t kMiB = 1024 * kKiB;

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_SUPPORT_SIZES_H_

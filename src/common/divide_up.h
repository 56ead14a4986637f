#ifndef QUORBIX_VIRTDISK_COMMON_DIVIDE_UP_H_
#define QUORBIX_VIRTDISK_COMMON_DIVIDE_UP_H_

#include <cstdint>

namespace quorbix::virtdisk::internal {

// How many units it takes to hold an amount. No sum in it, so that nothing wraps.
constexpr std::uint64_t DivideUp(std::uint64_t amount, std::uint64_t unit) {
  return amount / unit + (amount % unit != 0 ? 1 : 0);
}

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_COMMON_DIVIDE_UP_H_

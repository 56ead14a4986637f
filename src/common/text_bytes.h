#ifndef QUORBIX_VIRTDISK_COMMON_TEXT_BYTES_H_
#define QUORBIX_VIRTDISK_COMMON_TEXT_BYTES_H_

#include <cstdint>
#include <span>
#include <string_view>

namespace quorbix::virtdisk::internal {

// A text as bytes to hash or write; as long as the text lives.
inline std::span<const std::uint8_t> AsBytes(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_COMMON_TEXT_BYTES_H_

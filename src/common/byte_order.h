#ifndef QUORBIX_VIRTDISK_COMMON_BYTE_ORDER_H_
#define QUORBIX_VIRTDISK_COMMON_BYTE_ORDER_H_

#include <cstdint>

namespace quorbix::virtdisk::internal {

// Little-endian access to a disk's bytes, at any alignment. None of these checks bounds: the caller
// vouches for as many bytes at `p` as the name says.

inline std::uint16_t LoadU16(const std::uint8_t* p) {
  return static_cast<std::uint16_t>(p[0] | (p[1] << 8));
}

inline std::uint32_t LoadU32(const std::uint8_t* p) {
  return std::uint32_t{p[0]} | (std::uint32_t{p[1]} << 8) | (std::uint32_t{p[2]} << 16) |
         (std::uint32_t{p[3]} << 24);
}

inline void StoreU16(std::uint8_t* p, std::uint16_t value) {
  p[0] = static_cast<std::uint8_t>(value);
  p[1] = static_cast<std::uint8_t>(value >> 8);
}

inline void StoreU32(std::uint8_t* p, std::uint32_t value) {
  p[0] = static_cast<std::uint8_t>(value);
  p[1] = static_cast<std::uint8_t>(value >> 8);
  p[2] = static_cast<std::uint8_t>(value >> 16);
  p[3] = static_cast<std::uint8_t>(value >> 24);
}

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_COMMON_BYTE_ORDER_H_

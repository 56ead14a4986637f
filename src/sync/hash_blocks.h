#ifndef QUORBIX_VIRTDISK_SYNC_HASH_BLOCKS_H_
#define QUORBIX_VIRTDISK_SYNC_HASH_BLOCKS_H_

#include <cstddef>
#include <cstdint>

namespace quorbix::virtdisk::internal {

inline constexpr std::uint64_t kHashPrime = 0x100000001B3;

// Modulo 2^64. The multiplications grow with the number of bits of `exponent` only.
constexpr std::uint64_t Power(std::uint64_t base, std::uint64_t exponent) {
  std::uint64_t power = 1;
  for (; exponent != 0; exponent >>= 1) {
    if ((exponent & 1) != 0) power *= base;
    base *= base;
  }
  return power;
}

// Hashes whole blocks only: `count` blocks of `blockBytes` bytes at `data`, of any alignment.
struct BlockHash {
  std::size_t blockBytes;
  std::uint64_t (*hash)(const std::uint8_t* data, std::size_t count, std::uint64_t state);
};

inline constexpr std::size_t kMostSmallBlockBytes = 1024;

// One instruction set's blocks. Large ones take less time per byte, small ones less altogether.
struct BlockHashes {
  BlockHash large;
  BlockHash small;
};

#if defined(__x86_64__)
namespace avx2 {
extern const BlockHashes kBlockHashes;
}
namespace avx512 {
extern const BlockHashes kBlockHashes;
}
#endif

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_SYNC_HASH_BLOCKS_H_

#ifndef QUORBIX_VIRTDISK_SYNC_HASH_BYTES_H_
#define QUORBIX_VIRTDISK_SYNC_HASH_BYTES_H_

#include <cstdint>
#include <span>

namespace quorbix::virtdisk::internal {

// The hash of no bytes, and so the state that hashing starts from.
inline constexpr std::uint64_t kEmptyHash = 0x14650FB0739D0383;

// Returns the 64-bit content hash of `bytes`: FNV-1a from kEmptyHash, which is not the published
// start value, deliberately. Content that lies in pieces is hashed piece by piece, each with the
// hash of those before it as `state`.
std::uint64_t HashBytes(std::span<const std::uint8_t> bytes, std::uint64_t state = kEmptyHash);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_SYNC_HASH_BYTES_H_

#ifndef QUORBIX_VIRTDISK_TESTS_SYNC_KNOWN_HASHES_H_
#define QUORBIX_VIRTDISK_TESTS_SYNC_KNOWN_HASHES_H_

#include <cstdint>

namespace quorbix::virtdisk::internal {

// Calculated outside this project.
inline constexpr std::uint64_t kHashOfNothing = 0x14650FB0739D0383;
inline constexpr std::uint64_t kHashOfAbc = 0xE16801510DB89EFD;

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_TESTS_SYNC_KNOWN_HASHES_H_

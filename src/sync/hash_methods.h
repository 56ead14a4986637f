#ifndef QUORBIX_VIRTDISK_SYNC_HASH_METHODS_H_
#define QUORBIX_VIRTDISK_SYNC_HASH_METHODS_H_

#include <cstddef>
#include <cstdint>
#include <span>

namespace quorbix::virtdisk::internal {

// One way to do what HashBytes does. All give the same hash; they differ in speed.
struct HashMethod {
  const char* name;
  bool (*runsHere)();  // on this processor, under this system
  std::uint64_t (*hash)(std::span<const std::uint8_t> bytes, std::uint64_t state);
};

// The quickest first. The last one is the plain loop, which runs everywhere.
std::span<const HashMethod> HashMethods();

// Byte after byte.
std::uint64_t HashPlainly(std::span<const std::uint8_t> bytes, std::uint64_t state);

// Fewer bytes, also at the end of longer content, are left to the plain loop: a block, full or not,
// takes as long as 130 to 145 bytes take there.
inline constexpr std::size_t kLeastBytesForBlocks = 160;

// The first of `methods` that runs here and gives the right hash of a sample, or else the last.
const HashMethod& ChooseHashMethod(std::span<const HashMethod> methods);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_SYNC_HASH_METHODS_H_

#include "sync/hash_bytes.h"

#include "sync/hash_methods.h"

namespace quorbix::virtdisk::internal {

std::uint64_t HashBytes(std::span<const std::uint8_t> bytes, std::uint64_t state) {
  if (bytes.size() < kLeastBytesForBlocks) return HashPlainly(bytes, state);
  static const HashMethod& method = ChooseHashMethod(HashMethods());
  return method.hash(bytes, state);
}

}  // namespace quorbix::virtdisk::internal

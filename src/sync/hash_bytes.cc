#include "sync/hash_bytes.h"

namespace quorbix::virtdisk::internal {
namespace {

constexpr std::uint64_t kPrime = 0x100000001B3;

}  // namespace

std::uint64_t HashBytes(std::span<const std::uint8_t> bytes, std::uint64_t state) {
  for (const std::uint8_t byte : bytes) state = (state ^ byte) * kPrime;
  return state;
}

}  // namespace quorbix::virtdisk::internal

#include "sync/hash_methods.h"

#include <array>
#include <cstring>

#include "sync/hash_blocks.h"
#include "sync/hash_bytes.h"

namespace quorbix::virtdisk::internal {
namespace {

#if defined(__x86_64__)

constexpr std::uint64_t kInversePrime = Power(kHashPrime, (std::uint64_t{1} << 62) - 1);
static_assert(kHashPrime * kInversePrime == 1);

// Zeros behind the bytes fill the block. Each multiplies the state by the prime, which is undone.
std::uint64_t HashPadded(const BlockHash& blocks, std::span<const std::uint8_t> bytes,
                         std::uint64_t state) {
  std::array<std::uint8_t, kMostSmallBlockBytes> padded;
  const std::size_t zeros = blocks.blockBytes - bytes.size();
  std::memcpy(padded.data(), bytes.data(), bytes.size());
  std::memset(padded.data() + bytes.size(), 0, zeros);
  return blocks.hash(padded.data(), 1, state) * Power(kInversePrime, zeros);
}

std::uint64_t HashByBlocks(const BlockHashes& hashes, std::span<const std::uint8_t> bytes,
                           std::uint64_t state) {
  for (const BlockHash& blocks : {hashes.large, hashes.small}) {
    const std::size_t count = bytes.size() / blocks.blockBytes;
    state = blocks.hash(bytes.data(), count, state);
    bytes = bytes.subspan(count * blocks.blockBytes);
  }
  if (bytes.size() < kLeastBytesForBlocks) return HashPlainly(bytes, state);
  return HashPadded(hashes.small, bytes, state);
}

std::uint64_t HashWithAvx512(std::span<const std::uint8_t> bytes, std::uint64_t state) {
  return HashByBlocks(avx512::kBlockHashes, bytes, state);
}

std::uint64_t HashWithAvx2(std::span<const std::uint8_t> bytes, std::uint64_t state) {
  return HashByBlocks(avx2::kBlockHashes, bytes, state);
}

// Both ask the operating system as well, which has to keep the wide registers of each thread.
bool HasAvx512() {
  return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
         __builtin_cpu_supports("avx512vnni");
}

bool HasAvx2() { return __builtin_cpu_supports("avx2"); }

#endif

bool Everywhere() { return true; }

constexpr HashMethod kMethods[] = {
#if defined(__x86_64__)
    {"avx512", HasAvx512, HashWithAvx512},
    {"avx2", HasAvx2, HashWithAvx2},
#endif
    {"plain", Everywhere, HashPlainly},
};

// A wrong hash would pass for a changed file and have the other side's content overwritten. No test
// has seen every processor and every emulator of one, so that each proves itself once, in some ten
// microseconds, on a sample of large blocks, small blocks and a padded rest.
bool AgreesWithPlainLoop(const HashMethod& method) {
  std::array<std::uint8_t, 4096 + 1024 + 500> sample;
  std::uint64_t random = kEmptyHash;
  for (std::uint8_t& byte : sample) {
    random = random * 6364136223846793005 + 1;
    byte = static_cast<std::uint8_t>(random >> 56);
  }
  return method.hash(sample, kEmptyHash) == HashPlainly(sample, kEmptyHash);
}

}  // namespace

std::span<const HashMethod> HashMethods() { return kMethods; }

std::uint64_t HashPlainly(std::span<const std::uint8_t> bytes, std::uint64_t state) {
  for (const std::uint8_t byte : bytes) state = (state ^ byte) * kHashPrime;
  return state;
}

const HashMethod& ChooseHashMethod(std::span<const HashMethod> methods) {
  for (const HashMethod& method : methods) {
    if (method.runsHere() && AgreesWithPlainLoop(method)) return method;
  }
  return methods.back();
}

}  // namespace quorbix::virtdisk::internal

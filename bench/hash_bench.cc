// The content hash by each method that this processor runs, over content of several sizes.
//
//   cmake --preset release && cmake --build --preset release --target hash_bench
//   build/release/bench/hash_bench
//
// Hash/METHOD/N: N bytes, hashed again and again, each time from the hash before. 160 bytes is the
// least that goes by blocks; 64 MiB lies in memory, all else in the processor's caches.

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "sync/hash_bytes.h"
#include "sync/hash_methods.h"

namespace quorbix::virtdisk::bench {
namespace {

constexpr std::size_t kKiB = 1024;
constexpr std::size_t kSizes[] = {
    64, internal::kLeastBytesForBlocks, 200, 512, 2 * kKiB, 16 * kKiB, 256 * kKiB, 64 * kKiB* kKiB};

std::vector<std::uint8_t> RandomBytes(std::size_t size) {
  std::mt19937_64 random(size);
  std::vector<std::uint8_t> bytes(size);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
  return bytes;
}

void Hash(benchmark::State& state, const internal::HashMethod& method, std::size_t size) {
  const std::vector<std::uint8_t> content = RandomBytes(size);
  std::uint64_t hash = internal::kEmptyHash;
  for (auto _ : state) hash = method.hash(content, hash);
  benchmark::DoNotOptimize(hash);
  const double bytes = static_cast<double>(size) * static_cast<double>(state.iterations());
  state.counters["bytes"] = benchmark::Counter(bytes, benchmark::Counter::kIsRate);
}

}  // namespace
}  // namespace quorbix::virtdisk::bench

int main(int argc, char** argv) {
  using namespace quorbix::virtdisk;
  benchmark::Initialize(&argc, argv);
  for (const internal::HashMethod& method : internal::HashMethods()) {
    if (!method.runsHere()) continue;
    for (const std::size_t size : bench::kSizes) {
      const std::string name = "Hash/" + std::string(method.name) + "/" + std::to_string(size);
      benchmark::RegisterBenchmark(name.c_str(), [&method, size](benchmark::State& state) {
        bench::Hash(state, method, size);
      });
    }
  }
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}

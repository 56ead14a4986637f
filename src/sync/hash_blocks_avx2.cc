#include "sync/hash_blocks.h"

#if defined(__x86_64__)

#include <immintrin.h>

// Marks each function that may use the instructions. Nothing of the standard library is called from
// such functions but what the compiler evaluates: an inline function compiled here could be the
// copy that the linker keeps for every processor.
#define VECTOR_CODE __attribute__((noinline, target("avx2")))
#define VECTOR_INLINE inline __attribute__((always_inline, target("avx2")))

namespace quorbix::virtdisk::internal::avx2 {
namespace {

constexpr std::size_t kLanes = 2;  // of 128 bits
constexpr std::size_t kVectorBytes = 16 * kLanes;

using Vector = std::uint64_t __attribute__((vector_size(kVectorBytes)));

VECTOR_INLINE __m256i Raw(Vector v) { return reinterpret_cast<__m256i>(v); }
VECTOR_INLINE Vector FromRaw(__m256i v) { return reinterpret_cast<Vector>(v); }

VECTOR_INLINE Vector LoadAligned(const std::int16_t* p) {
  return FromRaw(_mm256_load_si256(reinterpret_cast<const __m256i*>(p)));
}

VECTOR_INLINE void StoreAligned(std::int32_t* p, Vector v) {
  _mm256_store_si256(reinterpret_cast<__m256i*>(p), Raw(v));
}

// Fills each lane with 16 bytes, those of each `laneBytes` behind those of the lane before.
VECTOR_INLINE Vector LoadLanes(const std::uint8_t* p, std::size_t laneBytes) {
  const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + laneBytes));
  return FromRaw(_mm256_inserti128_si256(_mm256_castsi128_si256(low), high, 1));
}

// Interleaving takes elements from both in turn, of the lower or the upper half of each lane.
VECTOR_INLINE Vector InterleaveLow8(Vector a, Vector b) {
  return FromRaw(_mm256_unpacklo_epi8(Raw(a), Raw(b)));
}
VECTOR_INLINE Vector InterleaveHigh8(Vector a, Vector b) {
  return FromRaw(_mm256_unpackhi_epi8(Raw(a), Raw(b)));
}
VECTOR_INLINE Vector InterleaveLow32(Vector a, Vector b) {
  return FromRaw(_mm256_unpacklo_epi32(Raw(a), Raw(b)));
}
VECTOR_INLINE Vector InterleaveHigh32(Vector a, Vector b) {
  return FromRaw(_mm256_unpackhi_epi32(Raw(a), Raw(b)));
}
VECTOR_INLINE Vector InterleaveLow64(Vector a, Vector b) {
  return FromRaw(_mm256_unpacklo_epi64(Raw(a), Raw(b)));
}
VECTOR_INLINE Vector InterleaveHigh64(Vector a, Vector b) {
  return FromRaw(_mm256_unpackhi_epi64(Raw(a), Raw(b)));
}

VECTOR_INLINE Vector Add32(Vector a, Vector b) { return FromRaw(_mm256_add_epi32(Raw(a), Raw(b))); }

// Adds the products of two neighbours of signed 16 bits to each signed 32-bit element of `sums`.
VECTOR_INLINE Vector AddProducts(Vector sums, Vector a, Vector b) {
  return Add32(sums, FromRaw(_mm256_madd_epi16(Raw(a), Raw(b))));
}

// Gives each 64-bit element the xor of those before it.
VECTOR_INLINE Vector XorOfEarlier(Vector v) {
  const Vector earlierInLane = FromRaw(_mm256_slli_si256(Raw(v), 8));
  const Vector upToHere = v ^ earlierInLane;
  const Vector wholeLane = InterleaveHigh64(upToHere, upToHere);
  const Vector earlierLane =
      FromRaw(_mm256_permute2x128_si256(Raw(wholeLane), Raw(wholeLane), 0x08));
  return earlierInLane ^ earlierLane;
}

#include "sync/hash_blocks.inc"

}  // namespace

const BlockHashes kBlockHashes = {kLargeBlocks, kSmallBlocks};

}  // namespace quorbix::virtdisk::internal::avx2

#undef VECTOR_CODE
#undef VECTOR_INLINE

#endif

#include "sync/hash_blocks.h"

#if defined(__x86_64__)

#include <immintrin.h>

// As in hash_blocks_avx2.cc, with vectors of 512 bits.
#define VECTOR_CODE __attribute__((noinline, target("avx512f,avx512bw,avx512vnni")))
#define VECTOR_INLINE inline __attribute__((always_inline, target("avx512f,avx512bw,avx512vnni")))

namespace quorbix::virtdisk::internal::avx512 {
namespace {

constexpr std::size_t kLanes = 4;  // of 128 bits
constexpr std::size_t kVectorBytes = 16 * kLanes;

using Vector = std::uint64_t __attribute__((vector_size(kVectorBytes)));

// For the masked forms of instructions, where g++ 12 finds the plain ones to use undefined values.
constexpr __mmask8 kAll8 = 0xFF;
constexpr __mmask16 kAll16 = 0xFFFF;
constexpr __mmask64 kAll64 = 0xFFFFFFFFFFFFFFFF;

VECTOR_INLINE __m512i Raw(Vector v) { return reinterpret_cast<__m512i>(v); }
VECTOR_INLINE Vector FromRaw(__m512i v) { return reinterpret_cast<Vector>(v); }

VECTOR_INLINE Vector LoadAligned(const std::int16_t* p) { return FromRaw(_mm512_load_si512(p)); }

VECTOR_INLINE void StoreAligned(std::int32_t* p, Vector v) { _mm512_store_si512(p, Raw(v)); }

VECTOR_INLINE __m128i LoadLane(const std::uint8_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

VECTOR_INLINE Vector LoadLanes(const std::uint8_t* p, std::size_t laneBytes) {
  __m512i v = _mm512_castsi128_si512(LoadLane(p));
  v = _mm512_inserti32x4(v, LoadLane(p + laneBytes), 1);
  v = _mm512_inserti32x4(v, LoadLane(p + 2 * laneBytes), 2);
  return FromRaw(_mm512_inserti32x4(v, LoadLane(p + 3 * laneBytes), 3));
}

VECTOR_INLINE Vector InterleaveLow8(Vector a, Vector b) {
  return FromRaw(_mm512_maskz_unpacklo_epi8(kAll64, Raw(a), Raw(b)));
}
VECTOR_INLINE Vector InterleaveHigh8(Vector a, Vector b) {
  return FromRaw(_mm512_maskz_unpackhi_epi8(kAll64, Raw(a), Raw(b)));
}
VECTOR_INLINE Vector InterleaveLow32(Vector a, Vector b) {
  return FromRaw(_mm512_maskz_unpacklo_epi32(kAll16, Raw(a), Raw(b)));
}
VECTOR_INLINE Vector InterleaveHigh32(Vector a, Vector b) {
  return FromRaw(_mm512_maskz_unpackhi_epi32(kAll16, Raw(a), Raw(b)));
}
VECTOR_INLINE Vector InterleaveLow64(Vector a, Vector b) {
  return FromRaw(_mm512_maskz_unpacklo_epi64(kAll8, Raw(a), Raw(b)));
}
VECTOR_INLINE Vector InterleaveHigh64(Vector a, Vector b) {
  return FromRaw(_mm512_maskz_unpackhi_epi64(kAll8, Raw(a), Raw(b)));
}

VECTOR_INLINE Vector Add32(Vector a, Vector b) { return FromRaw(_mm512_add_epi32(Raw(a), Raw(b))); }

VECTOR_INLINE Vector AddProducts(Vector sums, Vector a, Vector b) {
  return FromRaw(_mm512_dpwssd_epi32(Raw(sums), Raw(a), Raw(b)));
}

// Moves the 64-bit elements `kBy` places up; zeros follow.
template <int kBy>
VECTOR_INLINE Vector MoveUp(Vector v) {
  return FromRaw(_mm512_maskz_alignr_epi64(kAll8, Raw(v), _mm512_setzero_si512(), 8 - kBy));
}

VECTOR_INLINE Vector XorOfEarlier(Vector v) {
  Vector earlier = MoveUp<1>(v);
  earlier ^= MoveUp<1>(earlier);
  earlier ^= MoveUp<2>(earlier);
  return earlier ^ MoveUp<4>(earlier);
}

#include "sync/hash_blocks.inc"

}  // namespace

const BlockHashes kBlockHashes = {kLargeBlocks, kSmallBlocks};

}  // namespace quorbix::virtdisk::internal::avx512

#undef VECTOR_CODE
#undef VECTOR_INLINE

#endif

#include "sync/hash_bytes.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "sync/hash_methods.h"

namespace quorbix::virtdisk::internal {
namespace {

using HashedContent = std::vector<std::uint8_t>;

std::uint64_t NextHash(std::uint64_t hash, std::uint8_t byte) {
  return (hash ^ byte) * 0x100000001B3;
}

std::uint64_t SerialHash(std::span<const std::uint8_t> bytes, std::uint64_t state) {
  return std::accumulate(bytes.begin(), bytes.end(), state, NextHash);
}

HashedContent RandomContent(std::size_t size, unsigned seed) {
  std::mt19937 random(seed);
  HashedContent bytes(size);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
  return bytes;
}

HashedContent PatternedContent(std::size_t size) {
  HashedContent bytes(size);
  for (std::size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<std::uint8_t>(i * i * 7 + i * 13 + (i >> 8));
  }
  return bytes;
}

// Memory of which nothing may be touched outside: the pages before and behind are locked.
class LockedInMemory {
 public:
  static constexpr std::size_t kBytes = 8192;

  LockedInMemory() : pages(::mmap(nullptr, 2 * kPage + kBytes, PROT_NONE, kFlags, -1, 0)) {
    EXPECT_NE(pages, MAP_FAILED);
    EXPECT_EQ(::mprotect(Begin(), kBytes, PROT_READ | PROT_WRITE), 0);
  }
  ~LockedInMemory() { ::munmap(pages, 2 * kPage + kBytes); }
  LockedInMemory(const LockedInMemory&) = delete;
  LockedInMemory& operator=(const LockedInMemory&) = delete;

  std::uint8_t* Begin() const { return static_cast<std::uint8_t*>(pages) + kPage; }
  std::uint8_t* End() const { return Begin() + kBytes; }

 private:
  static constexpr std::size_t kPage = 4096;
  static constexpr int kFlags = MAP_PRIVATE | MAP_ANONYMOUS;

  void* pages;
};

// Two large blocks of the widest vectors, two small ones, and a bit.
constexpr std::size_t kMixedSize = 10'300;

TEST(HashBytes, NoBytes_GiveTheStartValue) { EXPECT_EQ(HashBytes({}), 0x14650FB0739D0383u); }

TEST(HashBytes, OneZeroByte_IsTheStartValueTimesThePrime) {
  const HashedContent bytes{0};
  EXPECT_EQ(HashBytes(bytes), 0x44BD2BD473CCF799u);
}

TEST(HashBytes, EachByte_IsMixedInBeforeTheMultiplication) {
  const HashedContent bytes{'a', 'b', 'c'};
  EXPECT_EQ(HashBytes(bytes), 0xE16801510DB89EFDu);
}

TEST(HashBytes, HighBytes_CountAsUnsigned) {
  const HashedContent bytes{0xFF};
  EXPECT_EQ(HashBytes(bytes), 0x44BD24D473CCEBB4u);
}

TEST(HashBytes, Pieces_GiveTheHashOfTheWhole) {
  const HashedContent a{'a'};
  const HashedContent bc{'b', 'c'};
  EXPECT_EQ(HashBytes(bc, HashBytes(a)), 0xE16801510DB89EFDu);
}

TEST(HashBytes, LengthsAroundTheFirstBlock_GiveKnownHashes) {
  EXPECT_EQ(HashBytes(PatternedContent(159)), 0x57F78E991C3CDECBu);
  EXPECT_EQ(HashBytes(PatternedContent(160)), 0xB685DF2AFB6E3063u);
}

TEST(HashBytes, ContinuedFromAState_GivesTheHashOfTheWhole) {
  const HashedContent whole = PatternedContent(10'007);
  const std::span<const std::uint8_t> bytes(whole);
  EXPECT_EQ(HashBytes(bytes.subspan(777), HashBytes(bytes.first(777))), 0xF1A518E2D4090CD0u);
}

class EveryHashMethod : public testing::TestWithParam<HashMethod> {
 protected:
  void SetUp() override {
    if (!GetParam().runsHere()) GTEST_SKIP() << GetParam().name << ": not on this processor";
  }

  static std::uint64_t Hash(std::span<const std::uint8_t> bytes, std::uint64_t state = kEmptyHash) {
    return GetParam().hash(bytes, state);
  }
};

INSTANTIATE_TEST_SUITE_P(Named, EveryHashMethod, testing::ValuesIn(HashMethods()),
                         [](const auto& method) { return std::string(method.param.name); });

TEST_P(EveryHashMethod, PatternedContent_GivesKnownHashes) {
  EXPECT_EQ(Hash(PatternedContent(512)), 0x11BA600E1798B783u);
  EXPECT_EQ(Hash(PatternedContent(1000)), 0xC9C59D754DDD8D6Bu);
  EXPECT_EQ(Hash(PatternedContent(2048)), 0x7140B0C29D573B83u);
  EXPECT_EQ(Hash(PatternedContent(4096)), 0x724C175AAE5C8583u);
  EXPECT_EQ(Hash(PatternedContent(10'007)), 0xF1A518E2D4090CD0u);
}

TEST_P(EveryHashMethod, EqualBytes_GiveKnownHashes) {
  EXPECT_EQ(Hash(HashedContent(4096, 0)), 0xB43A063055ADC383u);
  EXPECT_EQ(Hash(HashedContent(1 << 20, 0)), 0x3965BF7A845D0383u);
  EXPECT_EQ(Hash(HashedContent(4096, 0xFF)), 0xC1E3098094335383u);
  EXPECT_EQ(Hash(HashedContent(5000, 0xFF)), 0xFA068032D89306DBu);
}

TEST_P(EveryHashMethod, EveryLength_GivesTheSerialHash) {
  const HashedContent content = RandomContent(5000, 1);
  for (const std::uint64_t state : {kEmptyHash, std::uint64_t{0}, ~std::uint64_t{0}}) {
    std::uint64_t expected = state;
    for (std::size_t size = 0; size <= content.size(); ++size) {
      ASSERT_EQ(Hash(std::span(content).first(size), state), expected) << size << " from " << state;
      if (size < content.size()) expected = NextHash(expected, content[size]);
    }
  }
}

TEST_P(EveryHashMethod, EveryLowByteOfTheState_GivesTheSerialHash) {
  const HashedContent content = RandomContent(kMixedSize, 2);
  for (std::uint64_t low = 0; low < 256; ++low) {
    const std::uint64_t state = 0xFEDCBA9876543200 + low;
    ASSERT_EQ(Hash(content, state), SerialHash(content, state)) << low;
  }
}

TEST_P(EveryHashMethod, EveryAlignment_GivesTheSerialHash) {
  const HashedContent content = RandomContent(kMixedSize + 64, 3);
  for (std::size_t offset = 0; offset < 64; ++offset) {
    const auto bytes = std::span(content).subspan(offset, kMixedSize);
    ASSERT_EQ(Hash(bytes), SerialHash(bytes, kEmptyHash)) << offset;
  }
}

TEST_P(EveryHashMethod, EverySplit_GivesTheHashOfTheWhole) {
  for (const std::size_t size : {320u, 1025u, 2700u}) {
    const HashedContent content = RandomContent(size, 4);
    const std::span<const std::uint8_t> whole(content);
    const std::uint64_t expected = SerialHash(whole, kEmptyHash);
    for (std::size_t part = 0; part <= size; ++part) {
      ASSERT_EQ(Hash(whole.subspan(part), Hash(whole.first(part))), expected) << part;
    }
  }
}

TEST_P(EveryHashMethod, RandomPieces_GiveTheHashOfTheWhole) {
  const HashedContent content = RandomContent(300'000, 5);
  std::mt19937 random(6);
  std::uniform_int_distribution<std::size_t> pieceSize(0, 9000);
  std::uint64_t hash = kEmptyHash;
  for (std::span<const std::uint8_t> rest(content); !rest.empty();) {
    const std::size_t part = std::min(rest.size(), pieceSize(random));
    hash = Hash(rest.first(part), hash);
    rest = rest.subspan(part);
  }
  EXPECT_EQ(hash, SerialHash(content, kEmptyHash));
}

TEST_P(EveryHashMethod, LongContent_GivesTheSerialHash) {
  for (const std::size_t size : {(1u << 20) - 1, (3u << 20) + 4099, 5u << 20}) {
    const HashedContent content = RandomContent(size, 7);
    EXPECT_EQ(Hash(content), SerialHash(content, kEmptyHash)) << size;
  }
}

// One bit set, or one byte unlike the others, shows a byte that lands in the wrong place.
TEST_P(EveryHashMethod, EachSingleBit_GivesTheSerialHash) {
  HashedContent content(8192, 0x5A);
  for (std::size_t i = 0; i < content.size(); i += 7) {
    content[i] ^= static_cast<std::uint8_t>(1u << (i % 8));
    ASSERT_EQ(Hash(content), SerialHash(content, kEmptyHash)) << i;
    content[i] = 0x5A;
  }
}

TEST_P(EveryHashMethod, EndOfMemory_IsNotReadBeyond) {
  const LockedInMemory memory;
  const HashedContent content = RandomContent(LockedInMemory::kBytes, 8);
  std::copy(content.begin(), content.end(), memory.Begin());
  for (std::size_t size = 1; size <= LockedInMemory::kBytes; size += 13) {
    const std::span<const std::uint8_t> atTheEnd(memory.End() - size, size);
    ASSERT_EQ(Hash(atTheEnd), SerialHash(atTheEnd, kEmptyHash)) << size;
    const std::span<const std::uint8_t> atTheBegin(memory.Begin(), size);
    ASSERT_EQ(Hash(atTheBegin), SerialHash(atTheBegin, kEmptyHash)) << size;
  }
}

bool RunsHere() { return true; }
bool DoesNotRunHere() { return false; }

std::uint64_t WrongHash(std::span<const std::uint8_t> bytes, std::uint64_t state) {
  return HashPlainly(bytes, state) ^ 1;
}

std::uint64_t ForbiddenHash(std::span<const std::uint8_t>, std::uint64_t) {
  ADD_FAILURE() << "called on a processor that does not have it";
  return 0;
}

TEST(HashMethods, PlainLoop_IsTheLastAndRunsEverywhere) {
  EXPECT_STREQ(HashMethods().back().name, "plain");
  EXPECT_TRUE(HashMethods().back().runsHere());
}

TEST(ChooseHashMethod, FirstThatRunsHere_IsTaken) {
  const HashMethod methods[] = {{"missing", DoesNotRunHere, ForbiddenHash},
                                {"quick", RunsHere, HashPlainly},
                                {"slow", RunsHere, HashPlainly}};
  EXPECT_STREQ(ChooseHashMethod(methods).name, "quick");
}

TEST(ChooseHashMethod, WrongHash_IsPassedOver) {
  const HashMethod methods[] = {{"wrong", RunsHere, WrongHash}, {"right", RunsHere, HashPlainly}};
  EXPECT_STREQ(ChooseHashMethod(methods).name, "right");
}

TEST(ChooseHashMethod, NoneFits_TakesTheLast) {
  const HashMethod methods[] = {{"missing", DoesNotRunHere, ForbiddenHash},
                                {"plain", RunsHere, HashPlainly}};
  EXPECT_STREQ(ChooseHashMethod(methods).name, "plain");
}

}  // namespace
}  // namespace quorbix::virtdisk::internal

#include "common/write_out.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <tuple>
#include <vector>

namespace {

using Range = std::tuple<off64_t, off64_t, unsigned>;
std::vector<Range> ranges;

}  // namespace

extern "C" int sync_file_range(int, off64_t offset, off64_t size, unsigned flags) {
  ranges.emplace_back(offset, size, flags);
  errno = ESPIPE;
  return -1;
}

namespace quorbix::virtdisk::internal {
namespace {

constexpr std::uint64_t kMiB = 1048576;
constexpr unsigned kBegin = SYNC_FILE_RANGE_WRITE;
constexpr unsigned kWait = SYNC_FILE_RANGE_WAIT_BEFORE;

std::vector<Range> RangesOf(std::uint64_t begin, std::uint64_t end) {
  ranges.clear();
  errno = EBUSY;
  WriteOutSoon(0, begin, end);
  EXPECT_EQ(errno, EBUSY);
  return ranges;
}

TEST(WriteOutSoon, WholePieces_AreBegunOnce) {
  EXPECT_THAT(RangesOf(0, 4 * kMiB - 1), testing::IsEmpty());
  EXPECT_THAT(RangesOf(4 * kMiB - 1, 4 * kMiB), testing::ElementsAre(Range(0, 4 * kMiB, kBegin)));
  EXPECT_THAT(RangesOf(4 * kMiB, 8 * kMiB - 1), testing::IsEmpty());
  EXPECT_THAT(
      RangesOf(4 * kMiB, 13 * kMiB),
      testing::ElementsAre(Range(4 * kMiB, 4 * kMiB, kBegin), Range(8 * kMiB, 4 * kMiB, kBegin)));
}

TEST(WriteOutSoon, FourPiecesBehind_IsWaitedFor) {
  EXPECT_THAT(RangesOf(12 * kMiB, 16 * kMiB),
              testing::ElementsAre(Range(12 * kMiB, 4 * kMiB, kBegin)));
  EXPECT_THAT(RangesOf(16 * kMiB, 20 * kMiB),
              testing::ElementsAre(Range(16 * kMiB, 4 * kMiB, kBegin), Range(0, 4 * kMiB, kWait)));
}

TEST(WriteRestOutSoon, AllOfIt_IsBegun) {
  ranges.clear();
  WriteRestOutSoon(0);
  EXPECT_THAT(ranges, testing::ElementsAre(Range(0, 0, kBegin)));
}

}  // namespace
}  // namespace quorbix::virtdisk::internal

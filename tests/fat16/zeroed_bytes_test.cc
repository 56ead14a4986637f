#include "fat16/zeroed_bytes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <new>
#include <utility>

namespace quorbix::virtdisk::internal {
namespace {

TEST(ZeroedBytes, New_AreAllZero) {
  const ZeroedBytes bytes(100001);
  bytes.PrepareToRead();
  EXPECT_EQ(bytes.size(), 100001u);
  EXPECT_EQ(std::count(bytes.Span().begin(), bytes.Span().end(), 0), 100001);
}

TEST(ZeroedBytes, PrepareToRead_KeepsWhatWasWritten) {
  ZeroedBytes bytes(5000);
  bytes.data()[4999] = 7;
  bytes.PrepareToRead();
  EXPECT_EQ(bytes.data()[4999], 7);
}

TEST(ZeroedBytes, PreferHugePages_KeepsWhatIsThere) {
  ZeroedBytes bytes(std::size_t{8} << 20);
  bytes.data()[4999] = 7;
  bytes.PreferHugePages(4990, bytes.size() - 4990);
  EXPECT_EQ(bytes.data()[4999], 7);
  EXPECT_EQ(std::count(bytes.Span().begin(), bytes.Span().end(), 0), (8 << 20) - 1);
}

TEST(ZeroedBytes, Default_IsEmpty) {
  const ZeroedBytes bytes;
  bytes.PrepareToRead();
  EXPECT_TRUE(bytes.Span().empty());
}

TEST(ZeroedBytes, MoveConstruction_LeavesTheSourceEmpty) {
  ZeroedBytes source(100);
  source.data()[3] = 9;
  const ZeroedBytes target(std::move(source));
  EXPECT_EQ(target.data()[3], 9);
  EXPECT_EQ(source.size(), 0u);
}

TEST(ZeroedBytes, MoveAssignment_ReplacesTheContent) {
  ZeroedBytes target(10);
  target = ZeroedBytes(20);
  EXPECT_EQ(target.size(), 20u);
}

TEST(ZeroedBytes, MoreThanTheAddressSpace_ThrowsBadAlloc) {
  EXPECT_THROW(ZeroedBytes(std::size_t{1} << 60), std::bad_alloc);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal

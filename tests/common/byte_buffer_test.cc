#include "common/byte_buffer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "support/instrumented.h"

namespace quorbix::virtdisk::internal {
namespace {

std::string Text(const ByteBuffer& buffer) { return {buffer.Span().begin(), buffer.Span().end()}; }

ByteBuffer BufferOf(std::string_view text) {
  ByteBuffer buffer;
  buffer.Assign(std::vector<std::uint8_t>(text.begin(), text.end()));
  return buffer;
}

bool BeginsACacheLine(const ByteBuffer& buffer) {
  return reinterpret_cast<std::uintptr_t>(buffer.data()) % 64 == 0;
}

TEST(ByteBuffer, Bytes_BeginACacheLine) {
  for (const std::size_t size : {1u, 100u, 4096u, 300'000u, 5'000'000u, 50'000'000u}) {
    const ByteBuffer fresh(size);
    ByteBuffer reused = BufferOf("content");
    reused.Reset(size);
    EXPECT_TRUE(BeginsACacheLine(fresh)) << size;
    EXPECT_TRUE(BeginsACacheLine(reused)) << size;
  }
}

TEST(ByteBuffer, Growing_KeepsTheContent) {
  ByteBuffer buffer = BufferOf("content");
  buffer.Resize(std::size_t{10} << 20);
  EXPECT_EQ(Text(buffer).substr(0, 7), "content");
}

TEST(ByteBuffer, Shrinking_KeepsTheBeginningAndItsPlace) {
  ByteBuffer buffer = BufferOf("content");
  const std::uint8_t* before = buffer.data();
  buffer.Resize(3);
  EXPECT_EQ(Text(buffer), "con");
  EXPECT_EQ(buffer.data(), before);
}

TEST(ByteBuffer, MovedFrom_IsEmpty) {
  ByteBuffer from = BufferOf("content");
  const ByteBuffer to = std::move(from);
  EXPECT_EQ(Text(to), "content");
  EXPECT_TRUE(from.empty());
}

TEST(ByteBuffer, MoreThanThereIs_ThrowsAndChangesNothing) {
  if (test::kInstrumented) GTEST_SKIP() << "sanitizers end the process where memory is refused";
  ByteBuffer buffer = BufferOf("content");
  EXPECT_THROW(buffer.Resize(std::size_t{1} << 62), std::bad_alloc);
  EXPECT_EQ(Text(buffer), "content");
}

}  // namespace
}  // namespace quorbix::virtdisk::internal

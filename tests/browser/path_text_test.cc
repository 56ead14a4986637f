#include "browser/path_text.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace quorbix::virtdisk::internal {
namespace {

std::string Trim(std::string_view field, std::size_t width) {
  const std::string bytes(field);
  return TrimPaddedAscii(reinterpret_cast<const std::uint8_t*>(bytes.data()), width);
}

TEST(NormalizePath, EmptyPath_IsTheRoot) { EXPECT_EQ(NormalizePath(""), "/"); }

TEST(NormalizePath, OnlySeparators_IsTheRoot) {
  EXPECT_EQ(NormalizePath("/"), "/");
  EXPECT_EQ(NormalizePath("///"), "/");
  EXPECT_EQ(NormalizePath("\\"), "/");
  EXPECT_EQ(NormalizePath("\\/\\"), "/");
}

TEST(NormalizePath, BackslashRunsAndTrailingSeparators_BecomeSingleSlashes) {
  EXPECT_EQ(NormalizePath("Docs\\Sub//"), "/docs/sub");
  EXPECT_EQ(NormalizePath("\\\\a\\//b"), "/a/b");
}

TEST(NormalizePath, MissingLeadingSlash_IsAdded) { EXPECT_EQ(NormalizePath("a"), "/a"); }

TEST(NormalizePath, NormalisedPath_StaysAsItIs) {
  EXPECT_EQ(NormalizePath("/docs/sub"), "/docs/sub");
}

TEST(NormalizePath, DotComponents_AreKept) {
  EXPECT_EQ(NormalizePath("a/./b"), "/a/./b");
  EXPECT_EQ(NormalizePath("a/../b"), "/a/../b");
}

TEST(NormalizePath, Blanks_AreKept) { EXPECT_EQ(NormalizePath(" a /b "), "/ a /b "); }

TEST(NormalizePath, LowerCasesAsciiLettersOnly) {
  EXPECT_EQ(NormalizePath("AMZ"), "/amz");
  EXPECT_EQ(NormalizePath("@[`{\xC4\xE4\x80"), "/@[`{\xC4\xE4\x80");
}

TEST(NormalizePath, EmbeddedNul_IsAnOrdinaryByte) {
  EXPECT_EQ(NormalizePath(std::string_view("A\0B", 3)), std::string_view("/a\0b", 4));
}

TEST(TrimPaddedAscii, FullField_IsTakenWhole) { EXPECT_EQ(Trim("ABCDEFGHI", 8), "ABCDEFGH"); }

TEST(TrimPaddedAscii, TrailingBlanks_AreRemoved) { EXPECT_EQ(Trim("AB      ", 8), "AB"); }

TEST(TrimPaddedAscii, LeadingAndInnerBlanks_AreKept) { EXPECT_EQ(Trim(" A B    ", 8), " A B"); }

TEST(TrimPaddedAscii, OnlyBlanks_IsEmpty) { EXPECT_EQ(Trim("        ", 8), ""); }

TEST(TrimPaddedAscii, Nul_EndsTheText) {
  EXPECT_EQ(Trim(std::string_view("AB \0CDEF", 8), 8), "AB");
  EXPECT_EQ(Trim(std::string_view("\0ABCDEFG", 8), 8), "");
}

TEST(TrimPaddedAscii, OtherPadding_IsKept) {
  EXPECT_EQ(Trim("AB\t\t\t\t\t\t", 8), "AB\t\t\t\t\t\t");
}

}  // namespace
}  // namespace quorbix::virtdisk::internal

#include "terminal/columns.h"

#include <gtest/gtest.h>

namespace quorbix::virtdisk::tool {
namespace {

TEST(Columns, ShortText_IsFilledUp) {
  EXPECT_EQ(AlignRight("ab", 5), "   ab");
  EXPECT_EQ(AlignLeft("ab", 5), "ab   ");
}

TEST(Columns, TextAsWideOrWider_StaysWhole) {
  EXPECT_EQ(AlignRight("abc", 3), "abc");
  EXPECT_EQ(AlignRight("abcd", 3), "abcd");
  EXPECT_EQ(AlignLeft("abc", 3), "abc");
  EXPECT_EQ(AlignLeft("abcd", 3), "abcd");
}

TEST(Columns, Directory_EndsWithASlashOutsideItsColour) {
  EXPECT_EQ(ShownDirectory("SUB", false), "SUB/");
  EXPECT_EQ(ShownDirectory("SUB", true), "\x1b[1;34mSUB\x1b[0m/");
}

}  // namespace
}  // namespace quorbix::virtdisk::tool

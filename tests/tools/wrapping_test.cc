#include "terminal/wrapping.h"

#include <gtest/gtest.h>

namespace quorbix::virtdisk::tool {
namespace {

TEST(Wrap, LineThatFits_StaysAsItIs) {
  EXPECT_EQ(Wrap("one two\n\n  three", 9), "one two\n\n  three");
  EXPECT_EQ(Wrap("", 9), "");
}

TEST(Wrap, LineThatIsTooWide_GoesOnTwoColumnsFurtherIn) {
  EXPECT_EQ(Wrap("virtdisk: no such file or directory\n", 20),
            "virtdisk: no such\n  file or directory\n");
  EXPECT_EQ(Wrap("  a hint of several words", 14), "  a hint of\n    several\n    words");
}

TEST(Wrap, LastWordThatJustFits_StaysOnItsLine) {
  EXPECT_EQ(Wrap("aaaa bbbb cccc", 9), "aaaa bbbb\n  cccc");
  EXPECT_EQ(Wrap("aaaa bbbb cccc", 8), "aaaa\n  bbbb\n  cccc");
}

TEST(Wrap, LineOfATable_GoesOnBelowItsSecondColumn) {
  EXPECT_EQ(Wrap("  --size TEXT  The size of an image in bytes", 36),
            "  --size TEXT  The size of an image\n               in bytes");
}

TEST(Wrap, TableWithoutRoomForASecondColumn_GoesOnNearTheMargin) {
  EXPECT_EQ(Wrap("  --size TEXT  The size of an image in bytes", 30),
            "  --size TEXT  The size of an\n    image in bytes");
}

TEST(Wrap, LongWords_AreNeverBroken) {
  EXPECT_EQ(Wrap("see /a/very/long/path here", 10), "see\n  /a/very/long/path\n  here");
}

TEST(Wrap, Colours_TakeNoColumns) {
  EXPECT_EQ(ColumnsOf("\x1b[38;5;16;48;5;33mA\x1b[0m b"), 3U);
  EXPECT_EQ(ColumnsOf("a\x1b[0"), 1U);
  EXPECT_EQ(Wrap("\x1b[1mA\x1b[0m bb cc", 7), "\x1b[1mA\x1b[0m bb cc");
}

TEST(Wrap, LettersOfSeveralBytes_TakeOneColumn) {
  EXPECT_EQ(ColumnsOf("caf\xC3\xA9 \xE2\x80\x94"), 6U);
  EXPECT_EQ(Wrap("caf\xC3\xA9 caf\xC3\xA9", 9), "caf\xC3\xA9 caf\xC3\xA9");
  EXPECT_EQ(Wrap("caf\xC3\xA9 caf\xC3\xA9", 8), "caf\xC3\xA9\n  caf\xC3\xA9");
}

TEST(Wrap, NoColumnsAtAll_EndsAllTheSame) { EXPECT_EQ(Wrap("a b", 0), "a\n  b"); }

}  // namespace
}  // namespace quorbix::virtdisk::tool

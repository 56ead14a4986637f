#include "terminal/text.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>

namespace quorbix::virtdisk::tool {
namespace {

TEST(Printable, Text_StaysAsItIs) { EXPECT_EQ(Printable("A file.TXT"), "A file.TXT"); }

TEST(Printable, Utf8_StaysAsItIs) {
  EXPECT_EQ(Printable("caf\xC3\xA9 \xE2\x80\x94 \xF0\x9F\x92\xBE"),
            "caf\xC3\xA9 \xE2\x80\x94 \xF0\x9F\x92\xBE");
}

TEST(Printable, TerminalSequence_BecomesHex) {
  EXPECT_EQ(Printable("A\x1B[2JB\n\r\x7F"), "A\\x1B[2JB\\x0A\\x0D\\x7F");
}

TEST(Printable, NulByte_BecomesHex) {
  EXPECT_EQ(Printable(std::string_view("A\0B", 3)), "A\\x00B");
}

TEST(Printable, ControlCharacterSpelledInUtf8_BecomesHex) {
  EXPECT_EQ(Printable("\xC2\x9B"
                      "2J"),
            "\\xC2\\x9B2J");
}

TEST(Printable, DirectionOverride_BecomesHex) {
  EXPECT_EQ(Printable("\xE2\x80\xAE"
                      "TXT"),
            "\\xE2\\x80\\xAETXT");
}

TEST(Printable, BytesThatAreNoUtf8_BecomeHexOneByOne) {
  EXPECT_EQ(Printable("\x80\xFF"
                      "A\xC3"),
            "\\x80\\xFFA\\xC3");
}

TEST(Printable, OverlongAndSurrogateForms_BecomeHex) {
  EXPECT_EQ(Printable("\xC0\xAF"), "\\xC0\\xAF");
  EXPECT_EQ(Printable("\xE0\x80\xAF"), "\\xE0\\x80\\xAF");
  EXPECT_EQ(Printable("\xED\xA0\x80"), "\\xED\\xA0\\x80");
  EXPECT_EQ(Printable("\xF4\x90\x80\x80"), "\\xF4\\x90\\x80\\x80");
}

TEST(EscapeXml, MarkupCharacters_BecomeEntities) {
  EXPECT_EQ(EscapeXml("<A&\"B'>"), "&lt;A&amp;&quot;B&#39;&gt;");
}

TEST(EscapeXml, ControlCharacters_AreNoneOfXml) { EXPECT_EQ(EscapeXml("\x01"), "\\x01"); }

TEST(GroupDigits, Numbers_AreGroupedByThree) {
  EXPECT_EQ(GroupDigits(0), "0");
  EXPECT_EQ(GroupDigits(999), "999");
  EXPECT_EQ(GroupDigits(1000), "1,000");
  EXPECT_EQ(GroupDigits(1234567), "1,234,567");
}

TEST(FormatBytes, Amounts_ReadInTheLargestUnit) {
  EXPECT_EQ(FormatBytes(0), "0 bytes");
  EXPECT_EQ(FormatBytes(1), "1 byte");
  EXPECT_EQ(FormatBytes(1023), "1,023 bytes");
  EXPECT_EQ(FormatBytes(1024), "1 KiB");
  EXPECT_EQ(FormatBytes(1536), "1.5 KiB");
  EXPECT_EQ(FormatBytes(3145728), "3 MiB");
  EXPECT_EQ(FormatBytes(4293918720), "4.0 GiB");
}

TEST(FormatBytes, AmountsThatRoundToTheNextUnit_AreInThat) {
  EXPECT_EQ(FormatBytes(1'048'524), "1023.9 KiB");
  EXPECT_EQ(FormatBytes(1'048'570), "1.0 MiB");
  EXPECT_EQ(FormatBytes((std::uint64_t{1} << 50) - 1), "1024.0 TiB");
}

TEST(Count, One_IsSingular) {
  EXPECT_EQ(Count(1, "file", "files"), "1 file");
  EXPECT_EQ(Count(2, "file", "files"), "2 files");
  EXPECT_EQ(Count(0, "file", "files"), "0 files");
}

TEST(FormatVolumeId, Id_IsTwoHexadecimalHalves) {
  EXPECT_EQ(FormatVolumeId(0x1A2B3C4D), "1A2B-3C4D");
  EXPECT_EQ(FormatVolumeId(7), "0000-0007");
}

TEST(ParseSize, PlainNumber_IsBytes) {
  EXPECT_EQ(ParseSize("65536"), 65536U);
  EXPECT_EQ(ParseSize("18446744073709551615"), std::numeric_limits<std::uint64_t>::max());
}

TEST(ParseSize, Units_ArePowersOf1024) {
  EXPECT_EQ(ParseSize("1K"), 1024U);
  EXPECT_EQ(ParseSize("64M"), 67108864U);
  EXPECT_EQ(ParseSize("2G"), 2147483648U);
  EXPECT_EQ(ParseSize("64k"), 65536U);
  EXPECT_EQ(ParseSize("64KiB"), 65536U);
  EXPECT_EQ(ParseSize("3 MiB"), 3145728U);
  EXPECT_EQ(ParseSize("1gib"), 1073741824U);
}

TEST(ParseSize, UnitsWithAB_ArePowersOf1024Too) {
  EXPECT_EQ(ParseSize("64KB"), 65536U);
  EXPECT_EQ(ParseSize("3 mb"), 3145728U);
  EXPECT_EQ(ParseSize("2GB"), 2147483648U);
}

TEST(ParseSize, FractionsOfAUnit_AreRoundedDown) {
  EXPECT_EQ(ParseSize("1.5G"), 1610612736U);
  EXPECT_EQ(ParseSize("0.25 MiB"), 262144U);
  EXPECT_EQ(ParseSize("1.0K"), 1024U);
  EXPECT_EQ(ParseSize("1.1K"), 1126U);
  EXPECT_EQ(ParseSize("0.0000001K"), std::nullopt);
}

TEST(ParseSize, Garbage_IsNoSize) {
  for (const char* text : {"", "0", "0M", "-1", "+1", "1.5", "1.M", ".5M", "1,5M", "1T", "1B", "M",
                           "64 ", "64  M", "x", "64MM", "1 000", " 64"}) {
    EXPECT_EQ(ParseSize(text), std::nullopt) << text;
  }
}

TEST(ParseSize, MoreThan64Bits_IsNoSize) {
  EXPECT_EQ(ParseSize("18446744073709551616"), std::nullopt);
  EXPECT_EQ(ParseSize("17179869184G"), std::nullopt);
  EXPECT_EQ(ParseSize("17179869183G"), 18446744072635809792U);
}

TEST(WhyNoLabel, Labels_AreWhatEverySystemShows) {
  for (const char* text : {"", "GAMES", "my disk", "ELEVEN CHAR", "A-B_C!#$%&'"}) {
    EXPECT_EQ(WhyNoLabel(text), "") << text;
  }
  EXPECT_EQ(WhyNoLabel("TWELVE CHARS"), "a label has at most 11 characters");
  EXPECT_EQ(WhyNoLabel(" A"), "a label does not begin with a blank");
  EXPECT_EQ(WhyNoLabel("A/B"), "a label has no \"/\" in it");
  EXPECT_EQ(WhyNoLabel("A\x7F"), "a label has no other characters than those of ASCII");
}

}  // namespace
}  // namespace quorbix::virtdisk::tool

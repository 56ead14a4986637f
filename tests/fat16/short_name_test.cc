#include "fat16/short_name.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <string>

#include "support/latin1_locale.h"

namespace quorbix::virtdisk::internal {
namespace {

using Names = std::unordered_set<std::string>;

struct NameRow {
  const char* name;
  std::string hostName;
  std::string shortName;
};

class ShortNameRow : public testing::TestWithParam<NameRow> {};

TEST_P(ShortNameRow, ToFat83Name_MapsTheHostName) {
  EXPECT_EQ(ToFat83Name(GetParam().hostName), GetParam().shortName);
}

INSTANTIATE_TEST_SUITE_P(
    Names, ShortNameRow,
    testing::Values(NameRow{"Empty", "", ""}, NameRow{"LoneDot", ".", ""},
                    NameRow{"TwoDotsKeepAMappedOne", "..", "_          "},
                    NameRow{"BaseAndExtension", "readme.txt", "README  TXT"},
                    NameRow{"EarlierDotsStayInTheBase", "archive.tar.gz", "ARCHIVE_GZ "},
                    NameRow{"BlanksAndPunctuationAreMapped", "a b+c.d;e", "A_B_C   D_E"},
                    NameRow{"NoDot", "makefile", "MAKEFILE   "},
                    NameRow{"DotAtTheEndIsDropped", "noext.", "NOEXT      "},
                    NameRow{"TwoDotsAtTheEnd", "noext..", "NOEXT_     "},
                    NameRow{"OnlyDotFirstLeavesAnEmptyBase", ".profile", "        PRO"},
                    NameRow{"DotFirstAndAnother", ".bash.rc", "_BASH   RC "},
                    NameRow{"BaseIsCutAt8", "LongFileName.text", "LONGFILETEX"},
                    NameRow{"ExactFit", "abcdefgh.ijk", "ABCDEFGHIJK"},
                    NameRow{"PermittedPunctuation", "!#$%&'()-@^_`{}~", "!#$%&'()   "},
                    NameRow{"PermittedPunctuationRest", "-@^_`{}~", "-@^_`{}~   "},
                    NameRow{"Digits", "0123456.789", "0123456 789"},
                    NameRow{"OtherPunctuation", "+,;=[]*?.\"/<", "___________"},
                    NameRow{"MorePunctuation", "\\|:>.a", "____    A  "},
                    NameRow{"ControlCharacters", "a\x01\x1F\x7F.b", "A___    B  "},
                    NameRow{"EveryByteOfUtf8", "\xC3\xBC\xC3\xB6.\xC3\x9F", "____    __ "},
                    NameRow{"UpperCaseStays", "README.TXT", "README  TXT"}),
    [](const testing::TestParamInfo<NameRow>& row) { return row.param.name; });

TEST(ShortName, ToFat83Name_FollowsNoLocale) {
  const test::Latin1Locale locale;
  ASSERT_EQ(std::toupper(0xE4), 0xC4) << "the locale is not in force";
  ASSERT_TRUE(std::isalnum(0xE4));
  EXPECT_EQ(ToFat83Name("\xE4i.\xFD"), "_I      _  ");
}

TEST(ShortName, UniqueFat83Name_GivesThePlainFormWhenFree) {
  EXPECT_EQ(UniqueFat83Name("longname.txt", {}), "LONGNAMETXT");
  EXPECT_EQ(UniqueFat83Name("longname.txt", {"LONGNAMETX ", "longnametxt"}), "LONGNAMETXT");
}

TEST(ShortName, UniqueFat83Name_CutsTheBaseForATail) {
  EXPECT_EQ(UniqueFat83Name("longname.txt", {"LONGNAMETXT"}), "LONGNA~1TXT");
}

TEST(ShortName, UniqueFat83Name_TakesTheFirstFreeTail) {
  EXPECT_EQ(UniqueFat83Name("longname.txt", {"LONGNAMETXT", "LONGNA~1TXT", "LONGNA~3TXT"}),
            "LONGNA~2TXT");
}

TEST(ShortName, UniqueFat83Name_GoesOnWithTwoDigits) {
  Names used = {"LONGNAMETXT"};
  for (char digit = '1'; digit <= '9'; ++digit) used.insert(std::string("LONGNA~") + digit + "TXT");
  EXPECT_EQ(UniqueFat83Name("longname.txt", used), "LONGN~10TXT");
}

TEST(ShortName, UniqueFat83Name_KeepsTheBlanksOfAShortBaseBeforeTheTail) {
  EXPECT_EQ(UniqueFat83Name("ab.txt", {"AB      TXT"}), "AB    ~1TXT");
  EXPECT_EQ(UniqueFat83Name(".pro", {"        PRO"}), "      ~1PRO");
}

TEST(ShortName, UniqueFat83Name_TellsApartUtf8NamesThatMapAlike) {
  EXPECT_EQ(UniqueFat83Name("\xC3\xA4.txt", {"__      TXT"}), "__    ~1TXT");
}

TEST(ShortName, UniqueFat83Name_OfANameWithoutAShortFormIsEmpty) {
  EXPECT_EQ(UniqueFat83Name("", {}), "");
  EXPECT_EQ(UniqueFat83Name(".", {}), "");
}

Names ThePlainFormAndTails(int last) {
  Names used = {"LONGNAMETXT"};
  for (int n = 1; n <= last; ++n) {
    used.insert((n < 10 ? "LONGNA~" : "LONGN~") + std::to_string(n) + "TXT");
  }
  return used;
}

TEST(ShortName, UniqueFat83Name_HandsOutTail99AsTheLast) {
  EXPECT_EQ(UniqueFat83Name("longname.txt", ThePlainFormAndTails(98)), "LONGN~99TXT");
}

TEST(ShortName, UniqueFat83Name_IsEmptyWhenAll99TailsAreTaken) {
  EXPECT_EQ(UniqueFat83Name("longname.txt", ThePlainFormAndTails(99)), "");
}

}  // namespace
}  // namespace quorbix::virtdisk::internal

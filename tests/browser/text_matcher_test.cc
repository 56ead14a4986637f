#include "browser/text_matcher.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace quorbix::virtdisk::internal {
namespace {

bool Contains(std::string_view text, std::string_view needle) {
  const TextMatcher matcher(needle);
  return matcher.IsMatch(matcher.Advance(TextMatcher::kStart, text));
}

TEST(TextMatcher, EmptyNeedle_IsInEverything) {
  EXPECT_TRUE(Contains("", ""));
  EXPECT_TRUE(Contains("a", ""));
}

TEST(TextMatcher, Needle_IsFoundAnywhere) {
  EXPECT_TRUE(Contains("README.TXT", "read"));
  EXPECT_TRUE(Contains("readme.txt", "ME.T"));
  EXPECT_TRUE(Contains("README.TXT", "txt"));
  EXPECT_TRUE(Contains("aab", "AB"));
}

TEST(TextMatcher, ScatteredOrLongerNeedle_IsNotFound) {
  EXPECT_FALSE(Contains("README", "rdm"));
  EXPECT_FALSE(Contains("READ", "README"));
  EXPECT_FALSE(Contains("", "a"));
}

TEST(TextMatcher, OnlyAsciiLettersChangeCase) {
  EXPECT_FALSE(Contains("\xC4", "\xE4"));
  EXPECT_FALSE(Contains("@[", "`{"));
}

TEST(TextMatcher, Nul_IsAnOrdinaryByte) {
  using namespace std::string_view_literals;
  EXPECT_TRUE(Contains("A\0B"sv, "\0b"sv));
  EXPECT_FALSE(Contains("AB", "A\0"sv));
}

TEST(TextMatcher, TextInPieces_IsSearchedAcrossThem) {
  const TextMatcher matcher("ab/cd");

  const TextMatcher::State state = matcher.Advance(TextMatcher::kStart, "xxab/c");

  EXPECT_FALSE(matcher.IsMatch(state));
  EXPECT_TRUE(matcher.IsMatch(matcher.Advance(state, "d")));
  EXPECT_FALSE(matcher.IsMatch(matcher.Advance(state, "x")));
}

TEST(TextMatcher, Match_StaysWhateverFollows) {
  const TextMatcher matcher("ab");

  EXPECT_TRUE(matcher.IsMatch(matcher.Advance(matcher.Advance(TextMatcher::kStart, "ab"), "xxx")));
}

// Every text of up to `length` letters, each of them an "a" or a "b".
std::vector<std::string> TextsUpTo(std::size_t length) {
  std::vector<std::string> texts = {""};
  for (std::size_t i = 0; texts[i].size() < length; ++i) {
    texts.push_back(texts[i] + 'a');
    texts.push_back(texts[i] + 'b');
  }
  return texts;
}

TEST(TextMatcher, EveryShortNeedleInEveryShortText_IsFoundWhereItIs) {
  const std::vector<std::string> texts = TextsUpTo(9);
  for (const std::string& needle : TextsUpTo(6)) {
    for (const std::string& text : texts) {
      ASSERT_EQ(Contains(text, needle), text.find(needle) != std::string::npos)
          << needle << " in " << text;
    }
  }
}

}  // namespace
}  // namespace quorbix::virtdisk::internal

#include "terminal/json.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace quorbix::virtdisk::tool {
namespace {

std::string Encoded(std::string_view text) {
  return Base64(std::vector<std::uint8_t>(text.begin(), text.end()));
}

// The vectors of RFC 4648.
TEST(Base64, EveryRest_IsFilledUp) {
  EXPECT_EQ(Encoded(""), "");
  EXPECT_EQ(Encoded("f"), "Zg==");
  EXPECT_EQ(Encoded("fo"), "Zm8=");
  EXPECT_EQ(Encoded("foo"), "Zm9v");
  EXPECT_EQ(Encoded("foob"), "Zm9vYg==");
  EXPECT_EQ(Encoded("fooba"), "Zm9vYmE=");
  EXPECT_EQ(Encoded("foobar"), "Zm9vYmFy");
}

TEST(Base64, LastDigits_AreThoseOfTheStandardAlphabet) {
  EXPECT_EQ(Encoded("\xFB\xEF\xBF"), "+++/");
}

}  // namespace
}  // namespace quorbix::virtdisk::tool

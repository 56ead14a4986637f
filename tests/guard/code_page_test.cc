#include "guard/code_page.h"

#include <gtest/gtest.h>

#include <string>

namespace quorbix::virtdisk::internal::guard {
namespace {

TEST(CodePage437, NameOfADisk_IsReadableOnTheHost) {
  EXPECT_EQ(FromCodePage437("CAF\x82.TXT"), "CAF\xC3\xA9.TXT");  // e with an acute
  EXPECT_EQ(FromCodePage437("\x8E\x99\x9A\xE1.TXT"),             // German
            "\xC3\x84\xC3\x96\xC3\x9C\xC3\x9F.TXT");
  EXPECT_EQ(FromCodePage437("\xB0\xDB"), "\xE2\x96\x91\xE2\x96\x88");  // light and full block
  EXPECT_EQ(FromCodePage437("\x80\xFF"), "\xC3\x87\xC2\xA0");          // the first and the last
}

TEST(CodePage437, NameInUtf8_StaysAsItIs) {
  for (const std::string& name :
       {std::string("PLAIN.TXT"), std::string(""), std::string("CAF\xC3\xA9.TXT"),
        std::string("\xE2\x82\xAC"), std::string("\xF0\x9F\x98\x80")}) {
    EXPECT_EQ(FromCodePage437(name), name);
  }
}

TEST(CodePage437, WhatIsNoUtf8_BecomesIt) {
  // Cut, overlong, of a surrogate, beyond the last character, and a continuation alone.
  for (const std::string& name :
       {std::string("A\xC3"), std::string("\xC0\xAF"), std::string("\xE0\x80\xAF"),
        std::string("\xED\xA0\x80"), std::string("\xF4\x90\x80\x80"), std::string("\xF5"),
        std::string("\xE2\x82"), std::string("\x82"), std::string("\xF0\x80\x80\xAF")}) {
    const std::string text = FromCodePage437(name);
    EXPECT_NE(text, name);
    EXPECT_EQ(FromCodePage437(text), text);
    EXPECT_EQ(ToCodePage437(text), name);
  }
}

TEST(CodePage437, EveryByte_ComesBack) {
  for (int byte = 0x80; byte <= 0xFF; ++byte) {
    const std::string name = "A" + std::string(1, static_cast<char>(byte));
    EXPECT_EQ(ToCodePage437(FromCodePage437(name)), name) << byte;
  }
}

TEST(CodePage437, FirstByteThatMarksAFreeSlot_IsStoredAsAnother) {
  EXPECT_EQ(FromCodePage437("\x05"
                            "BC.TXT"),
            "\xCF\x83"
            "BC.TXT");  // a small sigma
  EXPECT_EQ(ToCodePage437("\xCF\x83"
                          "BC.TXT"),
            "\x05"
            "BC.TXT");
  EXPECT_EQ(ToCodePage437("B\xCF\x83"), "B\xE5");
}

TEST(CodePage437, CharactersThatItHasNot_HaveNoBytes) {
  EXPECT_EQ(ToCodePage437("\xE2\x82\xAC"), "");  // the euro
  EXPECT_EQ(ToCodePage437("A\x82"), "");
  EXPECT_EQ(ToCodePage437("A"), "A");
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard

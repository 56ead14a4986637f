#include "terminal/suggestion.h"

#include <gtest/gtest.h>

namespace quorbix::virtdisk::tool {
namespace {

const std::vector<std::string> kWords{"build", "put", "ls", "measure"};

TEST(Suggest, NeighboursExchanged_AreOneMistake) {
  EXPECT_EQ(Suggest("biuld", kWords), "build");
  EXPECT_EQ(Suggest("upt", kWords), "put");
  EXPECT_EQ(Suggest("sl", kWords), "ls");
}

TEST(Suggest, LettersMissingWrongOrTooMany_AreFound) {
  EXPECT_EQ(Suggest("bild", kWords), "build");
  EXPECT_EQ(Suggest("built", kWords), "build");
  EXPECT_EQ(Suggest("bbuild", kWords), "build");
  EXPECT_EQ(Suggest("mesuer", kWords), "measure");
}

TEST(Suggest, CapitalLetters_AreNoMistakes) {
  EXPECT_EQ(Suggest("BUILD", kWords), "build");
  EXPECT_EQ(Suggest("MESURE", kWords), "measure");
}

TEST(Suggest, ThreeMistakes_AreTooMany) { EXPECT_EQ(Suggest("mxxxure", kWords), ""); }

TEST(Suggest, WordWithNoLetterRight_IsNoMistake) {
  EXPECT_EQ(Suggest("xy", kWords), "");
  EXPECT_EQ(Suggest("", kWords), "");
}

TEST(Suggest, VeryLongWord_IsNotCompared) {
  EXPECT_EQ(Suggest(std::string(1'000'000, 'b'), kWords), "");
}

}  // namespace
}  // namespace quorbix::virtdisk::tool

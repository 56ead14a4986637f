#include "sync/file_version.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <vector>

namespace quorbix::virtdisk::internal {
namespace {

TEST(FileVersion, DefaultMade_IsAllZero) {
  const FileVersion version;
  EXPECT_EQ(version.contentHash, 0u);
  EXPECT_EQ(version.modifiedStamp, 0u);
  EXPECT_EQ(version.size, 0u);
  EXPECT_EQ(version.firstCluster, 0u);
}

TEST(KeyFromRelPath, LetterCase_IsLowered) {
  EXPECT_EQ(KeyFromRelPath("Sub/File.TXT"), "sub/file.txt");
}

TEST(KeyFromRelPath, NamesOfBothSides_Meet) {
  EXPECT_EQ(KeyFromRelPath("DOCS/README.TXT"), "docs/readme.txt");
  EXPECT_EQ(KeyFromRelPath("docs/ReadMe.txt"), "docs/readme.txt");
}

TEST(KeyFromRelPath, OnlyAsciiLetters_AreLowered) {
  EXPECT_EQ(KeyFromRelPath("AZ@[`{09_\xC3\x84"), "az@[`{09_\xC3\x84");  // A with two dots stays
}

TEST(KeyFromRelPath, RootAlone_IsASlash) {
  EXPECT_EQ(KeyFromRelPath("/"), "/");
  EXPECT_EQ(KeyFromRelPath("//"), "/");
}

TEST(KeyFromRelPath, RootBeforeNames_IsNotFollowedByAnotherSlash) {
  EXPECT_EQ(KeyFromRelPath("/A/B"), "/a/b");
}

TEST(KeyFromRelPath, OneElement_IsThatElement) { EXPECT_EQ(KeyFromRelPath("X"), "x"); }

TEST(KeyFromRelPath, EmptyPath_HasAnEmptyKey) { EXPECT_EQ(KeyFromRelPath(""), ""); }

TEST(KeyFromRelPath, TrailingSeparator_StaysAsOneSlash) {
  EXPECT_EQ(KeyFromRelPath("A/B/"), "a/b/");
}

TEST(KeyFromRelPath, DotElements_Stay) { EXPECT_EQ(KeyFromRelPath("./A/../B"), "./a/../b"); }

// As the path class would part and join it.
std::string KeyByElements(const std::filesystem::path& path) {
  if (path.has_root_directory() && !path.has_relative_path()) return "/";
  std::string key;
  bool afterName = false;
  for (const std::filesystem::path& element : path) {
    if (afterName) key += '/';
    for (const char c : element.native()) {
      key += c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    }
    afterName = element != "/";
  }
  return key;
}

TEST(KeyFromRelPath, AnyText_GivesTheElementsOfThePathItIs) {
  std::mt19937 random(11);
  for (int i = 0; i < 20'000; ++i) {
    std::string text;
    for (auto length = random() % 9; length > 0; --length) text += "//aZ. "[random() % 6];
    EXPECT_EQ(KeyFromRelPath(text), KeyByElements(text)) << text;
  }
}

TEST(KeyFromRelPath, Backslash_IsAnOrdinaryByte) { EXPECT_EQ(KeyFromRelPath("A\\B"), "a\\b"); }

}  // namespace
}  // namespace quorbix::virtdisk::internal

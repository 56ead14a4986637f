#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "program_run.h"
#include "support/image_crafter.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::test {
namespace {

using ::testing::HasSubstr;

class TreeCommand : public ::testing::Test {
 protected:
  TreeCommand() {
    ::setenv("LC_ALL", "C", 1);
    ImageCrafter crafter;
    crafter.File("Z.TXT", {.firstCluster = 2, .size = 300}).Chain({2});
    crafter.Directory("SUB", 3).Chain({3}).Directory("EMPTY", 6).Chain({6});
    crafter.RawSlot("        PRO", {.firstCluster = 7, .size = 4}).Chain({7});
    crafter.InCluster(3).DotEntries(3, 0).Directory("IN", 4).Chain({4});
    crafter.File("B.TXT", {.firstCluster = 5, .size = 512}).Chain({5});
    crafter.InCluster(4).DotEntries(4, 3).File("C.TXT", {.firstCluster = 8, .size = 1000});
    crafter.Chain({8, 9}).InCluster(6).DotEntries(6, 0);
    WriteBytes(folder / "disk.img", crafter.Bytes());
  }
  ~TreeCommand() override { ::unsetenv("LC_ALL"); }

  ProgramRun Tree(const std::vector<std::string>& rest = {}) const {
    std::vector<std::string> arguments{"tree", (folder / "disk.img").string()};
    arguments.insert(arguments.end(), rest.begin(), rest.end());
    return RunVirtdisk(arguments);
  }

  TempFolder folder;
};

TEST_F(TreeCommand, Root_IsDrawnWithSumsOfSizes) {
  const ProgramRun run = Tree();
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out,
            "    1.8 KiB  /\n"
            "    0 bytes  |-- EMPTY/\n"
            "    1.5 KiB  |-- SUB/\n"
            "1,000 bytes  |   |-- IN/\n"
            "1,000 bytes  |   |   `-- C.TXT\n"
            "  512 bytes  |   `-- B.TXT\n"
            "  300 bytes  `-- Z.TXT\n"
            "\n"
            "3 directories, 3 files\n");
}

TEST_F(TreeCommand, Utf8Locale_GetsDrawnLines) {
  ::setenv("LC_ALL", "en_US.UTF-8", 1);
  EXPECT_THAT(Tree().out, HasSubstr("  \xE2\x94\x9C\xE2\x94\x80\xE2\x94\x80 EMPTY/\n"));
}

TEST_F(TreeCommand, Utf8LocaleInAnySpelling_GetsDrawnLines) {
  for (const char* locale : {"de_DE.UTF8", "en_US.utf-8", "de_DE.utf8", "C.UTF-8@x", "C.Utf-8"}) {
    ::setenv("LC_ALL", locale, 1);
    EXPECT_THAT(Tree().out, HasSubstr("\xE2\x94\x80 EMPTY/\n")) << locale;
  }
  for (const char* locale :
       {"POSIX", "de_DE", "de_DE@UTF-8", "de_DE.ISO-8859-1", "C.UTF-16", "x."}) {
    ::setenv("LC_ALL", locale, 1);
    EXPECT_THAT(Tree().out, HasSubstr("|-- EMPTY/\n")) << locale;
  }
}

TEST_F(TreeCommand, Directory_IsDrawnAlone) {
  EXPECT_EQ(Tree({"sub/in"}).out,
            "1,000 bytes  sub/in\n"
            "1,000 bytes  `-- C.TXT\n"
            "\n"
            "0 directories, 1 file\n");
}

TEST_F(TreeCommand, HiddenEntries_AreDrawnUnderAll) {
  EXPECT_THAT(Tree({"--all"}).out, HasSubstr("    4 bytes  |-- .PRO\n"));
}

TEST_F(TreeCommand, FileAsPath_Fails) {
  const ProgramRun run = Tree({"/Z.TXT"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("virtdisk: directory not found\n"));
}

TEST_F(TreeCommand, Json_HasTheSums) {
  const auto lines = Tree({"--json", "--all"}).JsonLines();
  ASSERT_EQ(lines.size(), 7u);
  EXPECT_EQ(lines[1]["path"], "/SUB");
  EXPECT_EQ(lines[1]["bytes"], 1512);
  EXPECT_EQ(lines[5]["path"], "/.PRO");
  EXPECT_EQ(lines[5]["hidden"], true);
}

TEST_F(TreeCommand, DeepTree_IsIndentedOnlySoFar) {
  ImageCrafter crafter({.clusters = 250});
  crafter.Directory("D", 2);
  for (std::uint16_t cluster = 2; cluster < 200; ++cluster) {
    crafter.Chain({cluster}).InCluster(cluster);
    crafter.Directory("D", static_cast<std::uint16_t>(cluster + 1));
  }
  crafter.Chain({200}).InCluster(200).File("X");
  WriteBytes(folder / "disk.img", crafter.Bytes());
  const ProgramRun run = Tree();
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, HasSubstr("  " + std::string(63 * 4, ' ') + "`-- X\n"));
}

}  // namespace
}  // namespace quorbix::virtdisk::test

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "image_commands_fixture.h"
#include "program_run.h"
#include "terminal/json.h"

namespace quorbix::virtdisk::tool {
namespace {

using test::DatedDisk;
using test::DiskWithADotFolder;
using test::ImageCrafter;
using test::ProgramRun;
using test::RunVirtdisk;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

using LsCommand = test::ImageCommands;
using FindCommand = test::ImageCommands;
using CatCommand = test::ImageCommands;

TEST_F(LsCommand, Root_ListsDirectoriesFirst) {
  EXPECT_EQ(RunVirtdisk({"ls", Image()}).out, "SUB/\nDATED.TXT\nEMPTY\n");
}

TEST_F(LsCommand, Details_ShowAttributesSizeAndDate) {
  EXPECT_EQ(RunVirtdisk({"ls", Image(), "-l"}).out,
            "d----           0                       SUB/\n"
            "-r--a           5  2025-03-17 13:34:14  DATED.TXT\n"
            "----a           0                       EMPTY\n");
}

TEST_F(LsCommand, Recursive_ShowsFullPaths) {
  EXPECT_EQ(RunVirtdisk({"ls", Image(), "-R"}).out, "/SUB/\n/SUB/B.TXT\n/DATED.TXT\n/EMPTY\n");
  EXPECT_EQ(RunVirtdisk({"ls", Image(), "sub", "-R"}).out, "/SUB/B.TXT\n");
}

TEST_F(LsCommand, File_ListsItself) {
  EXPECT_EQ(RunVirtdisk({"ls", Image(), "\\sub\\b.txt"}).out, "B.TXT\n");
}

TEST_F(LsCommand, MissingPath_FailsWithTheLibrarysMessage) {
  const ProgramRun run = RunVirtdisk({"ls", Image(), "/NOPE"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("virtdisk: directory not found\n"));
  EXPECT_THAT(run.err, HasSubstr("/NOPE in " + Image()));
}

TEST_F(LsCommand, Json_IsOneObjectALine) {
  const auto lines = RunVirtdisk({"ls", Image(), "--json"}).JsonLines();
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0]["type"], "directory");
  EXPECT_EQ(lines[0]["path"], "/SUB");
  EXPECT_EQ(lines[1]["name"], "DATED.TXT");
  EXPECT_EQ(lines[1]["type"], "file");
  EXPECT_EQ(lines[1]["size"], 5);
  EXPECT_EQ(lines[1]["modified"], "2025-03-17 13:34:14");
  EXPECT_EQ(lines[1]["attributes"], 0x21);
  EXPECT_EQ(lines[1]["firstCluster"], 2);
  EXPECT_TRUE(lines[2]["modified"].is_null());
}

TEST_F(LsCommand, HostileNames_AreMadeSafeAndStayJson) {
  ImageCrafter crafter;
  crafter.RawSlot("A\x1b[2J\x9b\xff TXT", {.writeDate = 0xFFFF});
  Write(crafter);
  EXPECT_EQ(RunVirtdisk({"ls", Image()}).out, "A\\x1B[2J\\x9B\\xFF.TXT\n");
  EXPECT_THAT(RunVirtdisk({"ls", Image(), "-l"}).out, HasSubstr("invalid date"));
  EXPECT_TRUE(RunVirtdisk({"ls", Image(), "--json"}).JsonLines()[0]["modified"].is_null());
}

TEST_F(LsCommand, Colour_MarksDirectoriesOnlyOnATerminal) {
  EXPECT_THAT(RunVirtdisk({"ls", Image()}, true).out, HasSubstr("\x1b[1;34mSUB\x1b[0m/\n"));
  EXPECT_THAT(RunVirtdisk({"ls", Image()}).out, Not(HasSubstr("\x1b")));
}

TEST_F(FindCommand, Text_FindsPathsInAnyCase) {
  const ProgramRun run = RunVirtdisk({"find", Image(), "b"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "/SUB/\n/SUB/B.TXT\n");
}

TEST_F(FindCommand, NoMatch_IsDoneWithoutOutput) {
  const ProgramRun run = RunVirtdisk({"find", Image(), "ZZZ"});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, IsEmpty());
}

TEST_F(FindCommand, EmptyText_FailsWithTheLibrarysMessage) {
  const ProgramRun run = RunVirtdisk({"find", Image(), ""});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("virtdisk: empty query\n"));
}

TEST_F(FindCommand, Json_IsOneObjectALine) {
  const auto lines = RunVirtdisk({"find", Image(), "txt", "--json"}).JsonLines();
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[1]["path"], "/SUB/B.TXT");
}

TEST_F(FindCommand, HiddenEntries_AreFoundUnderAllOnly) {
  Write(DiskWithADotFolder());
  EXPECT_EQ(RunVirtdisk({"find", Image(), "Conf"}).out, "/CONFIG.SYS\n");
  EXPECT_EQ(RunVirtdisk({"find", Image(), "Conf", "--all"}).out, "/.GIT/CONFIG\n/CONFIG.SYS\n");
  EXPECT_EQ(RunVirtdisk({"find", Image(), "git/C", "-a"}).out, "/.GIT/CONFIG\n");
  const auto lines = RunVirtdisk({"find", Image(), "conf", "--all", "--json"}).JsonLines();
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0]["hidden"], true);
  EXPECT_EQ(lines[1]["hidden"], false);
  EXPECT_THAT(RunVirtdisk({"find", Image(), "", "--all"}).err, HasSubstr("empty query\n"));
}

TEST_F(LsCommand, HiddenEntries_AreListedUnderAllOnly) {
  Write(DiskWithADotFolder());
  EXPECT_EQ(RunVirtdisk({"ls", Image(), "-R"}).out, "/CONFIG.SYS\n");
  EXPECT_EQ(RunVirtdisk({"ls", Image(), "-R", "--all"}).out, "/.GIT/\n/.GIT/CONFIG\n/CONFIG.SYS\n");
}

TEST_F(CatCommand, HiddenFile_IsToldWithTheWayToIt) {
  Write(DiskWithADotFolder());
  const ProgramRun run = RunVirtdisk({"cat", Image(), "/.git/config"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "virtdisk: file not found\n  /.git/config in " + Image() +
                         " is in no listing: `virtdisk get --all` copies it.\n");
}

// Which other systems list.
TEST_F(LsCommand, FileOfTheRootNamedAsTheDirectoryAbove_IsHidden) {
  ImageCrafter crafter = DatedDisk();
  crafter.InRoot().RawSlot("..         ", {.firstCluster = 8, .size = 3}).Chain({8}).Data(8, "xyz");
  Write(crafter);
  EXPECT_THAT(RunVirtdisk({"ls", Image()}).out, Not(HasSubstr("..")));
  EXPECT_THAT(RunVirtdisk({"ls", Image(), "--all"}).out, HasSubstr("\n..\n"));
  EXPECT_EQ(RunVirtdisk({"info", Image(), "--json"}).Json()["hiddenFiles"], 1);
  EXPECT_EQ(RunVirtdisk({"map", Image(), "--json"}).Json()["lostOrBroken"], 0);
  const std::string got = (folder / "GOT").string();
  EXPECT_EQ(RunVirtdisk({"get", Image(), "/..", got, "--all"}).status, 0);
  EXPECT_EQ(folder.Read("GOT"), "xyz");
  const ProgramRun whole = RunVirtdisk({"get", Image(), "/", (folder / "DEST").string(), "--all"});
  EXPECT_EQ(whole.status, 1);
  EXPECT_THAT(whole.err, HasSubstr("refused to extract /..: its name would lead out"));
}

TEST_F(CatCommand, MissingFileBesideHiddenOnes_IsToldWithAll) {
  Write(DiskWithADotFolder());
  EXPECT_THAT(RunVirtdisk({"cat", Image(), "/NOPE"}).err,
              HasSubstr(": `virtdisk find --all` and `virtdisk ls --all` show what there is.\n"));
  Write(DatedDisk());
  EXPECT_THAT(RunVirtdisk({"cat", Image(), "/NOPE"}).err,
              HasSubstr(": `virtdisk find` and `virtdisk ls` show what there is.\n"));
}

TEST_F(CatCommand, Root_IsADirectory) {
  for (const char* root : {"/", "\\", "//"}) {
    const ProgramRun run = RunVirtdisk({"cat", Image(), root});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.err, HasSubstr("virtdisk: path is a directory\n"));
  }
}

TEST_F(CatCommand, File_IsWrittenByteForByte) {
  const ProgramRun run = RunVirtdisk({"cat", Image(), "/sub/b.txt"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, std::string(512, 'b') + std::string(88, 'c'));
}

TEST_F(CatCommand, Json_HasTheContentInBase64) {
  const ProgramRun run = RunVirtdisk({"cat", Image(), "/sub/b.txt", "--json"});
  EXPECT_EQ(run.status, 0);
  const auto record = run.Json();
  EXPECT_EQ(record["path"], "/SUB/B.TXT");
  EXPECT_EQ(record["size"], 600);
  EXPECT_EQ(record["bytes"], 600);
  // 512 is two more than three times 170.
  std::string expected;
  for (int i = 0; i < 170; ++i) expected += "YmJi";
  expected += "YmJj";
  for (int i = 0; i < 29; ++i) expected += "Y2Nj";
  EXPECT_EQ(record["contentBase64"], expected);
  EXPECT_TRUE(record["error"].is_null());
  EXPECT_EQ(record["hidden"], false);
}

// Which comes in pieces of 256 KiB, no multiple of three.
TEST_F(CatCommand, JsonOfALargeFile_IsOneBase64Text) {
  std::vector<std::uint8_t> content(600'001);
  for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<std::uint8_t>(i * i);
  test::WriteBytes((folder.Folder("DISK") / "DISK/A.BIN"), content);
  ASSERT_EQ(RunVirtdisk({"build", (folder / "DISK").string(), Image(), "-q"}).status, 0);
  const auto record = RunVirtdisk({"cat", Image(), "A.BIN", "--json"}).Json();
  EXPECT_EQ(record["bytes"], 600'001);
  EXPECT_EQ(record["contentBase64"], Base64(content));
}

TEST_F(CatCommand, EmptyFileAsJson_HasNoContent) {
  EXPECT_EQ(RunVirtdisk({"cat", Image(), "EMPTY", "--json"}).Json()["contentBase64"], "");
}

TEST_F(CatCommand, MissingFile_FailsWithTheLibrarysMessage) {
  const ProgramRun run = RunVirtdisk({"cat", Image(), "/NOPE"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("virtdisk: file not found\n"));
}

TEST_F(CatCommand, Directory_FailsWithTheLibrarysMessage) {
  const ProgramRun run = RunVirtdisk({"cat", Image(), "/SUB"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("virtdisk: path is a directory\n"));
  EXPECT_THAT(run.err, HasSubstr("`virtdisk get`"));
}

TEST_F(CatCommand, LoopingChain_FailsWithTheLibrarysMessage) {
  ImageCrafter crafter;
  crafter.File("A.TXT", {.firstCluster = 2, .size = 2000}).FatWord(2, 2);
  Write(crafter);
  EXPECT_THAT(RunVirtdisk({"cat", Image(), "/A.TXT"}).err, HasSubstr("cluster loop detected\n"));
}

}  // namespace
}  // namespace quorbix::virtdisk::tool

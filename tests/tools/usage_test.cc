#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "program_run.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::tool {
namespace {

using test::ProgramRun;
using test::RunVirtdisk;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr const char* kCommands[] = {"build", "measure", "info", "ls",   "find", "cat",
                                     "get",   "put",     "map",  "sync", "demo"};

TEST(Usage, Help_ListsEveryCommand) {
  const ProgramRun run = RunVirtdisk({"--help"});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.err, IsEmpty());
  for (const char* command : kCommands) {
    EXPECT_THAT(run.out, HasSubstr(std::string("\n  ") + command + " ")) << command;
  }
}

TEST(Usage, EveryCommand_HasHelpWithAnExample) {
  for (const char* command : kCommands) {
    const ProgramRun run = RunVirtdisk({command, "--help"});
    EXPECT_EQ(run.status, 0) << command;
    EXPECT_THAT(run.out, HasSubstr(std::string("Example:\n  virtdisk ") + command)) << command;
  }
}

TEST(Usage, Version_IsOneLine) {
  const ProgramRun run = RunVirtdisk({"--version"});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, ::testing::MatchesRegex("virtdisk [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST(Usage, Mistakes_GiveStatus2AndNoData) {
  for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
           {},
           {"nothing"},
           {"build"},
           {"build", "folder"},
           {"build", "folder", "image", "extra"},
           {"build", "folder", "image", "--unknown"},
           {"ls", "image", "--interval", "5"},
           {"sync", "image", "folder", "--interval", "soon"},
           {"sync", "image", "folder", "--interval", "-1"},
           {"sync", "image", "folder", "--interval", "4294967296"},
           {"info", "image", "cat"}}) {
    const ProgramRun run = RunVirtdisk(arguments);
    EXPECT_EQ(run.status, 2) << ::testing::PrintToString(arguments);
    EXPECT_THAT(run.out, IsEmpty());
    EXPECT_THAT(run.err, StartsWith("virtdisk: "));
    EXPECT_THAT(run.err, HasSubstr("--help"));
  }
}

TEST(Usage, SizesThatAreNone_GiveStatus2AndBuildNothing) {
  test::TempFolder folder;
  folder.File("SRC/A.TXT", "a");
  for (const char* size : {"0", "-1", "64Q", "", "large", "1.5M", "99999999999999999999", "0x10"}) {
    const ProgramRun run =
        RunVirtdisk({"build", (folder / "SRC").string(), (folder / "disk.img").string(),
                     std::string("--size=") + size});
    EXPECT_EQ(run.status, 2) << size;
    EXPECT_FALSE(folder.Exists("disk.img")) << size;
  }
}

TEST(Usage, CommandsOwnMistake_NamesTheCommandsHelp) {
  EXPECT_THAT(RunVirtdisk({"build"}).err, HasSubstr("`virtdisk build --help`"));
}

TEST(Usage, ControlCharactersInArguments_AreMadeSafe) {
  EXPECT_THAT(RunVirtdisk({"\x1b[2J"}).err, ::testing::Not(HasSubstr("\x1b")));
}

}  // namespace
}  // namespace quorbix::virtdisk::tool

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iterator>
#include <sstream>
#include <string>
#include <utility>
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

constexpr const char* kCommands[] = {"build",  "measure", "info",    "ls",  "tree",
                                     "find",   "cat",     "get",     "put", "map",
                                     "verify", "sync",    "restore", "demo"};

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

TEST(Usage, HelpAsACommand_IsTheOption) {
  EXPECT_EQ(RunVirtdisk({"help"}).out, RunVirtdisk({"--help"}).out);
  EXPECT_EQ(RunVirtdisk({"help", "put"}).out, RunVirtdisk({"put", "--help"}).out);
  EXPECT_EQ(RunVirtdisk({"help", "help"}).out, RunVirtdisk({"--help"}).out);
  EXPECT_EQ(RunVirtdisk({"help"}).status, 0);
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{"help", "biuld"}, {"biuld", "--help"}}) {
    const ProgramRun run = RunVirtdisk(command);
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.err, HasSubstr("Did you mean `build`?"));
  }
}

TEST(Usage, MisspeltOption_IsCorrected) {
  const ProgramRun run = RunVirtdisk({"build", "a", "b.img", "--sise=64M"});
  EXPECT_EQ(run.status, 2);
  EXPECT_THAT(run.err, HasSubstr("Did you mean `--size`? "));
  EXPECT_THAT(RunVirtdisk({"ls", "b.img", "--transmogrify"}).err, Not(HasSubstr("Did you mean")));
}

TEST(Usage, OptionOfNoCommand_IsNamedAndCorrected) {
  const std::string hint = "`virtdisk --help` tells the arguments.\n";
  for (const auto& [word, meant] : {std::pair<const char*, const char*>{"--verison", "--version"},
                                    {"--hlep", "--help"},
                                    {"--quite", "--quiet"}}) {
    const ProgramRun run = RunVirtdisk({word});
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.err, HasSubstr(word));
    EXPECT_THAT(run.err, HasSubstr("Did you mean `" + std::string(meant) + "`? " + hint));
  }
  EXPECT_EQ(RunVirtdisk({"--bogus"}).err,
            "virtdisk: `--bogus` is no option of virtdisk itself\n  " + hint);
  EXPECT_THAT(RunVirtdisk({"-q", "-x"}).err, StartsWith("virtdisk: `-x` is no option"));
  EXPECT_THAT(RunVirtdisk({"--json", "info", "a"}).err, StartsWith("virtdisk: `--json` is no op"));
  EXPECT_THAT(RunVirtdisk({"-q"}).err, StartsWith("virtdisk: A subcommand is required\n"));
}

TEST(Usage, Quiet_MayStandBeforeTheCommand) {
  test::TempFolder folder;
  folder.File("DISK/A.TXT", "a");
  const ProgramRun run =
      RunVirtdisk({"-q", "build", (folder / "DISK").string(), (folder / "disk.img").string()});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out + run.err, IsEmpty());
}

TEST(Usage, DescriptionOfAnOption_KeepsToItsColumn) {
  for (const unsigned columns : {36u, 40u, 59u, 60u, 80u}) {
    std::ostringstream out;
    std::ostringstream err;
    tool::Console console{.out = out, .err = err, .width = columns};
    ASSERT_EQ(RunProgram(console, {"sync", "--help"}), 0);
    const std::string help = out.str();
    const std::size_t options = help.find("\nOptions:\n");
    const std::size_t end = help.find("\n\n", options + 1);
    EXPECT_THAT(help.substr(options, end - options), Not(::testing::ContainsRegex("\n {3,10}[^ ]")))
        << columns;
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
           {"restore", "image", "--to", "file"},
           {"restore", "image", "--folder", "folder"},
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
  for (const char* size :
       {"0", "-1", "64Q", "", "large", "1.5", "1.M", "99999999999999999999", "0x10"}) {
    const ProgramRun run =
        RunVirtdisk({"build", (folder / "SRC").string(), (folder / "disk.img").string(),
                     std::string("--size=") + size});
    EXPECT_EQ(run.status, 2) << size;
    EXPECT_FALSE(folder.Exists("disk.img")) << size;
  }
}

TEST(Usage, MisspeltCommand_IsToldTheOneMeant) {
  const ProgramRun run = RunVirtdisk({"biuld", "folder", "image"});
  EXPECT_EQ(run.status, 2);
  EXPECT_THAT(run.err, StartsWith("virtdisk: there is no command `biuld`\n"));
  EXPECT_THAT(run.err, HasSubstr("Did you mean `build`?"));
  EXPECT_THAT(RunVirtdisk({"--quiet", "mesure", "x"}).err, HasSubstr("Did you mean `measure`?"));
}

TEST(Usage, CommandLikeNoOther_GetsNoSuggestion) {
  for (const char* word : {"xyz", "", "transmogrify", "--biuld"}) {
    EXPECT_THAT(RunVirtdisk({word}).err, ::testing::Not(HasSubstr("Did you mean"))) << word;
  }
}

TEST(Usage, Json_MakesEveryErrorAnObjectToo) {
  for (const char* command : kCommands) {
    const ProgramRun run = RunVirtdisk({command, "/nonexistent/a", "/b", "/c", "/d", "--json"});
    EXPECT_EQ(run.status, 2) << command;
    EXPECT_TRUE(run.Json()["error"].is_string()) << command;
  }
  const ProgramRun run = RunVirtdisk({"put", "/nonexistent/a", "/B", "/nonexistent/c", "--json"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.Json()["error"], "cannot read /nonexistent/c: No such file or directory");
  EXPECT_TRUE(run.Json()["hint"].is_string());
  EXPECT_THAT(run.err, StartsWith("virtdisk: cannot read /nonexistent/c"));
}

TEST(Usage, MissingImageOrFolder_IsAnObjectWithJson) {
  test::TempFolder folder;
  folder.File("new", "n");
  const std::string missing = (folder / "missing.img").string();
  const std::string content = (folder / "new").string();
  const std::string got = (folder / "GOT").string();
  const std::vector<std::vector<std::string>> commands{
      {"build", missing, got},
      {"measure", missing},
      {"info", missing},
      {"ls", missing},
      {"tree", missing},
      {"find", missing, "A"},
      {"cat", missing, "A"},
      {"get", missing, "A", got},
      {"put", missing, "A", content},
      {"map", missing},
      {"verify", missing},
      {"sync", missing, got, "--once"},
      {"demo", missing},
      {"restore", missing, "2026-11-21_17.20.05/1"}};
  ASSERT_EQ(commands.size(), std::size(kCommands));
  for (std::vector<std::string> command : commands) {
    SCOPED_TRACE(command[0]);
    command.emplace_back("--json");
    const ProgramRun run = RunVirtdisk(command);
    EXPECT_TRUE(run.status == 1 || run.status == 3) << run.status;
    const auto lines = run.JsonLines();
    ASSERT_FALSE(lines.empty());
    EXPECT_TRUE(lines.back().contains("error") || lines.back().contains("hazards")) << run.out;
    if (command[0] != "sync") EXPECT_THAT(run.err, StartsWith("virtdisk: "));
    EXPECT_FALSE(folder.Exists("GOT"));
  }
}

// As an unset variable of a script makes them.
TEST(Usage, EmptyPaths_AreMistakesAndNotTheWholeDisk) {
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{"get", "disk.img", "", "DEST"},
                                             {"cat", "disk.img", ""},
                                             {"put", "disk.img", "", "new"}}) {
    const ProgramRun run = RunVirtdisk(arguments);
    EXPECT_EQ(run.status, 2) << arguments[0];
    EXPECT_THAT(run.err, StartsWith("virtdisk: PATH is empty\n"));
  }
  EXPECT_THAT(RunVirtdisk({"get", "disk.img", "/", ""}).err,
              StartsWith("virtdisk: DEST is empty\n"));
}

TEST(Usage, JsonAsAName_IsNoOption) {
  EXPECT_THAT(RunVirtdisk({"info", "--", "--json"}).out, IsEmpty());
}

TEST(Usage, EveryCommand_HasQuietAndJson) {
  for (const char* command : kCommands) {
    const std::string help = RunVirtdisk({command, "--help"}).out;
    EXPECT_THAT(help, HasSubstr("-q,--quiet")) << command;
    EXPECT_THAT(help, HasSubstr("--json")) << command;
  }
}

TEST(Usage, LabelsThatAreNone_GiveStatus2AndBuildNothing) {
  test::TempFolder folder;
  folder.File("SRC/A.TXT", "a");
  for (const char* label : {"TWELVE LONG!", "A/B", " A", "A\tB", "\xC3\xA9", "A.B"}) {
    const ProgramRun run = RunVirtdisk(
        {"build", (folder / "SRC").string(), (folder / "disk.img").string(), "--label", label});
    EXPECT_EQ(run.status, 2) << label;
    EXPECT_THAT(run.err, HasSubstr("--label: a label "));
    EXPECT_FALSE(folder.Exists("disk.img")) << label;
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

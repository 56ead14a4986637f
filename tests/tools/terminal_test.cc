#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/image_crafter.h"
#include "support/temp_folder.h"
#include "terminal_run.h"

// The built program on a terminal.

namespace quorbix::virtdisk::test {
namespace {

namespace fs = std::filesystem;

using ::testing::HasSubstr;
using ::testing::Not;

// What the program shows on a terminal of so many columns; NO_COLOR as given, or not set.
std::string ShowOnTerminal(std::vector<std::string> arguments, unsigned short columns,
                           const char* noColour = nullptr) {
  return RunOnTerminal(std::move(arguments), {.columns = columns, .noColour = noColour}).shown;
}

class Terminal : public ::testing::Test {
 protected:
  Terminal() {
    ImageCrafter crafter;
    crafter.Directory("SUB", 2).Chain({2}).InCluster(2);
    WriteBytes(folder / "disk.img", crafter.Bytes());
  }

  std::string Image() const { return (folder / "disk.img").string(); }

  TempFolder folder;
};

TEST_F(Terminal, Listing_IsColoured) {
  EXPECT_THAT(ShowOnTerminal({"ls", Image()}, 80), HasSubstr("\x1b[1;34mSUB\x1b[0m/"));
}

TEST_F(Terminal, NoColor_LeavesColourOut) {
  EXPECT_THAT(ShowOnTerminal({"ls", Image()}, 80, "1"), Not(HasSubstr("\x1b")));
  EXPECT_THAT(ShowOnTerminal({"map", Image()}, 80, "1"), Not(HasSubstr("\x1b")));
}

TEST_F(Terminal, Map_TakesTheTerminalsWidth) {
  std::istringstream lines(ShowOnTerminal({"map", Image()}, 42, "1"));
  std::size_t widest = 0;
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("  ", 0) == 0) widest = std::max(widest, line.find_last_not_of("\r\n") + 1);
  }
  EXPECT_EQ(widest, 42U);
}

TEST_F(Terminal, DumbTerminal_GetsNoColour) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"ls", Image()}, {"map", Image()}, {"tree", Image()}}) {
    EXPECT_THAT(RunOnTerminal(arguments, {.term = "dumb"}).shown, Not(HasSubstr("\x1b")));
  }
}

class TerminalOfColumns : public ::testing::TestWithParam<unsigned short> {};

INSTANTIATE_TEST_SUITE_P(Columns, TerminalOfColumns, ::testing::Values(40, 80, 200));

TEST_P(TerminalOfColumns, Help_KeepsToThem) {
  for (const char* command : {"build", "measure", "info", "ls", "find", "tree", "cat", "get", "put",
                              "map", "verify", "sync", "restore", "demo"}) {
    const TerminalRun run = RunOnTerminal({command, "--help"}, {.columns = GetParam()});
    EXPECT_EQ(run.status, 0);
    EXPECT_LE(run.Widest(), GetParam()) << run.shown;
  }
  EXPECT_LE(RunOnTerminal({"--help"}, {.columns = GetParam()}).Widest(), GetParam());
}

TEST_P(TerminalOfColumns, Messages_KeepToThem) {
  const TerminalRun run = RunOnTerminal({"biuld"}, {.columns = GetParam()});
  EXPECT_EQ(run.status, 2);
  EXPECT_LE(run.Widest(), GetParam()) << run.shown;
  EXPECT_THAT(run.shown, HasSubstr("`build`"));
}

TEST_P(TerminalOfColumns, SummaryAndTable_KeepToThem) {
  TempFolder folder;
  folder.File("DISK/a.txt", "a");
  fs::current_path(folder.Path());
  const TerminalRun build = RunOnTerminal({"build", "DISK", "d.img"}, {.columns = GetParam()});
  const TerminalRun measure = RunOnTerminal({"measure", "DISK"}, {.columns = GetParam()});
  fs::current_path("/");
  EXPECT_EQ(build.status + measure.status, 0);
  EXPECT_LE(build.Widest(), GetParam()) << build.shown;
  EXPECT_LE(measure.Widest(), GetParam()) << measure.shown;
}

// Of every command but those that synchronise, what breaks at blanks.
TEST_P(TerminalOfColumns, EveryCommand_KeepsToThem) {
  TempFolder folder;
  folder.File("DISK/a letter to aunt.txt", std::string(2000, 'a')).File("DISK/.profile", "p");
  folder.File("DISK/SUB/B.TXT", "b").Link("DISK/again", "SUB").Link("DISK/nowhere", "missing");
  folder.File("DISK/caf\xC3\xA9 au lait, s'il vous pla\xC3\xAEt, \xC3\xA0 c\xC3\xB4t\xC3\xA9.txt");
  fs::current_path(folder.Path());
  const std::vector<std::vector<std::string>> commands{
      {"build", "DISK", "d.img", "--size", "100K", "--verbose"},
      {"measure", "DISK"},
      {"info", "d.img"},
      {"ls", "d.img", "-l"},
      {"ls", "d.img", "-R", "--all"},
      {"tree", "d.img", "--all"},
      {"find", "d.img", "T"},
      {"cat", "d.img", "ALETTE~1.TX"},
      {"get", "d.img", "/", "GOT"},
      {"get", "d.img", "/", "GOT"},
      {"put", "d.img", "/SUB/B.TXT", "DISK/a letter to aunt.txt"},
      {"map", "d.img"},
      {"map", "d.img", "-o", "d.png"},
      {"verify", "d.img"},
      {"verify", "DISK/a letter to aunt.txt"},
      {"info", "DISK/a letter to aunt.txt"},
      {"demo"}};
  for (const std::vector<std::string>& command : commands) {
    for (const auto& [term, locale] : {std::pair{"dumb", "C"}, {"xterm-256color", "C.UTF-8"}}) {
      const TerminalRun run =
          RunOnTerminal(command, {.columns = GetParam(), .term = term, .locale = locale});
      EXPECT_LE(run.Widest(), GetParam()) << command[0] << "\n" << run.shown;
      EXPECT_LE(run.status, 3) << command[0];
    }
  }
  fs::current_path("/");
}

TEST(TerminalRunTest, Widest_CountsWhatIsShown) {
  EXPECT_EQ((TerminalRun{0, "ab\r\nabc\r\n"}).Widest(), 3U);
  EXPECT_EQ((TerminalRun{0, "\x1b[1;34mabc\x1b[0m/\r\n"}).Widest(), 4U);
  EXPECT_EQ((TerminalRun{0, "caf\xC3\xA9 \xE2\x94\x82"}).Widest(), 6U);
  EXPECT_EQ((TerminalRun{0, "\rcopying: 1\rcopy\r\n"}).Widest(), 10U);
}

TEST_F(Terminal, DetailsOnANarrowTerminal_HaveTheDayAlone) {
  ImageCrafter crafter;
  crafter.File("LONGNAME.TXT", {.size = 1234, .writeTime = 0x6000, .writeDate = 0x5A21});
  WriteBytes(folder / "disk.img", crafter.Bytes());
  EXPECT_THAT(ShowOnTerminal({"ls", Image(), "-l"}, 40),
              HasSubstr("----a      1234 2025-01-01 LONGNAME.TXT\r\n"));
  EXPECT_THAT(ShowOnTerminal({"ls", Image(), "-l"}, 80), HasSubstr("2025-01-01 12:00:00"));
}

TEST(TerminalLocale, OddNames_AreShownAlikeAndSafely) {
  TempFolder folder;
  folder.File("DISK/caf\xC3\xA9 au lait").File("DISK/\xFF\x9B.x").File("DISK/bell\x07\x1b[2J");
  const std::string disk = (folder / "DISK").string();
  const std::string image = (folder / "d.img").string();
  std::vector<std::string> shown;
  for (const char* locale : {"C", "C.UTF-8", "no_SUCH.locale"}) {
    const TerminalRun run = RunOnTerminal({"build", disk, image}, {.locale = locale});
    EXPECT_EQ(run.status, 0) << run.shown;
    shown.push_back(run.shown.substr(run.shown.find("virtdisk: remark")));
  }
  EXPECT_EQ(shown[0], shown[1]);
  EXPECT_EQ(shown[0], shown[2]);
  EXPECT_THAT(shown[0], HasSubstr("caf\xC3\xA9 au lait -> CAF___AU"));
  EXPECT_THAT(shown[0], HasSubstr("\\xFF\\x9B.x -> __.X"));
  EXPECT_THAT(shown[0], HasSubstr("bell\\x07\\x1B[2J -> "));
  EXPECT_THAT(shown[0], Not(HasSubstr("\x1b")));
}

}  // namespace
}  // namespace quorbix::virtdisk::test

// Nobody reads what a command prints.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/temp_folder.h"
#include "tools/built_program.h"

namespace quorbix::virtdisk::test {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

// The status of the built program; what it says on the error output goes to the file `err`.
int RunIntoClosedPipe(std::vector<std::string> arguments, const std::string& err) {
  arguments.insert(arguments.begin(), kProgram);
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  return RunInChild({}, [&] {
    int ends[2];
    if (::pipe(ends) != 0 || ::dup2(ends[1], STDOUT_FILENO) < 0) return 126;
    ::close(ends[0]);
    ::close(ends[1]);
    if (std::freopen(err.c_str(), "w", stderr) == nullptr) return 126;
    ::signal(SIGPIPE, SIG_DFL);
    ::execv(argv[0], argv.data());
    return 127;
  });
}

class ClosedPipe : public ::testing::Test {
 protected:
  ClosedPipe() {
    folder.File("DISK/A.TXT", "a").File("DISK/SUB/B.TXT", "b").File("new", "n");
    folder.File("disk.img.sync/trash/2026-11-21_17.20.05/manifest",
                "item 1 folder deleted A.TXT\n");
    folder.File("disk.img.sync/trash/2026-11-21_17.20.05/1", "lost");
    EXPECT_EQ(RunProgram({"build", Path("DISK"), Path("disk.img")}).status, 0);
  }

  std::string Path(const std::string& name) const { return (folder / name).string(); }

  TempFolder folder;
};

TEST_F(ClosedPipe, EveryCommandThatPrints_EndsQuietlyWithStatus141) {
  const std::string image = Path("disk.img");
  const std::vector<std::vector<std::string>> commands{
      {"build", Path("DISK"), Path("other.img")},
      {"build", Path("DISK"), Path("other.img"), "--json"},
      {"measure", Path("DISK")},
      {"info", image},
      {"ls", image},
      {"ls", image, "-l", "-R"},
      {"tree", image},
      {"find", image, "T"},
      {"cat", image, "A.TXT"},
      {"get", image, "/", Path("GOT"), "--json"},
      {"put", image, "A.TXT", Path("new"), "--json"},
      {"map", image},
      {"map", image, "-o", "-"},
      {"verify", image},
      {"verify", image, "--json"},
      {"restore", image},
      {"restore", image, "--json"},
      {"demo", "--json"},
      {"demo"},
      {"help"},
      {"--version"}};
  for (const std::vector<std::string>& command : commands) {
    SCOPED_TRACE(::testing::PrintToString(command));
    EXPECT_EQ(RunIntoClosedPipe(command, Path("err")), 141);
    EXPECT_THAT(folder.Read("err"), IsEmpty());
  }
}

// What it remarks on the error output it does beforehand.
TEST_F(ClosedPipe, Sync_EndsWithStatus141) {
  EXPECT_EQ(RunIntoClosedPipe(
                {"sync", Path("disk.img"), Path("DISK"), "--dry-run", "--settle", "0", "--json"},
                Path("err")),
            141);
  EXPECT_THAT(folder.Read("err"), Not(HasSubstr("cannot write")));
}

TEST_F(ClosedPipe, WhatACommandMade_IsWholeAllTheSame) {
  EXPECT_EQ(RunIntoClosedPipe({"build", Path("DISK"), Path("other.img")}, Path("err")), 141);
  EXPECT_EQ(RunProgram({"cat", Path("other.img"), "SUB/B.TXT"}).out, "b");
}

}  // namespace
}  // namespace quorbix::virtdisk::test

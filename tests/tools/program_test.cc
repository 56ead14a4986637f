#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "support/child_process.h"
#include "support/image_crafter.h"
#include "support/temp_folder.h"
#include "tools/built_program.h"

// The built program, run as its users run it.

namespace quorbix::virtdisk::test {
namespace {

namespace fs = std::filesystem;

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class Program : public ::testing::Test {
 protected:
  Program() {
    folder.File("DISK/A.TXT", "hello\n").File("DISK/SUB/B.TXT", "b\n");
    built = RunProgram({"build", (folder / "DISK").string(), Image()});
  }

  std::string Image() const { return (folder / "disk.img").string(); }

  TempFolder folder;
  CommandResult built;
};

TEST_F(Program, WithoutACommand_GivesStatus2) { EXPECT_EQ(RunProgram({}).status, 2); }

TEST_F(Program, BuildListAndRead_GoTogether) {
  EXPECT_EQ(built.status, 0) << built.err;
  EXPECT_EQ(RunProgram({"ls", Image(), "-R"}).out, "/SUB/\n/SUB/B.TXT\n/A.TXT\n");
  EXPECT_EQ(RunProgram({"cat", Image(), "a.txt"}).out, "hello\n");
}

TEST_F(Program, OutputToAFullDevice_GivesStatus1) {
  for (const char* command : {"cat disk.img A.TXT", "ls disk.img", "info disk.img --json",
                              "map disk.img", "--help", "demo"}) {
    const CommandResult run =
        RunInShell("cd " + folder.Path().string() + " && virtdisk " + command + " > /dev/full");
    EXPECT_EQ(run.status, 1) << command;
    EXPECT_THAT(run.err, HasSubstr("virtdisk: cannot write to the standard output: No space left"))
        << command;
  }
}

TEST_F(Program, OutputToAClosedPipe_EndsQuietlyWithStatus141) {
  folder.File("BIG/LARGE.BIN", std::string(1 << 20, 'x'));
  RunProgram({"build", (folder / "BIG").string(), Image()});
  const CommandResult run =
      RunInShell("{ virtdisk cat " + Image() + " LARGE.BIN; echo status $? >&2; } | true");
  EXPECT_EQ(run.err, "status 141\n");
}

TEST_F(Program, ClosedOutput_IsAnErrorAndNoOtherFileTakesItsPlace) {
  const std::string in = "cd " + folder.Path().string() + " && virtdisk ";
  const CommandResult listing = RunInShell(in + "ls disk.img >&-");
  EXPECT_EQ(listing.status, 1);
  EXPECT_THAT(listing.err, HasSubstr("cannot write to the standard output: Bad file descriptor"));
  const CommandResult build = RunInShell(in + "build DISK disk.img --size 64K <&- >&- 2>&-");
  EXPECT_EQ(build.status, 1);
  EXPECT_EQ(fs::file_size(Image()), 65536U);
  EXPECT_EQ(ReadWholeFile(Image()).find("virtdisk:"), std::string::npos);
  EXPECT_EQ(RunProgram({"cat", Image(), "a.txt"}).out, "hello\n");
}

TEST_F(Program, ImageThatMayNotBeRead_IsToldAsThat) {
  fs::permissions(folder.Path(), fs::perms{0777});
  fs::permissions(Image(), fs::perms::none);
  folder.File("new", "new");
  // Where the build lies, another user may have no access.
  const std::string program = (folder / "virtdisk").string();
  fs::copy_file(kProgram, program);
  const int status = RunInChild({.dropRoot = true}, [&] {
    const CommandResult put = RunCommand({program, "put", Image(), "A.TXT", folder / "new"});
    const CommandResult build = RunCommand({program, "build", folder / "DISK", Image()});
    const bool told = put.err.find("Permission denied") != std::string::npos &&
                      build.err.find("--force") != std::string::npos;
    return told && put.status == 1 && build.status == 3 ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(Program, OutputToAPipe_HasNoColour) {
  EXPECT_THAT(RunProgram({"map", Image()}).out, Not(HasSubstr("\x1b")));
  EXPECT_THAT(RunProgram({"ls", Image()}).out, Not(HasSubstr("\x1b")));
}

TEST_F(Program, FileSizeLimit_IsAnErrorAndNoSignal) {
  const std::string before = ReadWholeFile(Image());
  const CommandResult run = RunInShell("cd " + folder.Path().string() +
                                       " && echo hi > new && ulimit -f 100 && "
                                       "virtdisk put disk.img A.TXT new");
  EXPECT_EQ(run.status, 1) << run.err;
  EXPECT_THAT(run.err, HasSubstr("File too large"));
  EXPECT_EQ(ReadWholeFile(Image()), before);
  EXPECT_EQ(folder.Files(".").size(), 4U);  // the two sources, the image, and the new content
}

TEST_F(Program, BuildUnderAFileSizeLimit_FailsAndLeavesNothing) {
  const CommandResult run = RunInShell("cd " + folder.Path().string() +
                                       " && ulimit -f 100 && virtdisk build DISK other.img");
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("virtdisk: cannot write other.img: File too large\n"));
  EXPECT_EQ(folder.Files(".").size(), 3U);  // the two sources and the image
}

TEST_F(Program, Demo_ShowsEveryStepAndCleansUp) {
  folder.Folder("tmp");
  const CommandResult run = RunInShell("TMPDIR=" + (folder / "tmp").string() + " virtdisk demo");
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.out,
              AllOf(HasSubstr("The edit has reached the disk"),
                    HasSubstr("The edit has reached the folder"), HasSubstr("boot and FATs")));
  EXPECT_TRUE(fs::is_empty(folder / "tmp"));
}

// Whoever ends it, by a signal or by reading no further.
TEST_F(Program, DemoThatIsEnded_LeavesNothing) {
  folder.Folder("tmp");
  const std::string demo = "TMPDIR=" + (folder / "tmp").string() + " virtdisk demo";
  const auto isClean = [&] { return fs::is_empty(folder / "tmp"); };
  EXPECT_EQ(RunInShell("{ " + demo + "; echo $? >&2; } | true").err, "141\n");
  EXPECT_TRUE(WaitFor(isClean));
  for (const char* name : {"LARGE/1", "LARGE/2"}) {  // takes seconds
    folder.File(name);
    fs::resize_file(folder / name, std::uintmax_t{100} << 20);
  }
  for (const auto& [signal, status] :
       {std::pair{SIGINT, 130}, {SIGTERM, 143}, {SIGHUP, 129}, {SIGKILL, 256 + SIGKILL}}) {
    SCOPED_TRACE(signal);
    ::setenv("TMPDIR", (folder / "tmp").c_str(), 1);
    Background demonstration({"demo", (folder / "LARGE").string()}, folder / "log");
    ::unsetenv("TMPDIR");
    EXPECT_TRUE(WaitFor([&] { return !isClean(); }));
    EXPECT_EQ(demonstration.End(signal), status);
    EXPECT_TRUE(WaitFor(isClean));
  }
}

TEST_F(Program, DemoAsJson_IsOneObjectALine) {
  folder.Folder("tmp");
  const CommandResult run =
      RunInShell("TMPDIR=" + (folder / "tmp").string() + " virtdisk demo --json");
  EXPECT_EQ(run.status, 0) << run.err;
  std::istringstream lines(run.out);
  std::vector<std::string> steps;
  nlohmann::json last;
  for (std::string line; std::getline(lines, line);) {
    last = nlohmann::json::parse(line);
    if (last.contains("text")) steps.push_back(last["text"]);
  }
  EXPECT_THAT(steps, testing::Contains("The edit has reached the folder"));
  EXPECT_EQ(last["folder"].size(), 6U);
  EXPECT_EQ(last["disk"].size(), 8U);
  EXPECT_TRUE(last["keptIn"].is_null());
  const CommandResult failed = RunInShell("TMPDIR=/nonexistent virtdisk demo --json");
  EXPECT_EQ(failed.status, 1);
  const nlohmann::json error = nlohmann::json::parse(failed.out);
  EXPECT_EQ(error["error"], "TMPDIR is /nonexistent, which is no folder");
  EXPECT_EQ(error["hint"], "TMPDIR names the folder for it: set it to one in which you may write.");
}

// A plain pass would make twins of them.
TEST_F(Program, DemoOfLongNames_CarriesTheirEditsTheGuardedWay) {
  folder.Folder("tmp")
      .File("NAMES/A long name.txt", "one\n")
      .File("NAMES/B long name.txt", "two\n");
  const CommandResult run = RunInShell("TMPDIR=" + (folder / "tmp").string() + " virtdisk demo " +
                                       (folder / "NAMES").string());
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(
      run.out,
      AllOf(HasSubstr("  folder -> disk  changed   A long name.txt -> A_LONG_N.TXT"),
            HasSubstr("  disk -> folder  changed   B_LONG_N.TXT -> B long name.txt"),
            HasSubstr("\nThe folder:\n  A long name.txt, "), testing::Not(HasSubstr("~1"))));
}

TEST_F(Program, DemoOfAFolder_LeavesItAlone) {
  folder.Folder("tmp").File("DISK/A long name.txt", "long\n");
  const auto before = folder.Files("DISK");
  const CommandResult run = RunInShell("TMPDIR=" + (folder / "tmp").string() + " virtdisk demo " +
                                       (folder / "DISK").string() + " --keep");
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(folder.Files("DISK"), before);
  EXPECT_FALSE(fs::is_empty(folder / "tmp"));
  EXPECT_THAT(run.out, HasSubstr("A_LONG_N.TXT"));
}

TEST_F(Program, DemoOfAnEmptyFolder_FailsAndCleansUp) {
  folder.Folder("tmp").Folder("EMPTY");
  const CommandResult run = RunInShell("TMPDIR=" + (folder / "tmp").string() + " virtdisk demo " +
                                       (folder / "EMPTY").string());
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "virtdisk: " + (folder / "EMPTY").string() +
                         " needs two files that are not empty\n  Names that begin with \".\" do "
                         "not count: no listing of a disk shows them.\n");
  EXPECT_TRUE(fs::is_empty(folder / "tmp"));
}

}  // namespace
}  // namespace quorbix::virtdisk::test

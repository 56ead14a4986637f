#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "support/child_process.h"
#include "support/image_crafter.h"
#include "support/temp_folder.h"

// The built program, run as its users run it.

namespace quorbix::virtdisk::test {
namespace {

namespace fs = std::filesystem;

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr char kProgram[] = VIRTDISK_PROGRAM;

CommandResult RunProgram(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), kProgram);
  return RunCommand(arguments);
}

// By a shell, where the program's streams are to go somewhere.
CommandResult RunInShell(const std::string& line) {
  return RunCommand(
      {"sh", "-c", "PATH=" + fs::path(kProgram).parent_path().string() + ":$PATH; " + line});
}

bool WaitFor(const std::function<bool()>& happened) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!happened()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

// The program in the background, its output in a file.
class Background {
 public:
  Background(std::vector<std::string> arguments, const fs::path& output) {
    arguments.insert(arguments.begin(), kProgram);
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    child = ::fork();
    if (child != 0) return;
    if (::freopen(output.c_str(), "w", stdout) == nullptr) ::_exit(126);
    if (::freopen((output.string() + ".err").c_str(), "w", stderr) == nullptr) ::_exit(126);
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  ~Background() {
    if (child <= 0) return;
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
  }
  Background(const Background&) = delete;
  Background& operator=(const Background&) = delete;

  int End(int signal) {
    ::kill(child, signal);
    int status = 0;
    ::waitpid(child, &status, 0);
    child = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 256 + WTERMSIG(status);
  }

 private:
  ::pid_t child = 0;
};

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
  for (const char* command :
       {"cat disk.img A.TXT", "ls disk.img", "info disk.img --json", "map disk.img", "--help"}) {
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

TEST_F(Program, SyncOnce_CarriesAHostFileIntoTheImage) {
  folder.File("DISK/C.TXT", "new\n");
  const CommandResult run = RunProgram({"sync", Image(), (folder / "DISK").string(), "--once"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "host -> image: C.TXT (new)\n");
  EXPECT_EQ(RunProgram({"cat", Image(), "C.TXT"}).out, "new\n");
}

TEST_F(Program, SyncOnceWithAnEmptyFolder_CopiesTheImageOut) {
  const CommandResult run = RunProgram({"sync", Image(), (folder / "COPY").string(), "--once"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "image -> host: A.TXT (new)\nimage -> host: SUB/B.TXT (new)\n");
  EXPECT_EQ(folder.Read("COPY/SUB/B.TXT"), "b\n");
}

TEST_F(Program, SyncOfSidesThatAgree_SaysNothing) {
  const CommandResult run = RunProgram({"sync", Image(), (folder / "DISK").string(), "--once"});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, IsEmpty());
}

TEST_F(Program, SyncWithoutAnImage_Fails) {
  const CommandResult run =
      RunProgram({"sync", "/nonexistent.img", (folder / "DISK").string(), "--once"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("virtdisk: cannot read /nonexistent.img"));
}

TEST_F(Program, SyncOfABareVolume_Fails) {
  WriteBytes(folder / "bare.img", ImageCrafter({.partitioned = false}).Bytes());
  const CommandResult run =
      RunProgram({"sync", (folder / "bare.img").string(), (folder / "DISK").string(), "--once"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("no partition table"));
}

TEST_F(Program, SyncWithAFileAsFolder_Fails) {
  EXPECT_EQ(RunProgram({"sync", Image(), (folder / "DISK/A.TXT").string(), "--once"}).status, 1);
}

TEST_F(Program, Sync_CarriesEditsBothWaysUntilASignalEndsIt) {
  // Told at the end of the first pass. Later edits come in one stroke each, since what happens in
  // the middle of a pass may be taken for agreed.
  folder.File("DISK/FIRST.TXT", "first\n").File("new", "new\n").File("edit", "HELLO\n");
  Background sync({"sync", Image(), (folder / "DISK").string(), "--interval", "20"},
                  folder / "log");
  const auto told = [&](const char* line) {
    return folder.Exists("log") && folder.Read("log").find(line) != std::string::npos;
  };
  ASSERT_TRUE(WaitFor([&] { return told("host -> image: FIRST.TXT (new)\n"); }));
  fs::rename(folder / "new", folder / "DISK/NEW.TXT");
  ASSERT_TRUE(WaitFor([&] { return told("host -> image: NEW.TXT (new)\n"); }));
  ASSERT_EQ(RunProgram({"put", Image(), "A.TXT", (folder / "edit").string()}).status, 0);
  ASSERT_TRUE(WaitFor([&] { return told("image -> host: A.TXT (changed)\n"); }));
  EXPECT_EQ(folder.Read("DISK/A.TXT"), "HELLO\n");
  EXPECT_EQ(sync.End(SIGTERM), 0);
}

TEST_F(Program, SyncWithALongInterval_EndsAtOnceOnInterrupt) {
  Background sync({"sync", Image(), (folder / "DISK").string(), "--interval", "4294967295"},
                  folder / "log");
  ASSERT_TRUE(WaitFor([&] { return folder.Exists("log.err") && !folder.Read("log.err").empty(); }));
  EXPECT_EQ(sync.End(SIGINT), 0);
}

TEST_F(Program, SyncMeetingAForbiddenSubfolder_TellsAndGoesOn) {
  folder.File("DISK/SHUT/X.TXT", "x").Forbidden("DISK/SHUT");
  fs::permissions(folder.Path(), fs::perms::all);
  fs::permissions(Image(), fs::perms::all);
  const int status = RunInChild({.dropRoot = true}, [&] {
    const CommandResult run = RunProgram({"sync", Image(), (folder / "DISK").string(), "--once"});
    return run.status == 1 && run.err.find("Permission denied") != std::string::npos ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
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
  EXPECT_THAT(run.err, HasSubstr("needs two files"));
  EXPECT_TRUE(fs::is_empty(folder / "tmp"));
}

}  // namespace
}  // namespace quorbix::virtdisk::test

// What takes long tells how far it is, on a terminal: here every look at the clock comes a second
// after the one before.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "host/stop_signals.h"
#include "program.h"
#include "support/child_process.h"
#include "support/guest_editor.h"
#include "support/next_function.h"
#include "support/temp_folder.h"
#include "tools/program_run.h"

namespace {

int secondsPassed = 0;

}  // namespace

// Stands in front of the C library's function for the whole program.
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
  using quorbix::virtdisk::test::NextOf;
  const int result = NextOf<int(clockid_t, timespec*)>("clock_gettime")(clock, time);
  if (clock == CLOCK_MONOTONIC) time->tv_sec += ++secondsPassed;
  return result;
}

namespace quorbix::virtdisk::test {
namespace {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class SlowWork : public ::testing::Test {
 protected:
  SlowWork() {
    folder.File("DISK/A.TXT", std::string(3000, 'a'));
    EXPECT_EQ(RunVirtdisk({"build", Path("DISK"), Path("disk.img"), "--size", "3M"}).status, 0);
  }

  std::string Path(const std::string& name) const { return (folder / name).string(); }

  // What a command prints to a terminal beside its output.
  std::string Shown(std::vector<std::string> arguments, bool outIsTerminal = true) const {
    std::ostringstream out;
    std::ostringstream err;
    tool::Console console{
        .out = out, .err = err, .outIsTerminal = outIsTerminal, .errIsTerminal = true};
    EXPECT_EQ(tool::RunProgram(console, std::move(arguments)), expectedStatus) << err.str();
    return err.str();
  }

  static auto IsLineOf(const std::string& work) {
    return AllOf(HasSubstr("\r" + work + ": "), EndsWith(" \r"));
  }

  // Makes the entry of A.TXT say 20,000 bytes, while its chain holds 3,072.
  void CutAShort() {
    std::string image = ReadWholeFile(folder / "disk.img");
    const std::size_t slot = image.find("A       TXT");
    ASSERT_NE(slot, std::string::npos);
    image.replace(slot + 28, 4, std::string("\x20\x4E\0\0", 4));
    WriteWholeFile(folder / "disk.img", image);
    expectedStatus = 1;
  }

  TempFolder folder;
  int expectedStatus = 0;
};

TEST_F(SlowWork, Build_TellsHowFarItIs) {
  const std::string shown = Shown({"build", Path("DISK"), Path("new.img"), "--size", "1M"});
  EXPECT_THAT(shown, HasSubstr("\rcopying: 2.9 KiB of 2.9 KiB, 100 %"));
  EXPECT_THAT(shown, HasSubstr("\rwriting: 1 MiB of 1 MiB, 100 %"));
}

TEST_F(SlowWork, Get_TellsHowFarItIs) {
  EXPECT_THAT(Shown({"get", Path("disk.img"), "/", Path("GOT")}), HasSubstr("2.9 KiB, 100 %"));
}

TEST_F(SlowWork, FileThatIsCutShort_IsCountedAsFarAsItGoes) {
  CutAShort();
  EXPECT_THAT(Shown({"cat", Path("disk.img"), "A.TXT"}, false),
              HasSubstr("\rreading A.TXT: 3 KiB of 3 KiB, 100 %"));
  EXPECT_THAT(Shown({"get", Path("disk.img"), "A.TXT", Path("A.TXT")}),
              HasSubstr("\rcopying: 3 KiB of 3 KiB, 100 %"));
  EXPECT_THAT(Shown({"get", Path("disk.img"), "/", Path("GOT")}),
              HasSubstr("\rcopying: 3 KiB of 3 KiB, 100 %"));
}

TEST_F(SlowWork, Put_TellsHowFarItIs) {
  const std::string shown = Shown({"put", Path("disk.img"), "A.TXT", Path("DISK/A.TXT")});
  EXPECT_THAT(shown, HasSubstr("\rreading: 2.9 KiB of 2.9 KiB, 100 %"));
  EXPECT_THAT(shown, HasSubstr("\rcopying: 3 MiB of 3 MiB, 100 %"));
  EXPECT_THAT(shown, AllOf(HasSubstr("\rwriting: "), EndsWith(" \r")));
}

TEST_F(SlowWork, PutInPlace_TellsHowFarItIs) {
  EXPECT_THAT(Shown({"put", Path("disk.img"), "A.TXT", Path("DISK/A.TXT"), "--in-place"}),
              IsLineOf("writing"));
}

TEST_F(SlowWork, PutInPlaceThatASignalWaitsFor_SaysSo) {
  const tool::SignalsHeld held;
  ::raise(SIGTERM);
  EXPECT_THAT(Shown({"put", Path("disk.img"), "A.TXT", Path("DISK/A.TXT"), "--in-place"}),
              IsLineOf("ending when it is written"));
  ::sigset_t waiting;
  ::sigemptyset(&waiting);
  ::sigaddset(&waiting, SIGTERM);
  const ::timespec atOnce{};
  EXPECT_EQ(::sigtimedwait(&waiting, nullptr, &atOnce), SIGTERM);
}

TEST_F(SlowWork, Cat_TellsHowFarItIsWhereItDoesNotShowTheContent) {
  const std::vector<std::string> command{"cat", Path("disk.img"), "A.TXT"};
  EXPECT_THAT(Shown(command, true), Not(HasSubstr("reading A.TXT")));
  EXPECT_THAT(Shown(command, false), IsLineOf("reading A.TXT"));
}

TEST_F(SlowWork, ReadingCommands_TellHowMuchTheyHaveRead) {
  for (const std::vector<std::string>& command : {std::vector<std::string>{"ls", Path("disk.img")},
                                                  {"find", Path("disk.img"), "A"},
                                                  {"tree", Path("disk.img")},
                                                  {"info", Path("disk.img")},
                                                  {"map", Path("disk.img")},
                                                  {"verify", Path("disk.img")},
                                                  {"cat", Path("disk.img"), "A.TXT"}}) {
    EXPECT_THAT(Shown(command), IsLineOf("reading the disk")) << command[0];
  }
}

TEST_F(SlowWork, Verify_TellsHowManyOfTheClustersInUseItHasSeen) {
  folder.File("DISK/B.TXT", "b");
  EXPECT_EQ(RunVirtdisk({"build", Path("DISK"), Path("disk.img"), "--size", "3M"}).status, 0);
  EXPECT_THAT(Shown({"verify", Path("disk.img")}),
              AllOf(HasSubstr("\rchecking clusters: 6 of 7, 85 %"),
                    HasSubstr("\rchecking clusters: 7 of 7, 100 %")));
}

// Raises a signal once what is printed says that writing has begun.
class RaisingOutput : public std::stringbuf {
  std::streamsize xsputn(const char* text, std::streamsize size) override {
    const std::streamsize put = std::stringbuf::xsputn(text, size);
    if (!hasRaised && str().find("writing: ") != std::string::npos) {
      hasRaised = true;
      ::raise(SIGTERM);
    }
    return put;
  }

  bool hasRaised = false;
};

TEST_F(SlowWork, PutInPlaceThatTakesLongAfterASignal_EndsHalfWrittenAndSaysSo) {
  folder.File("BIG/A.BIN", std::string(4 << 20, 'a')).File("new.bin", std::string(4 << 20, 'b'));
  ASSERT_EQ(RunVirtdisk({"build", Path("BIG"), Path("big.img"), "--size", "8M"}).status, 0);
  const int status = RunInChild({}, [&] {
    const int log = ::open(Path("log").c_str(), O_WRONLY | O_CREAT, 0600);
    ::dup2(log, STDERR_FILENO);
    tool::EndOnSignals();
    RaisingOutput raising;
    std::ostream err(&raising);
    std::ostringstream out;
    tool::Console console{.out = out, .err = err, .errIsTerminal = true};
    return tool::RunProgram(console,
                            {"put", Path("big.img"), "A.BIN", Path("new.bin"), "--in-place"});
  });
  EXPECT_EQ(status, 143);
  EXPECT_THAT(folder.Read("log"), HasSubstr("big.img may be half written; put it"));
  const std::string image = folder.Read("big.img");
  EXPECT_NE(image.find("aaaa"), image.npos);
  EXPECT_NE(image.find("bbbb"), image.npos);
}

TEST_F(SlowWork, ManyEntries_AreToldWhileTheyArePutInOrder) {
  for (const char* command : {"ls", "tree", "info", "map"}) {
    EXPECT_THAT(Shown({command, Path("disk.img")}), HasSubstr("\rlisting: 1 of 2, 50 %"));
  }
  EXPECT_THAT(Shown({"find", Path("disk.img"), "A", "--all"}), HasSubstr("\rlisting: 1 of 2"));
}

TEST_F(SlowWork, LookAtAFolder_TellsHowManyEntries) {
  EXPECT_THAT(Shown({"measure", Path("DISK")}),
              AllOf(IsLineOf("looking at files and folders"), HasSubstr("folders: 1")));
  EXPECT_THAT(Shown({"build", Path("DISK"), Path("new.img"), "--size", "1M"}),
              HasSubstr("\rlooking at files and folders: 1"));
}

TEST_F(SlowWork, Sync_TellsHowFarItIs) {
  folder.File("DISK/B.TXT", std::string(5000, 'b'));
  GuestEditor guest(folder / "disk.img");
  ASSERT_TRUE(guest.Write("C.TXT", std::string(7000, 'c')));
  guest.Save();
  const std::string shown =
      Shown({"sync", Path("disk.img"), Path("DISK"), "--once", "--settle", "0"});
  for (const char* work :
       {"reading the folder", "reading the disk", "writing to the folder", "making the new disk",
        "writing the new disk", "checking the new disk"}) {
    EXPECT_THAT(shown, HasSubstr("\r" + std::string(work) + ": "));
  }
  EXPECT_THAT(shown, HasSubstr(" \rvirtdisk: remark: nothing is remembered"));
}

TEST_F(SlowWork, DryRunOfSync_TellsHowFarItIs) {
  EXPECT_THAT(Shown({"sync", Path("disk.img"), Path("DISK"), "--dry-run", "--settle", "0"}),
              IsLineOf("reading the disk"));
}

TEST_F(SlowWork, Demo_TellsHowFarItIs) {
  folder.File("DISK/B.TXT", std::string(5000, 'b'));
  const std::string shown = Shown({"demo", Path("DISK")});
  EXPECT_THAT(shown, HasSubstr("\rcopying the folder: 7.8 KiB of 7.8 KiB, 100 %"));
  EXPECT_THAT(shown, HasSubstr("\rcopying: 7.8 KiB of 7.8 KiB, 100 %"));
  for (const char* work :
       {"writing", "reading the disk", "making the new disk", "writing to the folder"}) {
    EXPECT_THAT(shown, HasSubstr("\r" + std::string(work) + ": "));
  }
}

TEST_F(SlowWork, Restore_TellsHowFarItIs) {
  folder.File("disk.img.sync/trash/2026-11-21_17.20.05/manifest", "item 1 folder deleted A.TXT\n");
  folder.File("disk.img.sync/trash/2026-11-21_17.20.05/1", "lost");
  EXPECT_THAT(Shown({"restore", Path("disk.img"), "2026-11-21_17.20.05/1", "--to", Path("back")}),
              IsLineOf("restoring"));
}

TEST_F(SlowWork, Quiet_ShowsNothing) {
  EXPECT_THAT(Shown({"cat", Path("disk.img"), "A.TXT", "--quiet"}, false), IsEmpty());
  EXPECT_THAT(Shown({"get", Path("disk.img"), "/", Path("GOT"), "--quiet"}), IsEmpty());
}

TEST_F(SlowWork, OutputToAFile_HasNoLine) {
  const ProgramRun run =
      RunVirtdisk({"sync", Path("disk.img"), Path("DISK"), "--once", "--settle", "0"});
  EXPECT_THAT(run.err, Not(HasSubstr("\r")));
}

}  // namespace
}  // namespace quorbix::virtdisk::test

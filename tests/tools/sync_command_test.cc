#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "commands/sync_report.h"
#include "support/child_process.h"
#include "support/guest_editor.h"
#include "support/image_crafter.h"
#include "support/instrumented.h"
#include "support/temp_folder.h"
#include "tools/built_program.h"
#include "tools/program_run.h"
#include "tools/sync_fixture.h"

namespace quorbix::virtdisk::test {
namespace {

namespace fs = std::filesystem;

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;

TEST_F(SyncCommand, SidesInStep_AreNoNews) {
  const ProgramRun run = Sync();
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.out, IsEmpty());
}

TEST_F(SyncCommand, GuestsEdit_IsToldWithBothNames) {
  Sync();
  GuestWrites("A_LONG_N.TXT", std::string(12 * 1024, 'x'));
  const ProgramRun run = Sync();
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.out, MatchesRegex("[0-9]{2}:[0-9]{2}:[0-9]{2}  disk -> folder  changed   "
                                    "A_LONG_N\\.TXT -> A long name\\.txt  12 KiB\n"));
  EXPECT_EQ(folder.Read("DISK/A long name.txt"), std::string(12 * 1024, 'x'));
}

TEST_F(SyncCommand, HostsFolder_IsToldAsOne) {
  Sync();
  folder.Folder("DISK/NEW");
  EXPECT_THAT(Sync().out, EndsWith("  folder -> disk  new       NEW/\n"));
}

TEST_F(SyncCommand, DryRun_TellsAndTouchesNothing) {
  folder.File("DISK/C.TXT", "new\n");
  const std::string before = ReadWholeFile(Image());
  const ProgramRun run = Sync({"--dry-run"});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, EndsWith("  folder -> disk  new       C.TXT  4 bytes\n"));
  EXPECT_EQ(ReadWholeFile(Image()), before);
  EXPECT_FALSE(folder.Exists("disk.img.sync"));
}

TEST_F(SyncCommand, Refusal_TellsWhatWouldBeLostAndHowToGoOn) {
  Sync();
  fs::rename(Folder(), folder / "moved");
  const ProgramRun run = Sync();
  EXPECT_EQ(run.status, 3);
  EXPECT_THAT(run.err, AllOf(HasSubstr("everything would be deleted from the disk"),
                             HasSubstr("To go on all the same: --accept folder-missing\n")));
  EXPECT_EQ(Sync({"--once", "--accept", "folder-missing"}).status, 0);
  EXPECT_EQ(folder.Read("DISK/SUB/B.TXT"), "b\n");
}

TEST_F(SyncCommand, DryRun_TellsWhatWouldBeDoneWithWhatIsAccepted) {
  Sync();
  fs::rename(Folder(), folder / "moved");
  EXPECT_EQ(Sync({"--dry-run"}).status, 3);
  const ProgramRun run = Sync({"--dry-run", "--accept", "folder-missing"});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, HasSubstr("disk -> folder  new       A_LONG_N.TXT -> A long name.txt"));
  EXPECT_FALSE(folder.Exists("DISK"));
}

TEST_F(SyncCommand, Refusal_NamesOnlyWhatIsNotAccepted) {
  Sync();
  fs::rename(Folder(), folder / "moved");
  fs::copy(folder / "moved", Folder(), fs::copy_options::recursive);
  fs::resize_file(Image(), fs::file_size(Image()) + 512);
  const ProgramRun run = Sync({"--once", "--accept", "folder-replaced"});
  EXPECT_EQ(run.status, 3);
  EXPECT_THAT(run.err, AllOf(HasSubstr("--accept image-resized"),
                             Not(HasSubstr("--accept folder-replaced"))));
}

TEST_F(SyncCommand, Refusal_CountsThePathsThatItDoesNotName) {
  for (int i = 10; i < 23; ++i) folder.File("DISK/F" + std::to_string(i), "x");
  ASSERT_EQ(Sync().status, 0);
  for (int i = 10; i < 23; ++i) folder.Remove("DISK/F" + std::to_string(i));
  EXPECT_THAT(Sync().err, HasSubstr("  /F14\n  and 8 others\n"));
  const auto record = Sync({"--once", "--json"}).JsonLines().at(0);
  EXPECT_EQ(record["hazards"][0]["name"], "many-deletions");
  EXPECT_EQ(record["hazards"][0]["pathCount"], 13);
}

TEST_F(SyncCommand, FirstMeeting_IsToldWhereItBringsSomethingBack) {
  EXPECT_THAT(Sync().err, IsEmpty());
  fs::remove_all(folder / "disk.img.sync");
  folder.Remove("DISK/SUB/B.TXT");
  const ProgramRun run = Sync();
  EXPECT_THAT(run.out, HasSubstr("disk -> folder  new       SUB/B.TXT"));
  EXPECT_THAT(run.err, HasSubstr("nothing is remembered of these two"));
}

TEST_F(SyncCommand, FirstMeetingThatIsRefused_IsNotCalledHarmless) {
  fs::rename(Folder(), folder / "moved");
  for (const char* way : {"--once", "--dry-run"}) {
    const ProgramRun run = Sync({way});
    EXPECT_EQ(run.status, 3) << way;
    EXPECT_THAT(run.err, Not(HasSubstr("nothing is deleted"))) << way;
  }
  const ProgramRun run = Sync({"--dry-run", "--accept", "folder-missing"});
  EXPECT_THAT(run.err, HasSubstr("nothing is deleted"));
}

TEST_F(SyncCommand, UnknownHazard_IsAWrongUse) {
  EXPECT_EQ(Sync({"--once", "--accept", "everything"}).status, 2);
}

TEST_F(SyncCommand, ExchangedArguments_AreUnderstood) {
  const ProgramRun run = RunVirtdisk({"sync", Folder(), Image(), "--once", "--settle", "0"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.err, HasSubstr("took " + Image() + " for the image"));
}

TEST_F(SyncCommand, ImageInThePlaceOfAFolderThatIsGone_IsUnderstood) {
  const ProgramRun run =
      RunVirtdisk({"sync", (folder / "gone").string(), Image(), "--once", "--settle", "0"});
  EXPECT_EQ(run.status, 3);
  EXPECT_THAT(run.err, AllOf(HasSubstr("for the image and"), HasSubstr("gone is not there")));
}

TEST_F(SyncCommand, MissingImage_IsRefused) {
  const ProgramRun run = RunVirtdisk({"sync", "/nonexistent.img", Folder(), "--once"});
  EXPECT_EQ(run.status, 3);
  EXPECT_THAT(run.err, HasSubstr("the image /nonexistent.img is not there"));
}

TEST_F(SyncCommand, BareVolume_IsRefused) {
  WriteBytes(folder / "disk.img", ImageCrafter({.partitioned = false}).Bytes());
  const ProgramRun run = Sync();
  EXPECT_EQ(run.status, 3);
  EXPECT_THAT(run.err, HasSubstr("no partition table"));
}

// The state, the file from the disk, the trash's list and the new image grow beyond it in turn.
TEST_F(SyncCommand, LimitOnTheSizeOfFiles_LosesNothing) {
  for (const char* way : {"--once", "--in-place"}) {
    Sync();
    const std::string edited = way + std::string(5000, 'h');
    const std::string guests = way + std::string(3000, 'g');
    folder.File("DISK/A long name.txt", edited);
    GuestWrites("SUB/B.TXT", guests);
    for (const unsigned limit : {0u, 20u, 200u, 1000u, 4000u, 100'000u, 2'000'000u}) {
      SCOPED_TRACE(std::string(way) + " up to " + std::to_string(limit));
      const int status = RunInChild({.fileSizeLimit = limit}, [&] {
        return Sync({"--once", way}).status;
      });
      EXPECT_EQ(status, 1);
      EXPECT_EQ(folder.Read("DISK/A long name.txt"), edited);
      EXPECT_EQ(GuestEditor(Image()).Files().at("SUB/B.TXT"), guests);
    }
    EXPECT_EQ(Sync({"--once", way}).status, 0);
    EXPECT_EQ(folder.Read("DISK/SUB/B.TXT"), guests);
    EXPECT_EQ(GuestEditor(Image()).Files().at("A_LONG_N.TXT"), edited);
  }
}

TEST_F(SyncCommand, Conflict_IsDecidedAsAsked) {
  Sync();
  folder.File("DISK/SUB/B.TXT", "of the host");
  GuestWrites("SUB/B.TXT", "of the guest");
  EXPECT_EQ(Sync({"--once", "--on-conflict", "stop"}).status, 3);
  EXPECT_EQ(Sync({"--once", "--on-conflict", "disk"}).status, 0);
  EXPECT_EQ(folder.Read("DISK/SUB/B.TXT"), "of the guest");

  folder.File("DISK/SUB/B.TXT", "of the host again");
  GuestWrites("SUB/B.TXT", "of the guest again");
  EXPECT_EQ(Sync({"--once", "--on-conflict", "host"}).status, 0);
  EXPECT_EQ(GuestEditor(Image()).Files().at("SUB/B.TXT"), "of the host again");
  EXPECT_EQ(folder.Files("DISK/SUB").size(), 1u);

  folder.File("DISK/SUB/B.TXT", "one");
  GuestWrites("SUB/B.TXT", "other");
  EXPECT_EQ(Sync({"--once", "--on-conflict", "both"}).status, 0);
  EXPECT_EQ(folder.Read("DISK/SUB/B.TXT"), "one");
  EXPECT_EQ(folder.Files("DISK/SUB").size(), 2u);
}

TEST_F(SyncCommand, ImageInPlace_KeepsItsInode) {
  Sync();
  const auto inode = [&] {
    struct ::stat status;
    EXPECT_EQ(::stat(Image().c_str(), &status), 0);
    return status.st_ino;
  };
  const auto before = inode();
  folder.File("DISK/C.TXT", "new\n");
  EXPECT_EQ(Sync({"--once", "--in-place"}).status, 0);
  EXPECT_EQ(inode(), before);
  EXPECT_TRUE(GuestEditor(Image()).Exists("C.TXT"));
  folder.File("DISK/C.TXT", "newer\n");
  EXPECT_EQ(Sync().status, 0);
  EXPECT_NE(inode(), before);
}

TEST_F(SyncCommand, Json_IsOneObjectAPass) {
  folder.File("DISK/C.TXT", "new\n");
  const nlohmann::json report = Sync({"--once", "--json"}).Json();
  EXPECT_EQ(report["outcome"], "done");
  EXPECT_EQ(report["files"], 3);
  EXPECT_EQ(report["firstMeeting"], true);
  EXPECT_EQ(report["steps"][0]["to"], "disk");
  EXPECT_EQ(report["steps"][0]["hostPath"], "C.TXT");
  EXPECT_EQ(report["steps"][0]["done"], true);
}

TEST_F(SyncCommand, WhatTakesNoPart_IsTold) {
  folder.File("DISK/.profile", "p");
  EXPECT_THAT(Sync().err, HasSubstr(".profile takes no part"));
  EXPECT_THAT(Sync({"--once", "--quiet"}).err, IsEmpty());
}

TEST_F(SyncCommand, WhatTakesNoPartLater_IsToldThenAndOnce) {
  folder.File("DISK/.profile", "p");
  const fs::path errors = folder / "log.err";
  Background sync({"sync", Image(), Folder(), "--settle", "0"}, folder / "log");
  const auto count = [&](const std::string& words) {
    const std::string text = fs::exists(errors) ? ReadWholeFile(errors) : "";
    int times = 0;
    for (auto at = text.find(words); at != text.npos; at = text.find(words, at + 1)) ++times;
    return times;
  };
  ASSERT_TRUE(WaitFor([&] { return count(".profile takes no part") == 1; }));
  folder.Pipe("DISK/pipe");
  EXPECT_TRUE(WaitFor([&] { return count("pipe takes no part: neither") == 1; }));
  EXPECT_EQ(count(".profile takes no part"), 1);
}

// Whoever saves a file is done in a moment.
TEST_F(SyncCommand, FileThatIsBeingWritten_IsNoTroubleForARunningSync) {
  Background sync({"sync", Image(), Folder(), "--settle", "300"}, folder / "log");
  ASSERT_TRUE(WaitFor([&] { return folder.Exists("disk.img.sync/state"); }));
  folder.File("DISK/NEW.TXT", "1");
  for (int i = 0; i < 10; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    folder.File("DISK/NEW.TXT", std::string(static_cast<std::size_t>(i), '2'));
  }
  ASSERT_TRUE(WaitFor([&] { return folder.Read("log").find("NEW.TXT") != std::string::npos; }));
  EXPECT_THAT(folder.Read("log.err"), Not(HasSubstr("NEW.TXT is being")));
  EXPECT_EQ(sync.End(SIGTERM), 143);
}

// Otherwise the image would be read whole twice a second, for hours.
TEST_F(SyncCommand, ImageThatStaysOpen_IsLookedAtMoreAndMoreSeldom) {
  Sync();
  folder.File("DISK/C.TXT", "new\n");
  const int writer = ::open(Image().c_str(), O_WRONLY | O_CLOEXEC);
  Background sync({"sync", Image(), Folder(), "--settle", "0", "--json"}, folder / "log");
  std::this_thread::sleep_for(std::chrono::seconds(3));
  EXPECT_EQ(sync.End(SIGTERM), 143);
  ::close(writer);
  const std::string passes = folder.Read("log");
  EXPECT_THAT(passes, HasSubstr("not now"));
  // At once, and after 0.5, 1.5 and 3.5 seconds.
  EXPECT_LE(std::count(passes.begin(), passes.end(), '\n'), 4);
}

// What it has begun to write is no change that calls for another pass.
TEST_F(SyncCommand, PassThatFails_IsTriedMoreAndMoreSeldom) {
  Sync();
  GuestWrites("LARGE.BIN", std::string(300'000, 'x'));
  const CommandResult run = RunInShell("ulimit -f 200; timeout 3 virtdisk sync " + Image() + " " +
                                       Folder() + " --settle 0 --json");
  EXPECT_THAT(run.out, HasSubstr("\"outcome\":\"failed\""));
  EXPECT_LE(std::count(run.out.begin(), run.out.end(), '\n'), 4);
}

TEST_F(SyncCommand, PairThatAnotherProcessKeeps_IsWaitedForInWords) {
  Background first({"sync", Image(), Folder(), "--settle", "0"}, folder / "log");
  ASSERT_TRUE(WaitFor([&] { return folder.Exists("disk.img.sync/state"); }));
  Background second({"sync", Image(), Folder(), "--settle", "0"}, folder / "other");
  EXPECT_TRUE(WaitFor([&] {
    return folder.Exists("other.err") &&
           folder.Read("other.err").find("remark: waiting: process ") != std::string::npos;
  }));
}

TEST_F(SyncCommand, FolderThatAnotherProcessKeeps_IsWaitedForInWordsWhateverTheState) {
  Background first({"sync", Image(), Folder(), "--settle", "0"}, folder / "log");
  ASSERT_TRUE(WaitFor([&] { return folder.Exists("disk.img.sync/state"); }));
  Background second(
      {"sync", Image(), Folder(), "--settle", "0", "--state", (folder / "elsewhere").string()},
      folder / "other");
  const std::string words = "remark: waiting: process " + std::to_string(first.Process()) +
                            " keeps the folder " + Folder() + " in step already";
  EXPECT_TRUE(WaitFor([&] {
    return folder.Exists("other.err") && folder.Read("other.err").find(words) != std::string::npos;
  }));
}

TEST_F(SyncCommand, State_LiesWhereItIsAsked) {
  Sync({"--once", "--state", (folder / "elsewhere").string()});
  EXPECT_TRUE(folder.Exists("elsewhere/state"));
  EXPECT_FALSE(folder.Exists("disk.img.sync"));
}

TEST_F(SyncCommand, RunningSync_CarriesEditsBothWaysUntilASignalEndsIt) {
  Background sync({"sync", Image(), Folder(), "--settle", "50"}, folder / "log");
  const auto told = [&](const char* line) {
    return folder.Exists("log") && folder.Read("log").find(line) != std::string::npos;
  };
  ASSERT_TRUE(WaitFor([&] { return folder.Exists("disk.img.sync/state"); }));
  folder.File("DISK/NEW.TXT", "new\n");
  ASSERT_TRUE(WaitFor([&] { return told("folder -> disk  new       NEW.TXT  4 bytes\n"); }));
  GuestWrites("SUB/B.TXT", "HELLO\n");
  ASSERT_TRUE(WaitFor([&] { return told("disk -> folder  changed   SUB/B.TXT  6 bytes\n"); }));
  EXPECT_EQ(folder.Read("DISK/SUB/B.TXT"), "HELLO\n");
  EXPECT_EQ(sync.End(SIGTERM), 128 + SIGTERM);
}

TEST_F(SyncCommand, GuestsEditBehindALinkToTheImage_IsSeenAtOnce) {
  fs::create_directory(folder / "images");
  fs::rename(Image(), folder / "images/real.img");
  fs::create_symlink("images/real.img", Image());
  Background sync({"sync", Image(), Folder(), "--settle", "0", "--interval", "3600000"},
                  folder / "log");
  ASSERT_TRUE(WaitFor([&] { return folder.Exists("images/real.img.sync/state"); }));
  GuestEditor guest(folder / "images/real.img");
  ASSERT_TRUE(guest.Write("SUB/B.TXT", "HELLO\n"));
  guest.Save();
  EXPECT_TRUE(WaitFor([&] { return folder.Read("DISK/SUB/B.TXT") == "HELLO\n"; }));
}

// The next one may be a mistake.
TEST_F(SyncCommand, EventThatIsAccepted_IsAcceptedOnce) {
  for (int i = 0; i < 30; ++i) folder.File("DISK/F" + std::to_string(i), "x");
  ASSERT_EQ(Sync().status, 0);
  for (int i = 0; i < 30; ++i) fs::remove(folder / ("DISK/F" + std::to_string(i)));
  const fs::path log = folder / "log";
  const fs::path errors = folder / "log.err";
  const auto says = [](const fs::path& file, const char* words) {
    return fs::exists(file) && ReadWholeFile(file).find(words) != std::string::npos;
  };
  Background sync({"sync", Image(), Folder(), "--settle", "0", "--accept", "many-deletions"}, log);
  ASSERT_TRUE(WaitFor([&] { return says(log, "F29"); }));
  EXPECT_FALSE(GuestEditor(Image()).Exists("F7"));
  for (int i = 0; i < 30; ++i) folder.File("DISK/G" + std::to_string(i), "x");
  ASSERT_TRUE(WaitFor([&] { return says(log, "G29"); }));
  for (int i = 0; i < 30; ++i) fs::remove(folder / ("DISK/G" + std::to_string(i)));
  EXPECT_TRUE(WaitFor([&] { return says(errors, "--accept many-deletions"); }));
  EXPECT_TRUE(GuestEditor(Image()).Exists("G7"));
  EXPECT_EQ(sync.End(SIGTERM), 143);
}

TEST_F(SyncCommand, RunningSync_EndsAtOnceOnASignal) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    folder.Remove("log.err");
    Background sync({"sync", Image(), Folder(), "--interval", "4294967295"}, folder / "log");
    ASSERT_TRUE(
        WaitFor([&] { return folder.Exists("log.err") && !folder.Read("log.err").empty(); }));
    EXPECT_EQ(sync.End(signal), 128 + signal);
  }
}

// A file so large that a signal comes in the middle of it.
class LargeSync : public SyncCommand {
 protected:
#ifdef __OPTIMIZE__
  static constexpr std::uint64_t kLarge = std::uint64_t{500} << 20;
#else
  static constexpr std::uint64_t kLarge = std::uint64_t{30} << 20;
#endif

  LargeSync() {
    const std::string size = std::to_string(2 * kLarge);
    EXPECT_EQ(RunVirtdisk({"build", Folder(), Image(), "--size", size}).status, 0);
    EXPECT_EQ(Sync().status, 0);
    folder.File("DISK/LARGE");
    fs::resize_file(folder / "DISK/LARGE", kLarge);
  }

  // What lies beside the folder, without the log.
  std::vector<std::string> Beside() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder.Path())) {
      const std::string name = entry.path().filename();
      if (!name.starts_with("log")) names.push_back(name);
    }
    return names;
  }

  void ExpectEndedSoon(Background& sync) const {
    const auto began = std::chrono::steady_clock::now();
    EXPECT_EQ(sync.End(SIGTERM), 128 + SIGTERM);
    EXPECT_LT(std::chrono::steady_clock::now() - began,
              std::chrono::seconds(kInstrumented ? 5 : 1));
    EXPECT_THAT(Beside(), UnorderedElementsAre("DISK", "disk.img", "disk.img.sync"));
    EXPECT_FALSE(GuestEditor(Image()).Exists("LARGE"));
  }
};

TEST_F(LargeSync, SignalWhileTheFolderIsRead_EndsIt) {
  Background sync({"sync", Image(), Folder(), "--settle", "0", "--once"}, folder / "log");
  ASSERT_TRUE(WaitFor([&] { return sync.Handles(SIGTERM); }));
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  ExpectEndedSoon(sync);
}

TEST_F(LargeSync, SignalWhileTheNewImageIsWritten_EndsItAndLeavesNoneBehind) {
  Background sync({"sync", Image(), Folder(), "--settle", "0", "--once"}, folder / "log");
  ASSERT_TRUE(WaitFor([&] { return Beside().size() == 4; }));
  ExpectEndedSoon(sync);
}

TEST_F(SyncCommand, TrashSize_IsWhatTheTrashKeeps) {
  Sync();
  for (const char* content : {"1\n", "22\n", "333\n"}) {
    GuestWrites("SUB/B.TXT", content);
    EXPECT_EQ(Sync({"--once", "--trash-size", "1K"}).status, 0);
  }
  const std::string few = RunVirtdisk({"restore", Image()}).out;
  EXPECT_EQ(std::count(few.begin(), few.end(), '\n'), 3);  // of two and three bytes: little enough
  folder.File("DISK/A long name.txt", "edited");
  EXPECT_EQ(Sync({"--once", "--trash-size", "1K"}).status, 0);
  EXPECT_THAT(RunVirtdisk({"restore", Image()}).out,
              MatchesRegex("[^\n]*  image replaced  disk  [^\n]*  disk\\.img\n"));
}

TEST_F(SyncCommand, SecondSyncOfThePair_IsToldWhoIsFirst) {
  Background sync({"sync", Image(), Folder(), "--settle", "50"}, folder / "log");
  ASSERT_TRUE(WaitFor([&] { return folder.Exists("disk.img.sync/state"); }));
  const ProgramRun run = Sync({"--dry-run"});
  EXPECT_EQ(run.status, 0);  // looking is free
  const auto second = CreateGuardedFolderSync(Image(), Folder())->Pass();
  EXPECT_EQ(second.outcome, GuardedOutcome::kNotNow);
  EXPECT_THAT(second.message, MatchesRegex("process [0-9]+ keeps this pair in step already"));
}

// Both at once, since each takes its time.
TEST_F(SyncCommand, SidesThatNeverBecomeQuiet_AreGivenUpAfterTenSeconds) {
  folder.File("BUSY/A.TXT", "a");
  const std::string busyImage = (folder / "busy.img").string();
  ASSERT_EQ(RunVirtdisk({"build", (folder / "BUSY").string(), busyImage}).status, 0);
  Sync();
  folder.File("DISK/C.TXT", "new\n");
  const int writer = ::open(Image().c_str(), O_WRONLY | O_CLOEXEC);
  const auto began = std::chrono::steady_clock::now();
  const auto elapsed = [&] { return std::chrono::steady_clock::now() - began; };
  std::atomic<bool> isOver = false;
  std::thread editor([&] {
    for (; !isOver; std::this_thread::sleep_for(std::chrono::milliseconds(50))) {
      folder.File("BUSY/A.TXT", "edited again");
    }
  });
  Background busy({"sync", busyImage, (folder / "BUSY").string(), "--once", "--settle", "1000"},
                  folder / "log");
  const ProgramRun run = Sync();
  EXPECT_GE(elapsed(), std::chrono::seconds(10));
  ::close(writer);
  EXPECT_EQ(run.status, 3);
  EXPECT_THAT(run.err, HasSubstr("has the image open for writing\n  Nothing is lost"));
  EXPECT_EQ(busy.Wait(), 3);
  EXPECT_LT(elapsed(), std::chrono::seconds(kInstrumented ? 30 : 15));
  isOver = true;
  editor.join();
  EXPECT_THAT(folder.Read("log.err"), HasSubstr("A.TXT is being written just now\n  Nothing is"));
  EXPECT_EQ(GuestEditor(busyImage).Files().at("A.TXT"), "a");
}

TEST_F(SyncCommand, FolderThatBecomesQuiet_IsWaitedFor) {
  Sync();
  const auto began = std::chrono::steady_clock::now();
  folder.File("DISK/SUB/B.TXT", "edited");
  const ProgramRun run =
      RunVirtdisk({"sync", Image(), Folder(), "--settle", "1000", "--once", "--json"});
  // Files have the time of the last tick before they were written.
  EXPECT_GE(std::chrono::steady_clock::now() - began, std::chrono::milliseconds(950));
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.Json()["outcome"], "done");
  EXPECT_EQ(GuestEditor(Image()).Files().at("SUB/B.TXT"), "edited");
}

// What is written through another name of the file is no news of the folder.
TEST_F(SyncCommand, ChangeThatTheKernelDoesNotTellOf_IsFoundAfterTheInterval) {
  fs::create_hard_link(folder / "DISK/SUB/B.TXT", folder / "elsewhere");
  Background sync({"sync", Image(), Folder(), "--settle", "0", "--interval", "1000"},
                  folder / "log");
  ASSERT_TRUE(WaitFor([&] { return folder.Exists("disk.img.sync/quiet"); }));
  folder.File("elsewhere", "edited");
  EXPECT_TRUE(WaitFor([&] { return GuestEditor(Image()).Files().at("SUB/B.TXT") == "edited"; }));
}

// What it costs while nothing happens: the main thread is not even woken up.
TEST_F(SyncCommand, RunningSync_DoesNothingWhileNothingChanges) {
  Background sync({"sync", Image(), Folder(), "--settle", "0"}, folder / "log");
  ASSERT_TRUE(WaitFor([&] { return folder.Exists("disk.img.sync/state"); }));
  const std::string process = "/proc/" + std::to_string(sync.Process());
  const auto work = [&] {
    std::string lines;
    for (const char* file : {"/status", "/io"}) {
      std::ifstream stream(process + file);
      for (std::string line; std::getline(stream, line);) {
        const bool isWork = line.find("ctxt_switches") != line.npos || line.starts_with("rchar") ||
                            line.starts_with("syscr");
        if (isWork) lines += line + '\n';
      }
    }
    return lines;
  };
  const auto isAsleep = [&] {
    const std::string before = work();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    return work() == before;
  };
  ASSERT_TRUE(WaitFor(isAsleep));
  const std::string before = work();
  EXPECT_THAT(before, AllOf(HasSubstr("rchar: "), HasSubstr("voluntary_ctxt_switches:")));
  std::this_thread::sleep_for(std::chrono::seconds(1));
  EXPECT_EQ(work(), before);
  EXPECT_EQ(sync.End(SIGTERM), 143);
}

TEST_F(SyncCommand, MoreThanTheDiskHolds_IsRefusedInWords) {
  Sync();
  folder.File("DISK/BIG.DAT", std::string(5'000'000, 'x'));
  const std::string before = ReadWholeFile(Image());
  const ProgramRun run = Sync();
  EXPECT_EQ(run.status, 3);
  EXPECT_THAT(run.err,
              AllOf(HasSubstr("use an image of 5 MiB or more"), HasSubstr("cannot be accepted")));
  EXPECT_EQ(ReadWholeFile(Image()), before);
  EXPECT_TRUE(folder.Exists("DISK/BIG.DAT"));
}

// Root may write to everything.
TEST_F(SyncCommand, ReadOnlyImage_IsRefusedInWords) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs another user";
  Sync();
  folder.File("DISK/C.TXT", "new\n");
  for (const auto& entry : fs::recursive_directory_iterator(folder.Path())) {
    ASSERT_EQ(::chown(entry.path().c_str(), 65534, 65534), 0);
  }
  ASSERT_EQ(::chown(folder.Path().c_str(), 65534, 65534), 0);
  fs::permissions(Image(), fs::perms(0444));
  const int status = RunInChild({.dropRoot = true}, [&] {
    const ProgramRun run = Sync();
    const bool isTold =
        run.err.find("cannot be written to, and the folder has changed") != std::string::npos;
    return isTold ? run.status : 100;
  });
  EXPECT_EQ(status, 3);
  EXPECT_TRUE(folder.Exists("DISK/C.TXT"));
}

// What the folder got before the image was seen to change is not done again.
TEST_F(SyncCommand, TryThatDidSomething_IsToldThoughAnotherOneFollows) {
  ASSERT_EQ(RunVirtdisk({"build", Folder(), Image(), "--size", "60M"}).status, 0);
  Sync();
  nlohmann::json first;
  // On a busy machine the change can come when the first try is over.
  for (int round = 0; round < 10 && first["outcome"] != "not now"; ++round) {
    const std::string name = "LARGE" + std::to_string(round) + ".BIN";
    GuestWrites(name, std::string(2'000'000, 'g'));
    folder.File("DISK/C.TXT", "new " + std::to_string(round));
    folder.Remove("log");
    Background sync({"sync", Image(), Folder(), "--settle", "0", "--once", "--json"},
                    folder / "log");
    for (int i = 0; i < 30'000 && !folder.Exists("DISK/" + name); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    fs::last_write_time(Image(), fs::file_time_type::clock::now());
    ASSERT_EQ(sync.Wait(), 0);
    std::istringstream lines(folder.Read("log"));
    std::string line;
    std::getline(lines, line);
    first = nlohmann::json::parse(line);
  }
  EXPECT_EQ(first["outcome"], "not now");
  ASSERT_EQ(first["steps"].size(), 2u);
  for (const auto& step : first["steps"]) {
    EXPECT_EQ(step["done"], step["diskPath"] != "/C.TXT") << step;
  }
}

// --- its parts

TEST(StepLine, EachKind_ReadsAsASentence) {
  using Kind = GuardedStep::Kind;
  using Reason = GuardedStep::Reason;
  const auto line = [](Kind kind, Reason reason) {
    return tool::StepLine({.kind = kind,
                           .reason = reason,
                           .hostPath = "Long name",
                           .diskPath = "/LONG_NAM",
                           .bytes = 3},
                          "T");
  };
  EXPECT_EQ(line(Kind::kWriteOnHost, Reason::kNew),
            "T  disk -> folder  new       LONG_NAM -> Long name  3 bytes");
  EXPECT_EQ(line(Kind::kDeleteOnDisk, Reason::kDeleted),
            "T  folder -> disk  deleted   Long name -> LONG_NAM  3 bytes");
  EXPECT_EQ(line(Kind::kMakeOnHost, Reason::kNew),
            "T  disk -> folder  new       LONG_NAM -> Long name/");
  EXPECT_EQ(line(Kind::kWriteOnDisk, Reason::kConflict),
            "T  folder -> disk  conflict  Long name -> LONG_NAM  3 bytes");
}

TEST(FindHazard, EveryName_IsFoundAgain) {
  for (const std::string& name : tool::HazardNames()) {
    const auto hazard = tool::FindHazard(name);
    ASSERT_TRUE(hazard) << name;
    EXPECT_EQ(GuardedHazardName(*hazard), name);
  }
  EXPECT_FALSE(tool::FindHazard("everything"));
}

}  // namespace
}  // namespace quorbix::virtdisk::test

// A sync that runs until a signal ends it, and two of them.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/guest_editor.h"
#include "support/instrumented.h"
#include "support/temp_folder.h"
#include "tools/built_program.h"
#include "tools/program_run.h"
#include "tools/sync_fixture.h"

namespace quorbix::virtdisk::test {
namespace {

namespace fs = std::filesystem;

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::UnorderedElementsAre;

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

// As nohup makes it, for who has gone to the folder first.
TEST_F(SyncCommand, OutputInsideTheFolder_IsRefused) {
  Background sync({"sync", Image(), Folder(), "--settle", "0"}, folder / "DISK/nohup.out");
  EXPECT_EQ(sync.Wait(), 3);
  EXPECT_THAT(folder.Read("DISK/nohup.out.err"), HasSubstr("the output goes to "));
  EXPECT_FALSE(folder.Exists("disk.img.sync"));
}

TEST_F(SyncCommand, SecondSyncOfThePair_IsToldWhoIsFirst) {
  Background sync({"sync", Image(), Folder(), "--settle", "50"}, folder / "log");
  ASSERT_TRUE(WaitFor([&] { return folder.Exists("disk.img.sync/state"); }));
  const ProgramRun run = Sync({"--dry-run"});
  EXPECT_EQ(run.status, 3);
  EXPECT_THAT(run.err, HasSubstr("process " + std::to_string(sync.Process()) +
                                 " keeps this pair in step already"));
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

}  // namespace
}  // namespace quorbix::virtdisk::test

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "commands/sync_report.h"
#include "support/child_process.h"
#include "support/guest_editor.h"
#include "support/image_crafter.h"
#include "support/temp_folder.h"
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

// What it has begun to write is no change that calls for another pass.
TEST_F(SyncCommand, PassThatFails_IsTriedMoreAndMoreSeldom) {
  Sync();
  GuestWrites("LARGE.BIN", std::string(300'000, 'x'));
  const CommandResult run = RunInShell("ulimit -f 200; timeout 3 virtdisk sync " + Image() + " " +
                                       Folder() + " --settle 0 --json");
  EXPECT_THAT(run.out, HasSubstr("\"outcome\":\"failed\""));
  EXPECT_LE(std::count(run.out.begin(), run.out.end(), '\n'), 4);
}

TEST_F(SyncCommand, State_LiesWhereItIsAsked) {
  Sync({"--once", "--state", (folder / "elsewhere").string()});
  EXPECT_TRUE(folder.Exists("elsewhere/state"));
  EXPECT_FALSE(folder.Exists("disk.img.sync"));
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

TEST_F(SyncCommand, Verify_ReadsEverythingAndSaysWhen) {
  const auto lastReadInFull = [&](std::vector<std::string> options) {
    options.insert(options.end(), {"--once", "--json"});
    return Sync(options).JsonLines().back()["lastReadInFull"].get<std::int64_t>();
  };
  // So that the files' times can tell.
  std::this_thread::sleep_for(std::chrono::milliseconds(2100));
  const std::int64_t before = lastReadInFull({});
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));
  EXPECT_EQ(lastReadInFull({}), before);
  const std::int64_t verified = lastReadInFull({"--verify"});
  EXPECT_GT(verified, before);
  EXPECT_EQ(lastReadInFull({}), verified);
}

}  // namespace
}  // namespace quorbix::virtdisk::test

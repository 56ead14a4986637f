#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/guest_editor.h"
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
using ::testing::SizeIs;

TEST_F(SyncCommand, RestoreOfAWholeImage_GivesTheOldDisk) {
  Sync();
  const std::string before = ReadWholeFile(Image());
  folder.File("DISK/C.TXT", "new\n");
  Sync();
  const auto items = RunVirtdisk({"restore", Image(), "--json"}).JsonLines();
  ASSERT_THAT(items, SizeIs(1));
  EXPECT_EQ(RunVirtdisk({"restore", Image(), items[0]["id"]}).status, 1);  // it would replace
  const std::string target = (folder / "old.img").string();
  EXPECT_EQ(RunVirtdisk({"restore", Image(), items[0]["id"], "--to", target}).status, 0);
  EXPECT_EQ(ReadWholeFile(target), before);
}

TEST_F(SyncCommand, RestoreAsJson_HasTimesLikeTheOthersAndWhereTheItemWent) {
  Sync();
  GuestWrites("SUB/B.TXT", "of the guest");
  Sync();
  const auto listed = RunVirtdisk({"restore", Image(), "--json"}).JsonLines();
  ASSERT_THAT(listed, SizeIs(1));
  EXPECT_THAT(listed[0]["time"].get<std::string>(),
              MatchesRegex("....-..-.. [0-9][0-9]:[0-9][0-9]:[0-9][0-9]"));
  EXPECT_TRUE(listed[0].contains("restoredTo"));
  EXPECT_EQ(listed[0]["restoredTo"], nullptr);
  const std::string target = (folder / "old.txt").string();
  nlohmann::json expected = listed[0];
  expected["restoredTo"] = target;
  EXPECT_EQ(RunVirtdisk({"restore", Image(), listed[0]["id"], "--to", target, "--json"}).Json(),
            expected);
}

TEST_F(SyncCommand, Restore_ListsAndBringsBack) {
  Sync();
  GuestWrites("SUB/B.TXT", "of the guest");
  Sync();
  const ProgramRun list = RunVirtdisk({"restore", Image()});
  EXPECT_THAT(list.out, HasSubstr("  replaced        folder  2 bytes  SUB/B.TXT\n"));
  const std::string id = list.out.substr(0, list.out.find(' '));
  EXPECT_EQ(RunVirtdisk({"restore", Image(), id}).status, 1);  // where to?
  const std::string target = (folder / "old.txt").string();
  EXPECT_EQ(RunVirtdisk({"restore", Image(), id, "--to", target}).status, 0);
  EXPECT_EQ(folder.Read("old.txt"), "b\n");
  EXPECT_EQ(RunVirtdisk({"restore", Image(), id, "--to", target}).status, 1);  // it exists
}

TEST_F(SyncCommand, RestoreIntoTheFolder_GivesTheOldName) {
  Sync();
  GuestEditor guest(Image());
  ASSERT_TRUE(guest.Remove("SUB/B.TXT"));
  guest.Save();
  Sync();
  EXPECT_FALSE(folder.Exists("DISK/SUB/B.TXT"));
  const auto items = RunVirtdisk({"restore", Image(), "--json"}).JsonLines();
  ASSERT_THAT(items, SizeIs(1));
  EXPECT_EQ(RunVirtdisk({"restore", Image(), items[0]["id"], "--folder", Folder()}).status, 0);
  EXPECT_EQ(folder.Read("DISK/SUB/B.TXT"), "b\n");
}

TEST_F(SyncCommand, RestoreOntoWhatIsNoFile_IsRefusedWhateverIsForced) {
  Sync();
  GuestWrites("SUB/B.TXT", "of the guest");
  Sync();
  folder.Pipe("pipe").Folder("place");
  const std::string id = RunVirtdisk({"restore", Image(), "--json"}).JsonLines().at(0)["id"];
  const std::vector<std::string> places{(folder / "pipe").string(), (folder / "place").string(),
                                        "/dev/null"};
  for (const std::string& place : places) {
    for (const char* option : {"--quiet", "--force"}) {
      const ProgramRun run = RunVirtdisk({"restore", Image(), id, "--to", place, option});
      EXPECT_EQ(run.status, 3) << place;
      EXPECT_THAT(run.err, HasSubstr(place + " is no file, and is not replaced\n  --to FILE"));
    }
  }
}

TEST_F(SyncCommand, RestoreWithoutState_Fails) {
  const ProgramRun run = RunVirtdisk({"restore", Image()});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("there is no state folder " + Image() + ".sync"));
}

TEST_F(SyncCommand, RestoreOverAFile_PutsWhatIsThereIntoTheTrashWhenForced) {
  Sync();
  GuestWrites("SUB/B.TXT", "of the guest");
  Sync();
  const std::string id = RunVirtdisk({"restore", Image(), "--json"}).JsonLines().at(0)["id"];
  const std::vector<std::string> command{"restore", Image(), id, "--folder", Folder()};
  const ProgramRun refused = RunVirtdisk(command);
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.err, AllOf(HasSubstr("DISK/SUB/B.TXT exists, and is not replaced\n"),
                                 HasSubstr("--force puts what is there into the trash first")));
  EXPECT_EQ(folder.Read("DISK/SUB/B.TXT"), "of the guest");
  std::vector<std::string> forced = command;
  forced.push_back("--force");
  const ProgramRun done = RunVirtdisk(forced);
  EXPECT_EQ(done.status, 0) << done.err;
  EXPECT_EQ(done.out, "Restored " + Folder() +
                          "/SUB/B.TXT, 2 bytes; it stays in the trash as well, and what was there "
                          "is in it now.\n");
  EXPECT_EQ(folder.Read("DISK/SUB/B.TXT"), "b\n");
  EXPECT_THAT(RunVirtdisk({"restore", Image()}).out,
              HasSubstr("  restored over   folder  12 bytes  SUB/B.TXT\n"));
}

TEST_F(SyncCommand, RestoreOverTheImage_AsksForAWordBeforeTheNextPass) {
  Sync();
  const std::string before = ReadWholeFile(Image());
  folder.File("DISK/C.TXT", "new\n").Link("link.img", "disk.img");
  Sync();
  const std::string id = RunVirtdisk({"restore", Image(), "--json"}).JsonLines().at(0)["id"];
  const std::string link = (folder / "link.img").string();
  EXPECT_EQ(RunVirtdisk({"restore", link, id, "--force"}).status, 0);
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_EQ(ReadWholeFile(Image()), before);
  EXPECT_THAT(Sync().err, HasSubstr("--accept image-replaced"));
  EXPECT_EQ(Sync({"--once", "--accept", "image-replaced"}).status, 0);
  EXPECT_EQ(folder.Read("DISK/C.TXT"), "new\n");
  EXPECT_EQ(GuestEditor(Image()).Files().at("C.TXT"), "new\n");
}

TEST_F(SyncCommand, RestoreOverAFileWhileASyncRuns_TellsWhoKeepsThePair) {
  Sync();
  GuestWrites("SUB/B.TXT", "of the guest");
  Sync();
  const std::string id = RunVirtdisk({"restore", Image(), "--json"}).JsonLines().at(0)["id"];
  Background sync({"sync", Image(), Folder(), "--settle", "0"}, folder / "log");
  const std::vector<std::string> command{"restore", Image(), id, "--folder", Folder(), "--force"};
  const std::string told = "keeps this pair in step already";
  ASSERT_TRUE(WaitFor([&] { return Sync({"--dry-run"}).err.find(told) != std::string::npos; }));
  EXPECT_THAT(RunVirtdisk(command).err, HasSubstr(told));
  EXPECT_EQ(sync.End(SIGTERM), 143);
  const ProgramRun after = RunVirtdisk(command);
  EXPECT_EQ(after.status, 0) << after.err;
}

}  // namespace
}  // namespace quorbix::virtdisk::test

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <functional>
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

using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;

class StatusFile : public SyncCommand {
 protected:
  std::string Path() const { return (folder / "status").string(); }
  nlohmann::json Read() const { return nlohmann::json::parse(folder.Read("status")); }

  // The first status that fits; a discarded value when there is none in time.
  nlohmann::json WaitForStatus(const std::function<bool(const nlohmann::json&)>& fits) const {
    nlohmann::json status;
    const bool found = WaitFor([&] {
      status = folder.Exists("status") ? Read() : nlohmann::json();
      return !status.is_null() && fits(status);
    });
    EXPECT_TRUE(found) << status;
    return status;
  }
};

TEST_F(StatusFile, AfterAPass_HoldsEachField) {
  Sync();
  folder.File("DISK/C.TXT", "new\n").File("DISK/.profile", "p");
  ASSERT_EQ(Sync({"--once", "--status", Path()}).status, 0);
  const nlohmann::json status = Read();
  EXPECT_THAT(status["time"].get<std::string>(), MatchesRegex("....-..-.. ..:..:.."));
  EXPECT_EQ(status["outcome"], "done");
  EXPECT_EQ(status["message"], "");
  EXPECT_EQ(status["steps"], nlohmann::json::array({{{"to", "disk"},
                                                     {"action", "write"},
                                                     {"type", "file"},
                                                     {"reason", "new"},
                                                     {"hostPath", "C.TXT"},
                                                     {"diskPath", "/C.TXT"},
                                                     {"bytes", 4},
                                                     {"done", true}}}));
  EXPECT_EQ(status["hazards"], nlohmann::json::array());
  EXPECT_EQ(status["notes"],
            nlohmann::json::array(
                {{{"path", ".profile"}, {"text", "takes no part: its name begins with \".\""}}}));
  EXPECT_EQ(status["firstMeeting"], false);
  EXPECT_EQ(status["files"], 3);
  EXPECT_EQ(status["bytes"], 6 + 2 + 4);
  EXPECT_GT(status["lastReadInFull"], 1'700'000'000);
  EXPECT_EQ(status["stepsDone"], 1);
  EXPECT_EQ(status["nextLookWithinMs"], 0);
  EXPECT_EQ(status.size(), 12u);
}

TEST_F(StatusFile, AfterARefusal_HoldsWhatStandsInTheWay) {
  Sync();
  fs::rename(Folder(), folder / "moved");
  ASSERT_EQ(Sync({"--once", "--status", Path()}).status, 3);
  const nlohmann::json status = Read();
  EXPECT_EQ(status["outcome"], "refused");
  ASSERT_EQ(status["hazards"].size(), 1u);
  const nlohmann::json& hazard = status["hazards"][0];
  EXPECT_EQ(hazard["name"], "folder-missing");
  EXPECT_EQ(hazard["canBeAccepted"], true);
  EXPECT_EQ(hazard["text"], status["message"]);
  EXPECT_EQ(hazard["paths"].size(), hazard["pathCount"]);
  EXPECT_EQ(hazard.size(), 5u);
  EXPECT_EQ(status["stepsDone"], 0);
}

TEST_F(StatusFile, OfASyncThatWaits_TellsTheLongestWait) {
  Background sync(
      {"sync", Image(), Folder(), "--settle", "200", "--interval", "7000", "--status", Path()},
      folder / "log");
  const auto status = WaitForStatus([](const auto& told) { return told["outcome"] != "not now"; });
  EXPECT_EQ(status["nextLookWithinMs"], 7200);  // a change at its very end has to settle
}

TEST_F(StatusFile, OfASyncThatTriesAgain_TellsWhenItDoes) {
  Sync();
  folder.File("DISK/C.TXT", "new\n");
  const int writer = ::open(Image().c_str(), O_WRONLY | O_CLOEXEC);
  Background sync({"sync", Image(), Folder(), "--settle", "0", "--status", Path()}, folder / "log");
  const auto waiting = WaitForStatus([](const auto& told) { return told["outcome"] == "not now"; });
  EXPECT_THAT(waiting["nextLookWithinMs"].get<int>(), ::testing::AnyOf(500, 1000, 2000, 4000));
  ::close(writer);
  // Long before the minute of the interval.
  const auto done =
      WaitForStatus([](const auto& told) { return told["outcome"] == "nothing to do"; });
  EXPECT_EQ(done["nextLookWithinMs"], 60'000);
  EXPECT_EQ(GuestEditor(Image()).Files().at("C.TXT"), "new\n");
}

TEST_F(SyncCommand, StatusInThePlaceOfSomethingElse_IsRefused) {
  folder.File("letter", "Dear aunt,").File("list.json", "[1]").File("empty");
  folder.Link("null", "/dev/null");
  const std::vector<std::uint8_t> image = ReadBytes(Image());
  for (const std::string& place :
       {Image(), Folder(), (folder / "letter").string(), (folder / "list.json").string(),
        (folder / "null").string(), (folder / "DISK/status").string()}) {
    EXPECT_EQ(Sync({"--once", "--status", place}).status, 3) << place;
    EXPECT_EQ(Sync({"--once", "--dry-run", "--status", place}).status, 3) << place;
  }
  EXPECT_EQ(ReadBytes(Image()), image);
  EXPECT_EQ(folder.Read("letter"), "Dear aunt,");
  EXPECT_EQ(folder.Read("list.json"), "[1]");
  EXPECT_EQ(fs::read_symlink(folder / "null"), "/dev/null");
  const std::string empty = (folder / "empty").string();
  EXPECT_EQ(Sync({"--once", "--dry-run", "--status", empty}).status, 0);
  EXPECT_EQ(folder.Read("empty"), "");
  EXPECT_EQ(Sync({"--once", "--status", empty}).status, 0);
  EXPECT_EQ(Sync({"--once", "--status", empty}).status, 0);  // in place of the one before
}

// Neither has to be there before the first pass.
TEST_F(SyncCommand, StatusInThePlaceOfTheStateOrBelow_IsRefused) {
  const std::string elsewhere = (folder / "elsewhere").string();
  for (const char* place : {"disk.img.sync", "disk.img.sync/state", "DISK/../disk.img.sync/new"}) {
    const ProgramRun run = Sync({"--once", "--status", (folder / place).string()});
    EXPECT_EQ(run.status, 3) << place;
    EXPECT_THAT(run.err, HasSubstr(" lies inside " + Image() + ".sync\n")) << place;
  }
  EXPECT_EQ(Sync({"--once", "--state", elsewhere, "--status", elsewhere + "/state"}).status, 3);
  EXPECT_FALSE(folder.Exists("disk.img.sync"));
  EXPECT_FALSE(folder.Exists("elsewhere"));
  const std::string beside = (folder / "disk.img.sync.json").string();
  EXPECT_EQ(Sync({"--once", "--status", beside}).status, 0);
}

TEST_F(SyncCommand, StatusInThePlaceOfAMissingImage_IsRefused) {
  fs::remove(Image());
  folder.Link("here", ".");
  for (const char* place : {"disk.img", "here/disk.img", "DISK/../disk.img"}) {
    const ProgramRun run = Sync({"--once", "--status", (folder / place).string()});
    EXPECT_EQ(run.status, 3) << place;
    EXPECT_THAT(run.err, HasSubstr(" is the image's path\n")) << place;
    EXPECT_FALSE(folder.Exists("disk.img")) << place;
  }
}

// The first pass may make what leads to it.
TEST_F(SyncCommand, StatusThatComesToBeTheState_IsNotWritten) {
  folder.Link("link", "disk.img.sync");
  const ProgramRun run = Sync({"--once", "--status", (folder / "link/state").string()});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(folder.Read("disk.img.sync/state"), Not(HasSubstr("stepsDone")));
}

TEST_F(SyncCommand, StatusBehindALink_IsReplacedThere) {
  folder.File("real").Link("link", "real").Link("dangling", "new");
  EXPECT_EQ(Sync({"--once", "--status", (folder / "link").string()}).status, 0);
  EXPECT_EQ(Sync({"--once", "--status", (folder / "dangling").string()}).status, 0);
  EXPECT_TRUE(fs::is_symlink(folder / "link"));
  EXPECT_TRUE(fs::is_symlink(folder / "dangling"));
  EXPECT_THAT(folder.Read("real"), HasSubstr("stepsDone"));
  EXPECT_THAT(folder.Read("new"), HasSubstr("stepsDone"));
}

}  // namespace
}  // namespace quorbix::virtdisk::test

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "commands/side_listing.h"
#include "host/stop_signals.h"
#include "support/image_crafter.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

using test::ImageCrafter;
using test::TempFolder;
using ::testing::ElementsAre;
using ::testing::Key;

TEST(ListHostSide, Files_AreListedUnderTheirPaths) {
  TempFolder folder;
  folder.File("A.TXT", "a").File("SUB/B.TXT").File(".hidden").File(".dir/C").Pipe("PIPE");
  EXPECT_THAT(ListHostSide(folder.Path()),
              ElementsAre(Key(".dir/C"), Key("A.TXT"), Key("SUB/B.TXT")));
}

TEST(ListHostSide, ReplacedFileOfTheSameSize_IsMarkedDifferently) {
  TempFolder folder;
  folder.File("A.TXT", "a").File("NEW", "b");
  const Listing before = ListHostSide(folder.Path());
  fs::last_write_time(folder / "NEW", fs::last_write_time(folder / "A.TXT"));
  fs::rename(folder / "NEW", folder / "A.TXT");
  EXPECT_NE(ListHostSide(folder.Path()).at("A.TXT"), before.at("A.TXT"));
}

TEST(ListHostSide, UntouchedFolder_IsListedAlike) {
  TempFolder folder;
  folder.File("A.TXT", "a");
  EXPECT_EQ(ListHostSide(folder.Path()), ListHostSide(folder.Path()));
}

TEST(ListHostSide, MissingFolder_IsEmpty) { EXPECT_TRUE(ListHostSide("/nonexistent").empty()); }

TEST(ImageSide, ChangedContent_IsMarkedDifferently) {
  const TempFolder folder;
  ImageCrafter crafter;
  crafter.File("A.TXT", {.firstCluster = 2, .size = 3}).Chain({2}).Data(2, "old");
  test::WriteBytes(folder / "disk.img", crafter.Bytes());
  ImageSide side(folder / "disk.img");
  std::string err;
  const auto before = side.List(err);
  test::WriteBytes(folder / "disk.img", crafter.Data(2, "new").Bytes());
  fs::last_write_time(folder / "disk.img",
                      fs::file_time_type::clock::now() + std::chrono::hours(1));
  const auto after = side.List(err);
  ASSERT_TRUE(before && after);
  EXPECT_NE(before->at("A.TXT"), after->at("A.TXT"));
}

TEST(ImageSide, MovedContent_IsMarkedAlike) {
  ImageCrafter one;
  one.File("A.TXT", {.firstCluster = 2, .size = 3}).Chain({2}).Data(2, "abc");
  ImageCrafter other;
  other.File("A.TXT", {.firstCluster = 7, .size = 3}).Chain({7}).Data(7, "abc");
  const TempFolder folder;
  test::WriteBytes(folder / "one.img", one.Bytes());
  test::WriteBytes(folder / "other.img", other.Bytes());
  std::string err;
  EXPECT_EQ(ImageSide(folder / "one.img").List(err), ImageSide(folder / "other.img").List(err));
}

TEST(ImageSide, MissingImage_TellsWhy) {
  std::string err;
  EXPECT_FALSE(ImageSide("/nonexistent.img").List(err));
  EXPECT_EQ(err, "cannot read /nonexistent.img: No such file or directory");
}

TEST(ImageSide, DamagedImage_TellsWhyUntilItIsWholeAgain) {
  TempFolder folder;
  folder.File("disk.img", "broken");
  ImageSide side(folder / "disk.img");
  std::string err;
  EXPECT_FALSE(side.List(err));
  EXPECT_EQ(err, (folder / "disk.img").string() + ": image too small");
  test::WriteBytes(folder / "disk.img", ImageCrafter().Bytes());
  EXPECT_TRUE(side.List(err));
}

TEST(StopSignals, NoSignal_WaitsForTheTime) {
  StopSignals signals;
  EXPECT_FALSE(signals.WaitFor(std::chrono::milliseconds(1)));
}

TEST(StopSignals, SignalDuringWork_IsSeenAtTheNextWait) {
  StopSignals signals;
  ::kill(::getpid(), SIGTERM);
  EXPECT_TRUE(signals.WaitFor(std::chrono::milliseconds(0)));
}

TEST(StopSignals, SecondSignalAfterTheFirstWasSeen_IsNotDelivered) {
  {
    StopSignals signals;
    ::kill(::getpid(), SIGTERM);
    EXPECT_TRUE(signals.WaitFor(std::chrono::hours(1)));
    ::kill(::getpid(), SIGINT);
  }
  SUCCEED();  // the process is still there
}

TEST(StopSignals, SignalThatArrived_GivesTheExitStatus) {
  for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
    StopSignals signals;
    EXPECT_EQ(signals.ExitStatus(), 0);
    ::kill(::getpid(), signal);
    EXPECT_TRUE(signals.WaitFor(std::chrono::hours(1)));
    EXPECT_EQ(signals.ExitStatus(), 128 + signal);
  }
}

TEST(StopSignals, SignalSeenOnce_StaysSeen) {
  StopSignals signals;
  ::kill(::getpid(), SIGINT);
  EXPECT_TRUE(signals.WaitFor(std::chrono::hours(1)));
  EXPECT_TRUE(signals.WaitFor(std::chrono::hours(1)));
}

}  // namespace
}  // namespace quorbix::virtdisk::tool

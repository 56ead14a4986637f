#include "terminal/progress.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <string>

#include "commands/work_line.h"
#include "program_run.h"
#include "support/sizes.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::tool {
namespace {

using namespace std::chrono_literals;
using test::kMiB;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

ProgressState Copying(std::uint64_t done, std::uint64_t total, std::chrono::milliseconds elapsed) {
  return {"copying", done, total, ProgressUnit::kBytes, elapsed};
}

TEST(FormatProgress, KnownTotal_TellsShareSpeedAndTimeLeft) {
  EXPECT_EQ(FormatProgress(Copying(1536 * kMiB, 2048 * kMiB, 3s), 80),
            "copying: 1.5 GiB of 2 GiB, 75 %, 512 MiB/s, 1 s left");
}

TEST(FormatProgress, UnknownTotal_TellsWhatIsDone) {
  EXPECT_EQ(FormatProgress({"looking", 12345, 0, ProgressUnit::kEntries, 2s}, 80),
            "looking: 12,345");
  EXPECT_EQ(FormatProgress(Copying(4 * kMiB, 0, 2s), 80), "copying: 4 MiB, 2 MiB/s");
}

TEST(FormatProgress, EntriesOfATotal_HaveNoSpeed) {
  EXPECT_EQ(FormatProgress({"checking", 10, 40, ProgressUnit::kEntries, 10s}, 80),
            "checking: 10 of 40, 25 %, 30 s left");
}

TEST(FormatProgress, LongTimes_AreToldInMinutesAndHours) {
  EXPECT_THAT(FormatProgress(Copying(kMiB, 61 * kMiB, 1s), 80), HasSubstr(", 1 min 0 s left"));
  EXPECT_THAT(FormatProgress(Copying(kMiB, 3721 * kMiB, 1s), 80), HasSubstr(", 1 h 2 min left"));
}

TEST(FormatProgress, MoreDoneThanThereWas_Is100Percent) {
  EXPECT_THAT(FormatProgress(Copying(3 * kMiB, 2 * kMiB, 1s), 80), HasSubstr("100 %"));
}

TEST(FormatProgress, NarrowTerminal_LosesTheLastParts) {
  const ProgressState state = Copying(1536 * kMiB, 2048 * kMiB, 3s);
  EXPECT_EQ(FormatProgress(state, 51), "copying: 1.5 GiB of 2 GiB, 75 %, 512 MiB/s");
  EXPECT_EQ(FormatProgress(state, 30), "copying: 1.5 GiB of 2 GiB");
  EXPECT_EQ(FormatProgress(state, 5), "copyi");
  EXPECT_EQ(FormatProgress(state, 0), "");
}

// A console on a terminal of 40 columns, and a clock that stands still.
class ProgressTest : public ::testing::Test {
 protected:
  Progress Start(std::uint64_t total) {
    return {console, "copying", total, ProgressUnit::kBytes, [this] { return time; }};
  }

  std::ostringstream out;
  std::ostringstream err;
  Console console{.out = out, .err = err, .errIsTerminal = true, .errWidth = 40};
  Progress::Clock::time_point time;
};

TEST_F(ProgressTest, ShortWork_ShowsNothing) {
  {
    Progress progress = Start(2);
    time += 499ms;
    progress.Add(1);
  }
  EXPECT_THAT(err.str(), IsEmpty());
}

TEST_F(ProgressTest, LongWork_ShowsALineThatGoesAtTheEnd) {
  {
    Progress progress = Start(2 * kMiB);
    time += 500ms;
    progress.Add(kMiB);
    EXPECT_EQ(err.str(), "\rcopying: 1 MiB of 2 MiB, 50 %, 2 MiB/s");
  }
  EXPECT_EQ(err.str().substr(39), "\r" + std::string(38, ' ') + "\r");
  EXPECT_EQ(console.progressColumns, 0U);
}

TEST_F(ProgressTest, NextLine_ComesAfterATenthOfASecondAndCoversTheLast) {
  Progress progress = Start(0);
  time += 1s;
  progress.Add(1100 * kMiB);
  const std::string first = err.str();
  time += 99ms;
  progress.Add(1);
  EXPECT_EQ(err.str(), first);
  time += 100s;
  progress.Add(948 * kMiB - 1);
  EXPECT_EQ(first, "\rcopying: 1.1 GiB, 1.1 GiB/s");
  EXPECT_EQ(err.str().substr(first.size()), "\rcopying: 2 GiB, 20.3 MiB/s ");
}

TEST_F(ProgressTest, Messages_TakeTheLineAway) {
  Progress progress = Start(0);
  time += 1s;
  progress.Add(kMiB);
  const std::size_t shown = err.str().size();
  Warn(console, "careful");
  EXPECT_EQ(err.str().substr(shown),
            "\r" + std::string(shown - 1, ' ') + "\rvirtdisk: warning: careful\n");
}

TEST_F(ProgressTest, NextKindOfWork_IsCountedAnewOnTheSameLine) {
  Progress progress = Start(2 * kMiB);
  time += 400ms;
  progress.Add(kMiB);
  progress.Turn("checking", 4 * kMiB);
  time += 100ms;
  progress.Add(kMiB);
  EXPECT_EQ(err.str(), "\rchecking: 1 MiB of 4 MiB, 25 %");
}

TEST_F(ProgressTest, WorkOfAPass_IsShownKindByKind) {
  WorkLine line(console, [this] { return time; });
  line.Show({GuardedWork::kReadDisk, kMiB, 2 * kMiB});
  time += 1s;
  line.Show({GuardedWork::kReadDisk, 2 * kMiB, 2 * kMiB});
  const std::string first = err.str();
  time += 1s;
  line.Show({GuardedWork::kKeep, 0, 0});
  time += 1s;
  line.Show({GuardedWork::kKeep, 3 * kMiB, 0});
  EXPECT_EQ(first, "\rreading the disk: 2 MiB of 2 MiB, 100 %");
  EXPECT_THAT(err.str(), HasSubstr("\rkeeping what is replaced: 3 MiB "));
}

TEST_F(ProgressTest, QuietConsoleOrNoTerminal_ShowsNothing) {
  for (const bool quiet : {true, false}) {
    console.quiet = quiet;
    console.errIsTerminal = quiet;
    Progress progress = Start(2);
    time += 1s;
    progress.Add(1);
    EXPECT_THAT(err.str(), IsEmpty());
  }
}

TEST(Quiet, Build_PrintsNothingButErrors) {
  test::TempFolder folder;
  folder.File("DISK/lower.txt", "a").Link("DISK/MEM", "/proc/self/mem");
  const std::string disk = (folder / "DISK").string();
  const test::ProgramRun run = test::RunVirtdisk(
      {"build", disk, (folder / "disk.img").string(), "--size", "64K", "--quiet"});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out + run.err, IsEmpty());
  EXPECT_THAT(test::RunVirtdisk({"build", disk, "/nonexistent/x", "-q"}).err, HasSubstr("cannot"));
}

}  // namespace
}  // namespace quorbix::virtdisk::tool

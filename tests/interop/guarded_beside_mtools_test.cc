// A guarded pair whose disk others edit while passes run.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <quorbix/virtdisk/fat_image_builder.h>
#include <quorbix/virtdisk/guarded_folder_sync.h>

#include "interop/fsck_findings.h"
#include "support/child_process.h"
#include "support/guest_editor.h"
#include "support/need_tool.h"
#include "support/search_effort.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::test {
namespace {

namespace fs = std::filesystem;

// Longer than a tick of the file system's times.
constexpr std::chrono::milliseconds kSettle{20};

class BesideMtools : public testing::Test {
 protected:
  // Puts files of three names into the disk, and takes them away again.
  void Edit(int edits) {
    std::mt19937 random(1);
    for (int n = 0; n < edits; ++n) {
      std::this_thread::sleep_for(random() % 3 * 2 * kSettle);
      const std::string name = "G" + std::to_string(random() % 3) + ".TXT";
      WriteWholeFile(folder / name, "edit " + std::to_string(n));
      const std::string place = "::" + name;
      const bool isToGo = random() % 3 == 0 && guests.contains(name);
      const auto edit = isToGo
                            ? std::vector<std::string>{"mdel", "-i", Volume(), place}
                            : std::vector<std::string>{
                                  "mcopy", "-o", "-i", Volume(), (folder / name).string(), place};
      if (RunCommand(edit).status != 0) continue;
      if (isToGo) {
        guests.erase(name);
      } else {
        guests[name] = "edit " + std::to_string(n);
      }
    }
    isOver = true;
  }

  std::string Volume() const { return Image().string() + "@@512"; }
  fs::path Image() const { return folder / "DISK.IMG"; }
  fs::path Host() const { return folder / "host"; }

  TempFolder folder;
  std::map<std::string, std::string> guests;  // as the disk has them
  std::atomic<bool> isOver = false;
};

TEST_F(BesideMtools, EditsOfBothSidesWhilePassesRun_AllArrive) {
  NEED_TOOL("mcopy");
  NEED_TOOL("fsck.fat");
  folder.File("host/A long name.txt", "host 0");
  ASSERT_TRUE(CreateFat16Builder()->Build(Host(), Image(), 4 << 20));
  GuardedSyncOptions options;
  options.settle = kSettle;
  options.onConflict =
      GuardedSyncOptions::ConflictRule::kTakeDisk;  // nobody edits these on the host
  const auto sync = CreateGuardedFolderSync(Image(), Host(), options);
  std::thread editor([this] { Edit(IsWholeSearch() ? 300 : 30); });
  int hostEdits = 0;
  GuardedReport report;
  while (!isOver || report.outcome != GuardedOutcome::kNothingToDo) {
    std::this_thread::sleep_for(kSettle / 4);
    report = sync->Pass();
    if (!isOver && report.outcome != GuardedOutcome::kNotNow) {
      WriteWholeFile(Host() / "A long name.txt", "host " + std::to_string(++hostEdits));
    }
    ASSERT_NE(report.outcome, GuardedOutcome::kRefused) << report.message;
    ASSERT_NE(report.outcome, GuardedOutcome::kFailed) << report.message;
  }
  editor.join();
  EXPECT_GE(hostEdits, 2);
  std::map<std::string, std::string> expected = guests;
  expected["A_LONG_N.TXT"] = "host " + std::to_string(hostEdits);
  EXPECT_EQ(GuestEditor(Image()).Files(), expected);
  expected["A long name.txt"] = expected.extract("A_LONG_N.TXT").mapped();
  EXPECT_EQ(folder.Files("host"), expected);
  WriteWholeFile(folder / "volume", ReadWholeFile(Image()).substr(512));
  const CommandResult checked = RunCommand({"fsck.fat", "-n", (folder / "volume").string()});
  EXPECT_THAT(ParseFsckReport(checked.out + checked.err).others, testing::IsEmpty());
}

}  // namespace
}  // namespace quorbix::virtdisk::test

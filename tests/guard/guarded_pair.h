#ifndef QUORBIX_VIRTDISK_TESTS_GUARD_GUARDED_PAIR_H_
#define QUORBIX_VIRTDISK_TESTS_GUARD_GUARDED_PAIR_H_

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "guard/foretold.h"
#include "quorbix/virtdisk/fat_image_builder.h"
#include "quorbix/virtdisk/guarded_folder_sync.h"
#include "support/guest_editor.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk {

inline void PrintTo(GuardedOutcome outcome, std::ostream* out) {
  constexpr const char* kNames[] = {"nothing to do", "done",   "refused",
                                    "not now",       "failed", "stopped"};
  *out << kNames[static_cast<int>(outcome)];
}

inline void PrintTo(GuardedHazard hazard, std::ostream* out) { *out << GuardedHazardName(hazard); }

}  // namespace quorbix::virtdisk

namespace quorbix::virtdisk::internal::guard {

using FileTree = std::map<std::string, std::string>;  // path to content

// A folder "host" and an image "DISK.IMG" that are kept in step. Nobody waits for quiet here.
class GuardedPair : public testing::Test {
 protected:
  static constexpr std::uint64_t kImageBytes = std::uint64_t{3} << 20;

  std::filesystem::path Host() const { return folder / "host"; }
  std::filesystem::path Image() const { return folder / "DISK.IMG"; }
  std::filesystem::path StateFolder() const { return folder / "DISK.IMG.sync"; }

  void BuildImage(std::uint64_t bytes = kImageBytes) {
    folder.Folder("host");
    const auto builder = CreateFat16Builder();
    ASSERT_TRUE(builder->Build(Host(), Image(), bytes)) << builder->LastError();
  }

  // An image of the host folder as it is, and both sides agreed.
  void BuildAndAgree(std::uint64_t bytes = kImageBytes) {
    BuildImage(bytes);
    EXPECT_EQ(Pass().outcome, GuardedOutcome::kNothingToDo);
  }

  std::unique_ptr<IGuardedFolderSync> Sync() const {
    return CreateGuardedFolderSync(Image(), Host(), options);
  }

  // As after a restart: nothing is known but what the state's folder holds.
  GuardedReport Pass(const std::vector<GuardedHazard>& accepted = {}) {
    const GuardedReport preview = Sync()->Preview(accepted);
    GuardedReport report = Sync()->Pass(accepted);
    ExpectPreviewed(preview, report);
    return report;
  }

  GuardedReport Preview() const { return Sync()->Preview(); }

  void GuestWrites(const std::string& path, const std::string& content) {
    test::GuestEditor guest(Image());
    ASSERT_TRUE(guest.Write(path, content));
    // 2026-11-21 17:20:04, as a machine dates what it writes.
    ASSERT_TRUE(guest.SetStamp(path, 0x5D75, 0x8A82));
    guest.Save();
  }
  void GuestMakesFolder(const std::string& path) {
    test::GuestEditor guest(Image());
    ASSERT_TRUE(guest.MakeFolder(path));
    guest.Save();
  }
  void GuestRemoves(const std::string& path) {
    test::GuestEditor guest(Image());
    ASSERT_TRUE(guest.Remove(path));
    guest.Save();
  }

  FileTree OnHost() const { return folder.Files("host"); }
  FileTree OnDisk() const { return test::GuestEditor(Image()).Files(); }

  // Contents by reason and path: "replaced a.txt".
  FileTree InTrash() const {
    std::vector<TrashedItem> items;
    std::string err;
    EXPECT_TRUE(ListTrash(StateFolder(), items, err)) << err;
    FileTree contents;
    for (const TrashedItem& item : items) {
      contents[item.why + ' ' + item.path] = test::ReadWholeFile(StateFolder() / "trash" / item.id);
    }
    return contents;
  }

  static std::vector<GuardedHazard> HazardsOf(const GuardedReport& report) {
    std::vector<GuardedHazard> hazards;
    for (const GuardedHazardReport& hazard : report.hazards) hazards.push_back(hazard.hazard);
    return hazards;
  }

  // "host <- disk" of every step, in order, with what it is.
  static std::vector<std::string> StepsOf(const GuardedReport& report) {
    constexpr const char* kKinds[] = {"write on host",  "make on host",  "delete on host",
                                      "remove on host", "write on disk", "make on disk",
                                      "delete on disk", "remove on disk"};
    std::vector<std::string> steps;
    for (const GuardedStep& step : report.steps) {
      steps.push_back(std::string(kKinds[static_cast<int>(step.kind)]) + ": " + step.hostPath +
                      " = " + step.diskPath);
    }
    return steps;
  }

  test::TempFolder folder;
  GuardedSyncOptions options{.settle = std::chrono::milliseconds(0)};

 private:
  // A pass does what its preview told.
  static void ExpectPreviewed(const GuardedReport& preview, const GuardedReport& pass) {
    EXPECT_EQ(Foretold(preview), Foretold(pass));
    if (pass.outcome == GuardedOutcome::kDone) {
      for (const GuardedStep& step : pass.steps) EXPECT_TRUE(step.isDone) << step.hostPath;
    }
  }
};

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_TESTS_GUARD_GUARDED_PAIR_H_

#ifndef QUORBIX_VIRTDISK_TESTS_GUARD_CUT_OFF_PAIR_H_
#define QUORBIX_VIRTDISK_TESTS_GUARD_CUT_OFF_PAIR_H_

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "guard/contents.h"
#include "guard/cut_off.h"
#include "quorbix/virtdisk/fat_image_builder.h"
#include "quorbix/virtdisk/guarded_folder_sync.h"
#include "support/child_process.h"
#include "support/guest_editor.h"
#include "support/memory_folder.h"
#include "support/search_effort.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::internal::guard {

// Of a pass, to be tried with the same pair.
struct Way {
  int number;
  const char* name;
  bool inPlace = false;
  bool canExchange = true;
  GuardedSyncOptions::ConflictRule onConflict = GuardedSyncOptions::ConflictRule::kKeepBoth;
};

inline constexpr int kNeverCut = 1'000'000;

// In the short form one call of so many.
inline constexpr int kShortStep = 8;

// A pair on which everything a pass can do is to be done.
class PairToCutOff : public testing::TestWithParam<Way> {
 protected:
  void SetUp() override {
    test::countsOpenings = false;
    test::refusesFromThenOn = false;
    options.settle = std::chrono::milliseconds(0);
    options.inPlace = GetParam().inPlace;
    options.trashPasses = 1;  // what is cut off, and what ends it, count as one
    options.onConflict = GetParam().onConflict;
  }

  void Begin() {
    std::filesystem::remove_all(Root());
    std::filesystem::create_directories(Host() / "gone");
    std::filesystem::create_directories(Image().parent_path());
    Write("changed by the host", "h1");
    Write("changed by the guest", "g1");
    Write("conflict", "c1");
    Write("deleted by the host", "d1");
    Write("deleted by the guest", "e1");
    Write("gone/inside", "i1");
    ASSERT_TRUE(CreateFat16Builder()->Build(Host(), Image(), 64 * 1024));
    ASSERT_EQ(Pass().outcome, GuardedOutcome::kNothingToDo);
    Write("changed by the host", "h2");
    Write("conflict", "c2");
    std::filesystem::remove(Host() / "deleted by the host");
    std::filesystem::create_directories(Host() / "new folder");
    Write("new folder/new", "n1");
    test::GuestEditor guest(Image());
    for (const auto& [path, content] : guest.Files()) {
      const bool isKept = content != "e1" && content != "i1";
      if (!isKept) guest.Remove(path);
      if (content == "g1") guest.Write(path, "g2");
      if (content == "c1") guest.Write(path, "c3");
    }
    ASSERT_TRUE(guest.Remove("GONE"));
    ASSERT_TRUE(guest.MakeFolder("MADE"));
    ASSERT_TRUE(guest.Write("MADE/NEW.DAT", "m1"));
    guest.Save();
    before = Sides();
  }

  GuardedReport Pass() {
    return CreateGuardedFolderSync(Image(), Host(), options)->Pass({GuardedHazard::kImageNotFat16});
  }

  using AtCall = std::function<int()>;

  // Whether the pass ended before the call at which something was to happen.
  bool PassToTheEnd(int calls, const AtCall& atCall) {
    const int status = test::RunInChild({}, [&] {
      test::callsBeforeTheEnd = calls;
      test::atThatCall = atCall;
      test::canExchange = GetParam().canExchange;
      Pass();
      return test::callsBeforeTheEnd >= 0 ? 0 : 1;
    });
    EXPECT_TRUE(status == 0 || status == 1 || status == 256 + SIGKILL) << status;
    return status == 0;
  }

  // As an editor does that writes into the file itself.
  void EditEverything() const {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(Host())) {
      if (entry.is_regular_file() && !entry.path().filename().string().starts_with(".")) {
        files.push_back(entry.path());
      }
    }
    for (const std::filesystem::path& file : files) {
      test::WriteWholeFile(file, "edited " + file.filename().string());
    }
  }

  // Nothing is gone, and the next passes end what was begun.
  void ExpectMended() {
    Contents after;
    AddFolder(Root(), after);
    AddDisk(Image(), after);
    AddTrash(StateFolder(), after);
    AddImagesUnderWay(after);
    ExpectAllIn(before, after);
    GuardedReport report = Pass();
    EXPECT_TRUE(report.outcome == GuardedOutcome::kDone ||
                report.outcome == GuardedOutcome::kNothingToDo)
        << report.message;
    report = Pass();
    EXPECT_EQ(report.outcome, GuardedOutcome::kNothingToDo) << report.message;
    after = Sides();
    AddTrash(StateFolder(), after);
    ExpectAllIn(before, after);
    Contents host;
    AddFolder(Host(), host);
    Contents disk;
    AddDisk(Image(), disk);
    EXPECT_EQ(host, disk);
    Contents expected{"h2", "g2", "n1", "m1"};
    if (options.onConflict != GuardedSyncOptions::ConflictRule::kTakeDisk) expected.insert("c2");
    if (options.onConflict != GuardedSyncOptions::ConflictRule::kTakeHost) expected.insert("c3");
    EXPECT_EQ(host, expected);
    EXPECT_FALSE(std::filesystem::exists(Host() / "gone"));
    EXPECT_TRUE(test::GuestEditor(Image()).Exists("NEW_FOLD"));
    ExpectOwnNamesInTrash();
    ExpectTidy();
  }

  // What was replaced or deleted, wherever its pass was cut off: "left over" is what was new.
  void ExpectOwnNamesInTrash() const {
    std::vector<TrashedItem> items;
    std::string err;
    ASSERT_TRUE(ListTrash(StateFolder(), items, err)) << err;
    for (const TrashedItem& item : items) {
      const std::string content = test::ReadWholeFile(StateFolder() / "trash" / item.id);
      const bool isOld = content == "g1" || content == "c2" || content == "e1" || content == "i1";
      EXPECT_TRUE(!isOld || item.why != "left over") << content << " as " << item.path;
    }
  }

  // The old image has a temporary name between its two places.
  void AddImagesUnderWay(Contents& contents) const {
    for (const auto& entry : std::filesystem::directory_iterator(Image().parent_path())) {
      const bool isImage = entry.path().filename().string().starts_with(".quorbix") &&
                           entry.file_size() == std::filesystem::file_size(Image());
      if (isImage) AddDisk(entry.path(), contents);
    }
  }

  // No temporary file is left on either side, and beside the image nothing but the state.
  void ExpectTidy() {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(Host())) {
      EXPECT_FALSE(entry.path().filename().string().starts_with(".")) << entry.path();
    }
    for (const auto& entry : std::filesystem::directory_iterator(Image().parent_path())) {
      const std::string name = entry.path().filename();
      EXPECT_TRUE(name == "DISK.IMG" || name == "DISK.IMG.sync") << name;
    }
    for (const auto& entry : std::filesystem::directory_iterator(StateFolder())) {
      const std::string name = entry.path().filename();
      EXPECT_TRUE(name == "state" || name == "quiet" || name == "lock" || name == "trash" ||
                  name == ".quorbix-state.tmp")
          << name;
    }
  }

  // Every call, or in the short form some of them; each way takes its own.
  static int FirstCall() { return test::IsWholeSearch() ? 0 : GetParam().number % kShortStep; }
  static int Step() { return test::IsWholeSearch() ? 1 : kShortStep; }

  int CutAtEveryCall(const AtCall& atCall, const std::function<void()>& afterwards = {}) {
    int calls = FirstCall();
    for (bool ended = false; !ended && !HasFailure() && calls < kNeverCut; calls += Step()) {
      SCOPED_TRACE("cut off at call " + std::to_string(calls));
      Begin();
      ended = PassToTheEnd(calls, atCall);
      if (afterwards) afterwards();
      ExpectMended();
    }
    return calls;
  }

  // Looks count as well: it may vanish before anything was done.
  void VanishAtEveryCall(const std::filesystem::path& place) {
    const std::filesystem::path away = Root() / "away";
    std::error_code ignored;
    test::countsOpenings = true;
    const int calls = CutAtEveryCall(
        [&] {
          std::filesystem::rename(place, away, ignored);
          return 0;
        },
        [&] {
          EXPECT_FALSE(std::filesystem::exists(place) && std::filesystem::exists(away))
              << "made anew: " << place;
          if (std::filesystem::exists(away)) std::filesystem::rename(away, place);
        });
    EXPECT_GE(calls, 50);
  }

  // Half of it the old image, half the new one: the next pass writes it once more.
  bool IsTorn() {
    const GuardedReport report = CreateGuardedFolderSync(Image(), Host(), options)->Preview();
    return std::any_of(report.notes.begin(), report.notes.end(), [](const GuardedNote& note) {
      return note.text.find("while it wrote into the image") != std::string::npos;
    });
  }

  // The pass deletes what one side has deleted, and nothing that could not be read just then.
  void ExpectOnlyPlannedDeletions() {
    Contents host;
    AddFolder(Host(), host);
    Contents disk;
    if (IsTorn()) {
      for (const auto& entry : std::filesystem::directory_iterator(StateFolder())) {
        const std::string name = entry.path().filename();
        if (name.starts_with(".quorbix") && !name.ends_with("state.tmp")) {
          AddDisk(entry.path(), disk);
        }
      }
    } else {
      AddDisk(Image(), disk);
    }
    const auto holdsOneOf = [](const Contents& side, const Contents& versions) {
      return std::any_of(versions.begin(), versions.end(),
                         [&](const std::string& version) { return side.contains(version); });
    };
    for (const Contents& file : {Contents{"h1", "h2"}, {"g1", "g2"}, {"c2", "c3"}}) {
      EXPECT_TRUE(holdsOneOf(host, file)) << *file.begin() << " is gone from the folder";
      EXPECT_TRUE(holdsOneOf(disk, file)) << *file.begin() << " is gone from the disk";
    }
    EXPECT_TRUE(host.contains("n1"));
    EXPECT_TRUE(disk.contains("m1"));
  }

  std::filesystem::path Root() const { return memory.Path() / "pair"; }
  std::filesystem::path Host() const { return Root() / "host"; }
  std::filesystem::path Image() const { return Root() / "disk/DISK.IMG"; }
  std::filesystem::path StateFolder() const {
    return options.stateFolder.empty() ? Root() / "disk/DISK.IMG.sync" : options.stateFolder;
  }

  void Write(const std::string& path, const std::string& content) const {
    test::WriteWholeFile(Host() / path, content);
  }

  Contents Sides() const {
    Contents all;
    AddFolder(Host(), all);
    AddDisk(Image(), all);
    return all;
  }

  test::MemoryFolder memory = test::MemoryFolder::OrOnDisk();
  GuardedSyncOptions options;
  Contents before;
};

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_TESTS_GUARD_CUT_OFF_PAIR_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "guard/contents.h"
#include "guard/foretold.h"
#include "quorbix/virtdisk/fat_image_builder.h"
#include "quorbix/virtdisk/guarded_folder_sync.h"
#include "support/clock_ahead.h"
#include "support/guest_editor.h"
#include "support/memory_folder.h"
#include "support/search_effort.h"
#include "support/temp_folder.h"

// Random edits on both sides, restarts, refusals and conflicts, against the one property that
// matters: no content that was there before a pass is gone after it.

namespace quorbix::virtdisk::internal::guard {
namespace {

namespace fs = std::filesystem;
using test::GuestEditor;
using ConflictRule = GuardedSyncOptions::ConflictRule;

// Names that are long, clash in their short forms or in their case alone, take no part, or lie on
// the edge of what the disk can name.
constexpr const char* kHostNames[] = {"a.txt",
                                      "A.TXT",
                                      "b",
                                      "Long File Name 1.txt",
                                      "Long File Name 2.txt",
                                      "long_fil.txt",
                                      "LONG_F~1.TXT",
                                      "a+b.txt",
                                      "a_b.txt",
                                      "two words",
                                      ".hidden",
                                      ".git",
                                      "\xC3\xBC.txt",
                                      "NAME.LONGEXT",
                                      "x.quorbix_tmp",
                                      "a (disk).txt"};
constexpr const char* kGuestNames[] = {"A.TXT",        "B",       "LONG_FIL.TXT", "LONG_F~1.TXT",
                                       "A_B.TXT",      "NEW.DAT", "SAVE.001",     "TWO_WORD",
                                       "A_(DISK_.TXT", "DIR"};

class Scenario {
 public:
  Scenario(const fs::path& place, unsigned seed)
      : root(place), random(seed), isLookedAtQuickly(seed % 16 == 0) {
    fs::remove_all(root);
    fs::create_directories(root / "host");
    options.settle = std::chrono::milliseconds(0);
    options.stateFolder = root / "state";
    options.trashPasses = 1000;
    options.onConflict = static_cast<ConflictRule>(Below(4));
    options.inPlace = Below(4) == 0;
    if (Below(2) == 0) EditHost(Below(8));
    const auto builder = CreateFat16Builder();
    // A volume that is large enough for others is remembered, and so is what has been quiet for
    // long, which the clock makes of everything.
    const std::uint64_t bytes = isLookedAtQuickly ? std::uint64_t{3} << 20 : 64 * 1024;
    test::secondsAhead = isLookedAtQuickly ? 10 : 0;
    if (builder->Build(root / "host", image, bytes)) return;
    // Links to folders can lead round for ever in a build.
    fs::create_directory(root / "empty");
    EXPECT_TRUE(builder->Build(root / "empty", image, bytes)) << builder->LastError();
  }
  ~Scenario() { test::secondsAhead = 0; }
  Scenario(const Scenario&) = delete;
  Scenario& operator=(const Scenario&) = delete;

  void Run() {
    for (unsigned round = 0; round < 4 && !testing::Test::HasFailure(); ++round) {
      EditHost(Below(5));
      EditGuest(Below(4));
      PassOnce();
    }
  }

 private:
  unsigned Below(unsigned end) { return static_cast<unsigned>(random() % end); }
  template <class Names>
  std::string AnyOf(const Names& names) {
    return names[Below(static_cast<unsigned>(std::size(names)))];
  }

  std::string NewContent() { return "content " + std::to_string(++contents) + ';'; }

  // --- the host

  fs::path AnyFolder() {
    std::vector<fs::path> folders{root / "host"};
    for (const auto& entry : fs::recursive_directory_iterator(root / "host")) {
      if (!entry.is_symlink() && entry.is_directory()) folders.push_back(entry.path());
    }
    std::sort(folders.begin(), folders.end());
    return folders[Below(static_cast<unsigned>(folders.size()))];
  }

  fs::path AnyEntry() {
    std::vector<fs::path> entries;
    for (const auto& entry : fs::recursive_directory_iterator(root / "host")) {
      entries.push_back(entry.path());
    }
    std::sort(entries.begin(), entries.end());
    if (entries.empty()) return {};
    return entries[Below(static_cast<unsigned>(entries.size()))];
  }

  static std::string OtherCase(const fs::path& entry) {
    std::string name = entry.filename();
    for (char& c : name) {
      const auto letter = static_cast<unsigned char>(c);
      if (letter < 0x80) {
        c = static_cast<char>(std::islower(letter) ? std::toupper(letter) : std::tolower(letter));
      }
    }
    return name;
  }

  void EditHost(unsigned count) {
    for (unsigned i = 0; i < count; ++i) EditHostOnce();
  }

  void EditHostOnce() {
    std::error_code ignored;
    const fs::path target = AnyFolder() / AnyOf(kHostNames);
    const fs::path entry = AnyEntry();
    switch (Below(12)) {
      case 0:
      case 1:
      case 2:
      case 3:
        if (fs::is_symlink(target) && !fs::is_regular_file(target, ignored)) return;
        if (!fs::is_directory(target, ignored)) test::WriteWholeFile(target, NewContent());
        return;
      case 4:
        fs::create_directory(target, ignored);
        return;
      case 5:
        if (!entry.empty()) fs::remove_all(entry, ignored);
        return;
      case 6:
        if (!entry.empty() && !fs::exists(target, ignored)) fs::rename(entry, target, ignored);
        return;
      case 7:  // a file where a folder was, or the reverse
        if (entry.empty()) return;
        if (fs::is_directory(entry, ignored)) {
          fs::remove_all(entry, ignored);
          test::WriteWholeFile(entry, NewContent());
        } else {
          fs::remove(entry, ignored);
          fs::create_directory(entry, ignored);
        }
        return;
      case 8:
        if (!entry.empty() && !fs::exists(fs::symlink_status(target))) {
          fs::create_symlink(entry, target, ignored);
          hasHadLinks = true;
        }
        return;
      case 9:
        if (!fs::exists(fs::symlink_status(target))) test::WriteWholeFile(target, "");
        return;
      case 11:  // another letter case
        if (!entry.empty()) fs::rename(entry, entry.parent_path() / OtherCase(entry), ignored);
        return;
      case 10:  // the same content twice
        if (!entry.empty() && fs::is_regular_file(entry, ignored) && !fs::exists(target, ignored)) {
          fs::copy_file(entry, target, ignored);
        }
        return;
    }
  }

  // --- the guest

  void EditGuest(unsigned count) {
    if (count == 0) return;
    GuestEditor guest(image);
    for (unsigned i = 0; i < count; ++i) EditGuestOnce(guest);
    guest.Save();
  }

  std::string AnyFileOf(const GuestEditor& guest) {
    const auto files = guest.Files();
    if (files.empty()) return AnyOf(kGuestNames);
    auto file = files.begin();
    std::advance(file, Below(static_cast<unsigned>(files.size())));
    return file->first;
  }

  void EditGuestOnce(GuestEditor& guest) {
    std::string target = AnyOf(kGuestNames);
    if (Below(3) == 0) target = "DIR/" + target;
    switch (Below(7)) {
      case 0:
      case 1:
        guest.Write(target, NewContent());
        guest.SetStamp(target, 0x5D75, 0x8A82);
        return;
      case 2:
        target = AnyFileOf(guest);
        guest.Write(target, NewContent());
        guest.SetStamp(target, 0x5D75, 0x8A82);
        return;
      case 3:
        guest.MakeFolder(target);
        return;
      case 4:
        guest.Remove(AnyFileOf(guest));
        return;
      case 5:
        guest.Rename(AnyFileOf(guest), AnyOf(kGuestNames));
        return;
      case 6:
        guest.Remove(target);  // a file, or an empty folder
        return;
    }
  }

  // --- what there is

  Contents OnSides() const {
    Contents all;
    AddFolder(root / "host", all);
    AddDisk(image, all);
    return all;
  }

  Contents Everywhere() const {
    Contents all = OnSides();
    AddTrash(root / "state", all);
    return all;
  }

  // --- the passes

  // Now and then another one, which knows what the state's folder holds and nothing else.
  IGuardedFolderSync& Sync() {
    if (!sync || Below(2) == 0) {
      sync.reset();
      sync = CreateGuardedFolderSync(image, root / "host", options);
    }
    return *sync;
  }

  GuardedReport Pass(const std::vector<GuardedHazard>& accepted) { return Sync().Pass(accepted); }

  void PassOnce() {
    const Contents before = OnSides();
    const std::string hostBefore = Fingerprint();
    const GuardedReport preview = Sync().Preview();
    EXPECT_EQ(Fingerprint(), hostBefore) << "a preview touches nothing";
    std::vector<GuardedHazard> accepted;
    GuardedReport report = Pass({});
    EXPECT_EQ(Foretold(preview), Foretold(report));
    // Otherwise the volume is too small for others.
    if (!isLookedAtQuickly) {
      EXPECT_EQ(report.outcome, GuardedOutcome::kRefused);
    }
    if (report.outcome == GuardedOutcome::kRefused) {
      EXPECT_EQ(Fingerprint(), hostBefore) << "a refusal touches nothing";
      for (const GuardedHazardReport& hazard : report.hazards) {
        EXPECT_TRUE(hazard.canBeAccepted) << hazard.text;
        accepted.push_back(hazard.hazard);
      }
      const std::string foretold = Foretold(Sync().Preview(accepted));
      report = Pass(accepted);
      EXPECT_EQ(foretold, Foretold(report));
    }
    const bool isDone =
        report.outcome == GuardedOutcome::kDone || report.outcome == GuardedOutcome::kNothingToDo;
    EXPECT_TRUE(isDone) << report.message;
    for (const GuardedStep& step : report.steps) EXPECT_TRUE(step.isDone) << step.hostPath;
    ExpectAllIn(before, Everywhere());
    ExpectTrashKept();
    ExpectQuiet(report);
    if (isLookedAtQuickly) ExpectVerified();
    // What a build has made of links to folders is new at another meeting when these are gone.
    if (Below(4) == 0 && !hasHadLinks) ExpectToMeetAgain();
  }

  // What earlier passes have thrown away is there yet.
  void ExpectTrashKept() {
    std::vector<TrashedItem> items;
    std::string err;
    EXPECT_TRUE(ListTrash(root / "state", items, err)) << err;
    std::map<std::string, std::uint64_t> now;
    for (const TrashedItem& item : items) now.emplace(item.id, item.bytes);
    for (const auto& [id, bytes] : thrownAway) {
      const auto found = now.find(id);
      EXPECT_TRUE(found != now.end() && found->second == bytes) << id << " is gone";
    }
    thrownAway = std::move(now);
  }

  // A copy of the folder in its place is in step as the folder was: every name is known.
  void ExpectToMeetAgain() {
    fs::rename(root / "host", root / "moved");
    fs::copy(root / "moved", root / "host",
             fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    fs::remove_all(root / "moved");
    const GuardedReport report =
        Pass({GuardedHazard::kImageNotFat16, GuardedHazard::kKindClash, GuardedHazard::kImageEmpty,
              GuardedHazard::kFolderEmpty, GuardedHazard::kFolderReplaced});
    EXPECT_EQ(report.outcome, GuardedOutcome::kNothingToDo)
        << report.message << Describe(report) << Listing();
  }

  // What looks by times alone say, one that reads everything says as well.
  void ExpectVerified() {
    const GuardedReport quick = Pass({});
    GuardedSyncOptions everything = options;
    everything.verify = true;
    sync.reset();
    const GuardedReport whole =
        CreateGuardedFolderSync(image, root / "host", everything)->Preview();
    EXPECT_EQ(quick.outcome, whole.outcome) << quick.message << whole.message << Describe(whole);
    // Longer than the tick of the file system's times.
    std::this_thread::sleep_for(std::chrono::milliseconds(12));
  }

  // A second pass has nothing to do.
  void ExpectQuiet(const GuardedReport& report) {
    const GuardedReport again = Pass({GuardedHazard::kImageNotFat16, GuardedHazard::kKindClash,
                                      GuardedHazard::kImageEmpty, GuardedHazard::kFolderEmpty});
    EXPECT_EQ(again.outcome, GuardedOutcome::kNothingToDo)
        << again.message << Describe(again) << "\nafter" << Describe(report) << Listing();
    if (testing::Test::HasFailure()) return;
    EXPECT_LE(again.files, GuestEditor(image).Files().size());
  }

  std::string Listing() const {
    std::string text = "\nhost:";
    for (const auto& entry : fs::recursive_directory_iterator(root / "host")) {
      text += "\n  " + entry.path().lexically_relative(root / "host").string();
      if (entry.is_symlink()) text += " -> " + fs::read_symlink(entry.path()).string();
      if (!entry.is_symlink() && entry.is_directory()) text += '/';
    }
    text += "\ndisk:";
    for (const auto& [path, content] : GuestEditor(image).Files()) text += "\n  " + path;
    return text;
  }

  static std::string Describe(const GuardedReport& report) {
    std::string text;
    for (const GuardedStep& step : report.steps) {
      text += "\n" + std::to_string(static_cast<int>(step.kind)) + ' ' + step.hostPath + " = " +
              step.diskPath;
    }
    return text;
  }

  // Both sides, byte for byte.
  std::string Fingerprint() const {
    std::string text = test::ReadWholeFile(image);
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(root / "host")) {
      const bool isFile = fs::is_regular_file(entry.symlink_status());
      files[entry.path().string()] = isFile ? test::ReadWholeFile(entry.path()) : "";
    }
    for (const auto& [path, content] : files) text += '\n' + path + '\n' + content;
    return text;
  }

  const fs::path root;
  const fs::path image = root / "DISK.IMG";
  std::mt19937 random;
  const bool isLookedAtQuickly;
  unsigned contents = 0;
  bool hasHadLinks = false;
  GuardedSyncOptions options;
  std::unique_ptr<IGuardedFolderSync> sync;
  std::map<std::string, std::uint64_t> thrownAway;  // bytes by what restore calls it
};

// GUARDED_SCENARIOS and GUARDED_FIRST_SEED make the search longer, or repeat a part of it.
unsigned FromEnvironment(const char* name, unsigned otherwise) {
  const char* text = std::getenv(name);
  return text == nullptr ? otherwise : static_cast<unsigned>(std::strtoul(text, nullptr, 10));
}

TEST(GuardedScenarios, RandomEdits_LoseNothing) {
  const auto folder = test::MemoryFolder::OrOnDisk();
  const unsigned first = FromEnvironment("GUARDED_FIRST_SEED", 1);
  const unsigned count = FromEnvironment("GUARDED_SCENARIOS", test::IsWholeSearch() ? 3000 : 100);
  for (unsigned seed = first; seed < first + count && !HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Scenario(folder.Path() / "scenario", seed).Run();
  }
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard

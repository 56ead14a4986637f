// Trashes that are slow, full or on another file system, and what happens while something is copied
// to them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "guard/guarded_pair.h"
#include "support/child_process.h"
#include "support/clock_ahead.h"
#include "support/memory_folder.h"
#include "support/next_function.h"
#include "support/path_of.h"

namespace {

using quorbix::virtdisk::test::NextOf;
using quorbix::virtdisk::test::PathOf;

std::function<void()> whenTrashIsWrittenOut;  // these once
std::function<void()> whenCopiedToTrash;
bool diesBesideTheDisk = false;  // when something made there is written out
std::uint64_t freeBytes = ~std::uint64_t{0};
std::string fullPlace;  // a part of the paths that have so little; empty: all

}  // namespace

// These stand in front of the C library's functions for the whole program.

extern "C" ssize_t write(int file, const void* bytes, size_t size) {
  if (whenCopiedToTrash && PathOf(file).ends_with(".part")) {
    std::exchange(whenCopiedToTrash, nullptr)();
  }
  return NextOf<ssize_t(int, const void*, size_t)>("write")(file, bytes, size);
}

extern "C" int fsync(int file) {
  if (diesBesideTheDisk && PathOf(file).find("/.quorbix") != std::string::npos) ::raise(SIGKILL);
  const bool isTrash = PathOf(file).find("/trash/") != std::string::npos;
  if (whenTrashIsWrittenOut && isTrash) std::exchange(whenTrashIsWrittenOut, nullptr)();
  return NextOf<int(int)>("fsync")(file);
}

extern "C" int statvfs(const char* path, struct statvfs* status) noexcept {
  const int result = NextOf<int(const char*, struct statvfs*)>("statvfs")(path, status);
  if (std::string_view(path).find(fullPlace) != std::string_view::npos) {
    status->f_bavail = std::min<std::uint64_t>(status->f_bavail, freeBytes / status->f_frsize);
  }
  return result;
}

namespace quorbix::virtdisk::internal::guard {
namespace {

using testing::ElementsAre;
using enum GuardedOutcome;

class TrashFault : public GuardedPair {
 protected:
  ~TrashFault() override {
    test::secondsAhead = 0;
    whenTrashIsWrittenOut = nullptr;
    whenCopiedToTrash = nullptr;
    freeBytes = ~std::uint64_t{0};
    fullPlace.clear();
  }
};

TEST_F(TrashFault, ImageThatIsWrittenWhileItIsCopied_IsNotKeptAsAMixture) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  folder.File("host/a.txt", "edited");
  options.inPlace = true;
  whenTrashIsWrittenOut = [this] { GuestWrites("GUEST.TXT", "g"); };
  const GuardedReport report = Sync()->Pass();
  EXPECT_FALSE(whenTrashIsWrittenOut);
  EXPECT_EQ(report.outcome, kNotNow) << report.message;
  EXPECT_EQ(InTrash().size(), 0u);
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnDisk(), (FileTree{{"A.TXT", "edited"}, {"GUEST.TXT", "g"}}));
}

TEST_F(TrashFault, FileWrittenWhileItIsCopiedIntoTheTrash_StaysWhereItIs) {
  const test::MemoryFolder memory;
  if (!memory.Usable()) GTEST_SKIP() << "no other file system";
  folder.File("host/a.txt", "a").File("host/b.txt", std::string(10'000, 'b'));
  options.stateFolder = memory.Path() / "state";
  BuildImage();
  ASSERT_EQ(Sync()->Pass().outcome, kNothingToDo);
  GuestRemoves("B.TXT");
  // Under its own name nobody finds it any more.
  whenCopiedToTrash = [this] {
    for (const auto& entry : std::filesystem::directory_iterator(Host())) {
      const bool isTakenAway = entry.path().filename().string().starts_with(".quorbix-");
      if (isTakenAway) std::ofstream(entry.path(), std::ios::app | std::ios::binary) << "more";
    }
  };
  const GuardedReport report = Sync()->Pass();
  EXPECT_FALSE(whenCopiedToTrash);
  EXPECT_EQ(report.outcome, kNotNow);
  EXPECT_EQ(report.message, "b.txt is being written just now");
  EXPECT_EQ(OnHost().at("b.txt"), std::string(10'000, 'b') + "more");
  // It takes no place among the passes that have thrown something away.
  EXPECT_TRUE(std::filesystem::is_empty(options.stateFolder / "trash"));
}

// A trash on another file system, with an old file and an old image to be copied into it: that
// takes a while.
class SlowTrash : public TrashFault {
 protected:
  void SetUp() override {
    if (!memory.Usable()) GTEST_SKIP() << "no other file system";
    folder.File("host/a.txt", "a");
    options.stateFolder = memory.Path() / "state";
    BuildImage();
    ASSERT_EQ(Sync()->Pass().outcome, kNothingToDo);
  }

  static std::ptrdiff_t EntriesOf(const std::filesystem::path& place) {
    return std::distance(std::filesystem::directory_iterator(place), {});
  }

  // So late that the times of what happened just now seem to tell.
  static void LetTimePass() { test::secondsAhead = 10; }

  test::MemoryFolder memory;
};

TEST_F(SlowTrash, EditOfAFileThatWasJustReplaced_IsNotAgreedOnUnseen) {
  GuestWrites("A.TXT", "guest's");
  whenCopiedToTrash = [this] {
    test::WriteWholeFile(Host() / "a.txt", "user's!");
    LetTimePass();
  };
  EXPECT_EQ(Sync()->Pass().outcome, kDone);
  EXPECT_FALSE(whenCopiedToTrash);
  EXPECT_EQ(Sync()->Pass().outcome, kDone);
  EXPECT_EQ(OnDisk().at("A.TXT"), "user's!");
}

TEST_F(SlowTrash, EditOfAnImageThatWasJustReplaced_IsNotAgreedOnUnseen) {
  folder.File("host/a.txt", "user's");
  whenCopiedToTrash = [this] {
    GuestWrites("GUEST.TXT", "g");
    LetTimePass();
  };
  EXPECT_EQ(Sync()->Pass().outcome, kDone);
  EXPECT_FALSE(whenCopiedToTrash);
  EXPECT_EQ(Sync()->Pass().outcome, kDone);
  EXPECT_EQ(OnHost(), (FileTree{{"GUEST.TXT", "g"}, {"a.txt", "user's"}}));
}

// Every later pass would find no room for it either.
TEST_F(SlowTrash, ThatDoesNotTakeTheOldImage_LeavesItInItsPlace) {
  const std::string old = test::ReadWholeFile(Image());
  folder.File("host/a.txt", "edited");
  for (int i = 0; i < 2; ++i) {
    const int status = test::RunInChild({}, [&] {
      whenCopiedToTrash = [&] {
        const ::rlimit limit{kImageBytes / 2, kImageBytes / 2};
        ::setrlimit(RLIMIT_FSIZE, &limit);
      };
      return Sync()->Pass({GuardedHazard::kNoRoom}).outcome == kFailed ? 0 : 1;
    });
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(test::ReadWholeFile(Image()) == old);
    EXPECT_EQ(EntriesOf(folder.Path()), 2);
  }
  EXPECT_EQ(Sync()->Pass().outcome, kDone);
  EXPECT_EQ(OnDisk().at("A.TXT"), "edited");
}

TEST_F(TrashFault, FolderOnAFullFileSystem_IsToldBeforehand) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  GuestWrites("B.TXT", std::string(65'536, 'b'));
  fullPlace = Host();
  freeBytes = 61'440;
  GuardedReport report = Sync()->Pass();
  EXPECT_THAT(HazardsOf(report), ElementsAre(GuardedHazard::kNoRoom));
  EXPECT_THAT(report.message, testing::HasSubstr("the file system of " + Host().string()));
  freeBytes = 65'536;
  EXPECT_EQ(Sync()->Pass().outcome, kDone);
}

TEST_F(TrashFault, TrashOnAnotherFileSystem_NeedsRoomThere) {
  const test::MemoryFolder memory;
  if (!memory.Usable()) GTEST_SKIP() << "no other file system";
  folder.File("host/a.txt", "a");
  options.stateFolder = memory.Path() / "state";
  BuildImage();
  ASSERT_EQ(Sync()->Pass().outcome, kNothingToDo);
  folder.File("host/a.txt", "edited");
  fullPlace = memory.Path();
  freeBytes = kImageBytes - 4096;
  EXPECT_THAT(HazardsOf(Sync()->Pass()), ElementsAre(GuardedHazard::kNoRoom));
  freeBytes = kImageBytes + 4096;
  EXPECT_EQ(Sync()->Pass().outcome, kDone);
}

// A trash of two passes with an image each, on a file system that is full but for them.
class FullTrash : public TrashFault {
 protected:
  void SetUp() override {
    folder.File("host/a.txt", "a");
    BuildAndAgree();
    for (const char* text : {"first edit", "second edit"}) {
      folder.File("host/a.txt", text);
      ASSERT_EQ(Pass().outcome, GuardedOutcome::kDone);
    }
    options.inPlace = true;  // the new image, and a copy of the old one
    folder.File("host/a.txt", "third edit");
    before = InTrashByPass();
    ASSERT_EQ(before.size(), 2u);
    freeBytes = kImageBytes;
  }

  std::vector<std::string> InTrashByPass() const {
    std::vector<TrashedItem> items;
    std::string err;
    EXPECT_TRUE(ListTrash(StateFolder(), items, err)) << err;
    std::vector<std::string> ids;
    for (const TrashedItem& item : items) ids.push_back(item.id);
    return ids;
  }

  // As much as the first one gives back, where images have their blocks.
  void FillImages() const {
    for (const std::string& id : before) {
      const auto path = StateFolder() / "trash" / id;
      test::WriteWholeFile(path, std::string(kImageBytes + 8192, 'x'));
    }
  }

  std::vector<std::string> before;
};

TEST_F(FullTrash, WithinItsBound_IsToldAndKept) {
  FillImages();
  const GuardedReport report = Pass();
  EXPECT_THAT(HazardsOf(report), ElementsAre(GuardedHazard::kNoRoom));
  EXPECT_THAT(report.message, testing::HasSubstr("let the trash in " + StateFolder().string()));
  EXPECT_EQ(InTrashByPass(), before);
}

TEST_F(FullTrash, BeyondItsBound_MakesRoomBeforeItIsNeeded) {
  FillImages();
  options.trashBytes = kImageBytes;
  bool isOldestGone = false;
  whenTrashIsWrittenOut = [&] {
    isOldestGone = !std::filesystem::exists(StateFolder() / "trash" / before.front());
  };
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kDone) << report.message;
  EXPECT_TRUE(isOldestGone);
  EXPECT_EQ(OnDisk(), (FileTree{{"A.TXT", "third edit"}}));
}

TEST_F(FullTrash, BeyondItsBound_IsKeptByAPassThatIsRefused) {
  FillImages();
  options.trashBytes = kImageBytes;
  freeBytes = 0;
  EXPECT_THAT(HazardsOf(Pass()), ElementsAre(GuardedHazard::kNoRoom));
  EXPECT_EQ(InTrashByPass(), before);
}

TEST_F(TrashFault, NewImageOfAPassThatWasKilled_MakesRoomForTheNext) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  folder.File("host/a.txt", "edited");
  const int status = test::RunInChild({}, [&] {
    diesBesideTheDisk = true;
    Sync()->Pass();
    return 0;
  });
  ASSERT_EQ(status, 256 + SIGKILL);
  // As little as the new image leaves, were it written a second time.
  freeBytes = std::uint64_t{1} << 20;
  const GuardedReport report = Sync()->Pass();
  EXPECT_EQ(report.outcome, kDone) << report.message;
  EXPECT_EQ(OnDisk(), (FileTree{{"A.TXT", "edited"}}));
  folder.File("host/a.txt", "again");
  EXPECT_THAT(HazardsOf(Sync()->Pass()), ElementsAre(GuardedHazard::kNoRoom));
}
}  // namespace
}  // namespace quorbix::virtdisk::internal::guard

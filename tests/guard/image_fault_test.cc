// Images that fail under a pass, or give way to others, while they are looked at.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/host_file.h"
#include "guard/guarded_pair.h"
#include "support/child_process.h"
#include "support/clock_ahead.h"
#include "support/memory_folder.h"
#include "support/next_function.h"

namespace {

using quorbix::virtdisk::test::NextOf;

bool IsDisk(std::string_view path) { return path.ends_with("/DISK.IMG"); }

std::string PathOf(int file) {
  std::array<char, 4096> path{};
  const std::string link = "/proc/self/fd/" + std::to_string(file);
  const ssize_t length = ::readlink(link.c_str(), path.data(), path.size());
  return length < 0 ? "" : std::string(path.data(), static_cast<std::size_t>(length));
}

int readsBeforeError = -1;   // of the image; negative: they succeed
int looksBeforeChange = -1;  // at the image's status; negative: nothing happens
std::function<void()> atThatLook;
std::function<void()> atNextRead;  // of the image
bool hasLeases = true;
std::function<void()> whenTrashIsWrittenOut;  // these once
std::function<void()> whenCopiedToTrash;
std::function<void()> beforeStatusOfA;
std::string mountPoint;          // the name of a folder that cannot be removed
bool diesBesideTheDisk = false;  // when something made there is written out
std::uint64_t freeBytes = ~std::uint64_t{0};
std::string fullPlace;  // a part of the paths that have so little; empty: all

}  // namespace

// These stand in front of the C library's functions for the whole program.

extern "C" ssize_t pread(int file, void* buffer, size_t size, off_t offset) {
  static const auto next = NextOf<ssize_t(int, void*, size_t, off_t)>("pread");
  if (atNextRead && IsDisk(PathOf(file))) std::exchange(atNextRead, nullptr)();
  if (readsBeforeError < 0 || !IsDisk(PathOf(file))) return next(file, buffer, size, offset);
  if (readsBeforeError > 0) {
    --readsBeforeError;
    return next(file, buffer, size, offset);
  }
  errno = EIO;
  return -1;
}

extern "C" int fcntl(int file, int command, ...) {
  std::va_list rest;
  va_start(rest, command);
  void* argument = va_arg(rest, void*);
  va_end(rest);
  if (!hasLeases && command == F_SETLEASE) {
    errno = EINVAL;
    return -1;
  }
  return NextOf<int(int, int, ...)>("fcntl")(file, command, argument);
}

extern "C" ssize_t write(int file, const void* bytes, size_t size) {
  if (whenCopiedToTrash && PathOf(file).ends_with(".part")) {
    std::exchange(whenCopiedToTrash, nullptr)();
  }
  return NextOf<ssize_t(int, const void*, size_t)>("write")(file, bytes, size);
}

extern "C" int fstatat(int folder, const char* path, struct stat* status, int flags) noexcept {
  if (beforeStatusOfA && std::string_view(path) == "a.txt") {
    std::exchange(beforeStatusOfA, nullptr)();
  }
  return NextOf<int(int, const char*, struct stat*, int)>("fstatat")(folder, path, status, flags);
}

extern "C" int unlinkat(int folder, const char* path, int flags) noexcept {
  if (!mountPoint.empty() && path == mountPoint && flags == AT_REMOVEDIR) {
    errno = EBUSY;
    return -1;
  }
  return NextOf<int(int, const char*, int)>("unlinkat")(folder, path, flags);
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

extern "C" int stat(const char* path, struct stat* status) noexcept {
  if (looksBeforeChange >= 0 && IsDisk(path) && looksBeforeChange-- == 0) atThatLook();
  return NextOf<int(const char*, struct stat*)>("stat")(path, status);
}

namespace quorbix::virtdisk::internal::guard {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using enum GuardedOutcome;

class ImageFault : public GuardedPair {
 protected:
  ~ImageFault() override {
    readsBeforeError = -1;
    looksBeforeChange = -1;
    atNextRead = nullptr;
    test::secondsAhead = 0;
    hasLeases = true;
    whenTrashIsWrittenOut = nullptr;
    whenCopiedToTrash = nullptr;
    beforeStatusOfA = nullptr;
    mountPoint.clear();
    freeBytes = ~std::uint64_t{0};
    fullPlace.clear();
  }

  GuardedReport PassWithReads(int reads) const {
    readsBeforeError = reads;
    GuardedReport report = Sync()->Pass();
    readsBeforeError = -1;
    return report;
  }
};

TEST_F(ImageFault, DiskOfTheHostThatFails_IsNoDamageOfTheImage) {
  folder.File("host/a.txt", std::string(20'000, 'a')).File("host/sub/b.txt", "b");
  BuildAndAgree();
  GuestWrites("A.TXT", std::string(19'000, 'n'));
  const FileTree host = OnHost();
  GuardedReport report = PassWithReads(0);
  int reads = 0;
  for (; report.outcome == kRefused && !HasFailure(); report = PassWithReads(++reads)) {
    SCOPED_TRACE("after " + std::to_string(reads) + " reads");
    EXPECT_THAT(HazardsOf(report), ElementsAre(GuardedHazard::kImageUnreadable));
    EXPECT_THAT(report.message, testing::HasSubstr("could not be read: Input/output error"));
    EXPECT_THAT(report.steps, IsEmpty());
    EXPECT_EQ(OnHost(), host);
  }
  EXPECT_GE(reads, 3);
  // From here on the look was over, and the carrying out ends where it is.
  EXPECT_TRUE(report.outcome == kFailed || report.outcome == kNotNow);
  EXPECT_THAT(report.message, EndsWith("image could not be read: Input/output error"));
  EXPECT_EQ(OnHost(), host);
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnHost().at("a.txt"), std::string(19'000, 'n'));
}

TEST_F(ImageFault, ImageThatChangesWhileItIsRead_IsReadAgainByTheNextPass) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  GuestWrites("B.TXT", "b");
  atNextRead = [this] { GuestWrites("C.TXT", "c"); };
  const GuardedReport report = Sync()->Pass();
  EXPECT_FALSE(atNextRead);
  EXPECT_EQ(report.outcome, kNotNow);
  EXPECT_EQ(report.message, "the image is being written just now");
  EXPECT_EQ(OnHost(), (FileTree{{"a.txt", "a"}}));
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnHost(), (FileTree{{"B.TXT", "b"}, {"C.TXT", "c"}, {"a.txt", "a"}}));
}

// Whose descriptors may not be looked at, a lease tells of.
TEST_F(ImageFault, WriterOfAnotherUser_IsFoundByALease) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs another user";
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  folder.File("host/a.txt", "edited");
  namespace fs = std::filesystem;
  for (const fs::path& place : {folder.Path(), Host(), StateFolder()}) {
    fs::permissions(place, fs::perms{0777});
  }
  for (const fs::path& file : {Host() / "a.txt", StateFolder() / "state", StateFolder() / "lock"}) {
    fs::permissions(file, fs::perms{0666});
  }
  ASSERT_EQ(::chown(Image().c_str(), 65534, 65534), 0);  // "nobody", as which the child runs
  Descriptor writer = OpenHostPath(Image().c_str(), O_RDWR);
  const int status = test::RunInChild({.dropRoot = true}, [&] {
    writer.Close();  // the parent's stays open
    const GuardedReport report = Sync()->Pass();
    if (report.outcome != kNotNow) return 1;
    return report.message == "another process has the image open for writing" ? 0 : 2;
  });
  EXPECT_EQ(status, 0);
}

// As on network file systems.
TEST_F(ImageFault, WriterWithoutLeases_IsFoundAmongTheProcesses) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  folder.File("host/a.txt", "edited");
  hasLeases = false;
  {
    const Descriptor reader = OpenHostPath(Image().c_str(), O_RDONLY);
    const Descriptor writer = OpenHostPath(Image().c_str(), O_RDWR);
    const GuardedReport report = Sync()->Pass();
    EXPECT_EQ(report.outcome, kNotNow);
    EXPECT_EQ(report.message,
              "process " + std::to_string(::getpid()) + " has the image open for writing");
  }
  const Descriptor reader = OpenHostPath(Image().c_str(), O_RDONLY);
  EXPECT_EQ(Pass().outcome, kDone);
}

TEST_F(ImageFault, ImageThatIsWrittenWhileItIsCopied_IsNotKeptAsAMixture) {
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

// As by an editor that saves it.
TEST_F(ImageFault, FileThatIsAwayForAMoment_IsNoDeletion) {
  folder.File("host/a.txt", "a").File("host/b.txt", "b");
  BuildAndAgree();
  beforeStatusOfA = [this] { std::filesystem::rename(Host() / "a.txt", folder / "away"); };
  const GuardedReport report = Sync()->Pass();
  EXPECT_EQ(report.outcome, kNotNow);
  EXPECT_THAT(report.steps, IsEmpty());
  std::filesystem::rename(folder / "away", Host() / "a.txt");
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

TEST_F(ImageFault, FileWrittenWhileItIsCopiedIntoTheTrash_StaysWhereItIs) {
  const test::MemoryFolder memory;
  if (!memory.Usable()) GTEST_SKIP() << "no other file system";
  folder.File("host/a.txt", "a").File("host/b.txt", std::string(10'000, 'b'));
  options.stateFolder = memory.Path() / "state";
  BuildImage();
  ASSERT_EQ(Sync()->Pass().outcome, kNothingToDo);
  GuestRemoves("B.TXT");
  std::ofstream writer(Host() / "b.txt", std::ios::app | std::ios::binary);
  whenCopiedToTrash = [&writer] { writer << "more" << std::flush; };
  const GuardedReport report = Sync()->Pass();
  EXPECT_FALSE(whenCopiedToTrash);
  EXPECT_EQ(report.outcome, kFailed) << report.message;
  EXPECT_EQ(OnHost().at("b.txt"), std::string(10'000, 'b') + "more");
  // It takes no place among the passes that have thrown something away.
  EXPECT_TRUE(std::filesystem::is_empty(options.stateFolder / "trash"));
}

// A trash on another file system, with an old file and an old image to be copied into it: that
// takes a while.
class SlowTrash : public ImageFault {
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

TEST_F(ImageFault, RemovedFolderOnWhichSomethingIsMounted_StaysAndKeepsNothingFromBeingDone) {
  folder.File("host/a.txt", "a").Folder("host/mnt");
  BuildAndAgree();
  GuestRemoves("MNT");
  folder.File("host/b.txt", "b");
  mountPoint = "mnt";
  EXPECT_EQ(Sync()->Pass().outcome, kDone);
  EXPECT_TRUE(OnDisk().contains("B.TXT"));
  EXPECT_TRUE(folder.Exists("host/mnt"));
  Pass();
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

// Accepted, that is no folder to be accepted once more.
TEST_F(ImageFault, MissingFolderThatWasMadeByAPassThatFailed_IsFilledByTheNext) {
  folder.File("host/a.txt", std::string(20'000, 'a'));
  BuildAndAgree();
  const FileTree before = OnHost();
  for (int reads = 0;; ++reads) {
    std::filesystem::remove_all(Host());
    readsBeforeError = reads;
    const GuardedReport report = Sync()->Pass({GuardedHazard::kFolderMissing});
    readsBeforeError = -1;
    if (report.outcome == kRefused) continue;
    ASSERT_THAT(report.message, EndsWith("Input/output error"));
    break;
  }
  ASSERT_TRUE(folder.Exists("host"));
  const GuardedReport next = Pass();
  EXPECT_EQ(next.outcome, kDone) << next.message;
  // Under its name of old: "host" is known by what the disk says alone.
  ASSERT_EQ(OnHost().size(), 1u);
  EXPECT_EQ(OnHost().begin()->second, before.begin()->second);
}

// A file with a time in the future can never be trusted; what is seen of it is no news all the
// same.
TEST_F(ImageFault, FileOfTheFuture_LetsTheStateRest) {
  folder.File("host/a.txt", "a");
  std::filesystem::last_write_time(
      Host() / "a.txt", std::filesystem::file_time_type::clock::now() + std::chrono::hours(24));
  BuildAndAgree();
  test::secondsAhead = 10;
  Pass();
  const auto inode = [&] {
    struct ::stat status;
    EXPECT_EQ(::lstat((StateFolder() / "state").c_str(), &status), 0);
    return status.st_ino;
  };
  const auto before = inode();
  test::secondsAhead = 20;
  Pass();
  EXPECT_EQ(inode(), before);
}

TEST_F(ImageFault, TrashOnAnotherFileSystem_NeedsRoomThere) {
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
class FullTrash : public ImageFault {
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

TEST_F(ImageFault, NewImageOfAPassThatWasKilled_MakesRoomForTheNext) {
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

// The image that was looked at first is not the one that is read then.
class GivingWay : public ImageFault {
 protected:
  void Begin() {
    std::filesystem::remove_all(folder.Path());
    folder.File("host/a.txt", "a").File("host/b.txt", "b").File("other/c.txt", "c");
    BuildImage();
    // What was changed just before a look would be read again.
    test::secondsAhead = 10;
    ASSERT_EQ(Pass().outcome, kNothingToDo);
    test::secondsAhead = 0;
    const auto builder = CreateFat16Builder();
    ASSERT_TRUE(builder->Build(folder / "other", folder / "other.img", kImageBytes));
    folder.File("host/a.txt", "edited");
  }

  // Whether the other image had taken the place before the pass ended.
  bool PassWithChangeAt(int look, const std::vector<GuardedHazard>& accepted) {
    Begin();
    looksBeforeChange = look;
    atThatLook = [this] { std::filesystem::rename(folder / "other.img", Image()); };
    report = Sync()->Pass(accepted);
    const bool hasChanged = looksBeforeChange < 0;
    looksBeforeChange = -1;
    return hasChanged;
  }

  bool IsFoundReplaced() const {
    return HazardsOf(report) == std::vector{GuardedHazard::kImageReplaced};
  }

  GuardedReport report;
};

TEST_F(GivingWay, AnotherImageAtAnyLook_IsRefusedOrLeftForTheNextPass) {
  int refused = 0;
  int look = 0;
  for (; PassWithChangeAt(look, {}) && !HasFailure(); ++look) {
    SCOPED_TRACE("at look " + std::to_string(look));
    if (report.outcome == kDone) report = Sync()->Pass();  // it came when all was done
    EXPECT_TRUE(report.outcome == kNotNow || (report.outcome == kRefused && IsFoundReplaced()))
        << report.message;
    EXPECT_EQ(OnHost(), (FileTree{{"a.txt", "edited"}, {"b.txt", "b"}}));
    EXPECT_EQ(OnDisk(), (FileTree{{"C.TXT", "c"}}));
    if (report.outcome == kRefused) ++refused;
  }
  EXPECT_GE(refused, 2);
  EXPECT_GE(look, 4);
}

TEST_F(GivingWay, AnotherImageAtAnyLook_IsMetAnewWhenAccepted) {
  const std::vector accepted{GuardedHazard::kImageReplaced};
  int met = 0;
  for (int look = 0; PassWithChangeAt(look, accepted) && !HasFailure(); ++look) {
    SCOPED_TRACE("at look " + std::to_string(look));
    if (report.outcome == kDone) ++met;
    if (report.outcome != kDone) {
      EXPECT_EQ(report.outcome, kNotNow) << report.message;
      EXPECT_EQ(OnDisk(), (FileTree{{"C.TXT", "c"}}));
    }
    Pass(accepted);
    EXPECT_EQ(OnDisk(), (FileTree{{"A.TXT", "edited"}, {"B.TXT", "b"}, {"C.TXT", "c"}}));
    EXPECT_EQ(OnHost(), (FileTree{{"C.TXT", "c"}, {"a.txt", "edited"}, {"b.txt", "b"}}));
  }
  EXPECT_GE(met, 2);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard

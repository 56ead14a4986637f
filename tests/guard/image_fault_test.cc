// Images that fail under a pass, or give way to others, while they are looked at.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/host_file.h"
#include "guard/guarded_pair.h"
#include "support/child_process.h"
#include "support/clock_ahead.h"
#include "support/next_function.h"
#include "support/path_of.h"

namespace {

using quorbix::virtdisk::test::NextOf;
using quorbix::virtdisk::test::PathOf;

bool IsDisk(std::string_view path) { return path.ends_with("/DISK.IMG"); }

int readsBeforeError = -1;   // of the image; negative: they succeed
int looksBeforeChange = -1;  // at the image's status; negative: nothing happens
std::function<void()> atThatLook;
std::function<void()> atNextRead;  // of the image
bool hasLeases = true;
std::function<void()> beforeStatusOfA;  // once
std::string mountPoint;                 // the name of a folder that cannot be removed

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
    beforeStatusOfA = nullptr;
    mountPoint.clear();
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
  // From here on the look was over, and has kept what the carrying out needs.
  EXPECT_EQ(report.outcome, kDone);
  EXPECT_EQ(OnHost().at("a.txt"), std::string(19'000, 'n'));
}

// A file that was too large to be kept.
TEST_F(ImageFault, DiskOfTheHostThatFailsOnceItWasLookedAt_EndsThePassWhereItIs) {
  constexpr std::size_t kLarge = std::size_t{5} << 20;
  constexpr int kMany = 1'000'000;
  folder.File("host/a.txt", std::string(kLarge, 'a')).File("host/b.txt", "b");
  BuildAndAgree(std::uint64_t{8} << 20);
  GuestWrites("A.TXT", std::string(kLarge, 'n'));
  const FileTree host = OnHost();
  readsBeforeError = kMany;
  EXPECT_EQ(Sync()->Preview().outcome, kDone);
  const GuardedReport report = PassWithReads(kMany - readsBeforeError + 2);
  EXPECT_EQ(report.outcome, kNotNow) << report.message;
  EXPECT_THAT(report.message, EndsWith("image could not be read: Input/output error"));
  EXPECT_EQ(OnHost(), host);
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnHost().at("a.txt"), std::string(kLarge, 'n'));
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

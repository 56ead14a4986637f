// Calls of the system that fail under a pass, one kind at a time, and bytes that are read back as
// others than were written.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "guard/contents.h"
#include "guard/folder_lock.h"
#include "guard/guarded_pair.h"
#include "quorbix/virtdisk/fat16_fs_image.h"
#include "support/next_function.h"
#include "support/opening.h"
#include "support/path_of.h"
#include "support/search_effort.h"

namespace {

using quorbix::virtdisk::test::NextOf;
using quorbix::virtdisk::test::PathOf;

// Is asked before each call: the error with which it fails, or 0. Its own calls are not asked
// about. "open" is an openat that makes nothing.
using Answer = std::function<int(std::string_view call, const std::string& path)>;
Answer answer;
std::string locksOfTheSystem;  // a file that is read in place of /proc/locks; empty: that itself
std::set<std::size_t> flippedBytes;  // offsets in new images, whose lowest bit is read as another
bool sharesFiles = false;            // whether the file system has FICLONE
int shared = 0;

bool IsRefused(std::string_view call, const std::string& path) {
  if (!answer) return false;
  Answer asked;
  asked.swap(answer);
  const int error = asked(call, path);
  asked.swap(answer);
  if (error != 0) errno = error;
  return error != 0;
}

std::string PathIn(int folder, const char* path) {
  return *path == '/' || folder == AT_FDCWD ? path : PathOf(folder) + '/' + path;
}

bool IsRefused(std::string_view call, int file) { return answer && IsRefused(call, PathOf(file)); }

bool IsNewImage(const std::string& path) { return path.find("/.quorbix-") != std::string::npos; }

}  // namespace

int quorbix::virtdisk::test::InPlaceOf(const Opening& opening) {
  const bool isMade = (opening.flags & O_CREAT) != 0;
  const std::string path = answer ? PathIn(opening.folder, opening.path) : "";
  if (IsRefused(isMade ? "openat" : "open", path)) return -1;
  if (locksOfTheSystem.empty() || opening.path != std::string_view("/proc/locks")) {
    return opening.Next();
  }
  Opening other = opening;
  other.path = locksOfTheSystem.c_str();
  return other.Next();
}

// These stand in front of the C library's functions for the whole program.

extern "C" ssize_t write(int file, const void* bytes, size_t size) {
  if (IsRefused("write", file)) return -1;
  return NextOf<ssize_t(int, const void*, size_t)>("write")(file, bytes, size);
}

extern "C" ssize_t pread(int file, void* buffer, size_t size, off_t offset) {
  const ssize_t got =
      NextOf<ssize_t(int, void*, size_t, off_t)>("pread")(file, buffer, size, offset);
  if (flippedBytes.empty() || !IsNewImage(PathOf(file))) return got;
  for (const std::size_t flipped : flippedBytes) {
    const auto begin = static_cast<std::size_t>(offset);
    const bool isRead = flipped >= begin && flipped < begin + static_cast<std::size_t>(got);
    if (isRead) static_cast<std::uint8_t*>(buffer)[flipped - begin] ^= 1;
  }
  return got;
}

extern "C" int fsync(int file) {
  return IsRefused("fsync", file) ? -1 : NextOf<int(int)>("fsync")(file);
}

extern "C" int fdatasync(int file) {
  return IsRefused("fdatasync", file) ? -1 : NextOf<int(int)>("fdatasync")(file);
}

extern "C" int syncfs(int file) noexcept {
  return IsRefused("syncfs", file) ? -1 : NextOf<int(int)>("syncfs")(file);
}

extern "C" int flock(int file, int operation) noexcept {
  return IsRefused("flock", file) ? -1 : NextOf<int(int, int)>("flock")(file, operation);
}

extern "C" int mkdir(const char* path, mode_t mode) noexcept {
  return IsRefused("mkdir", path) ? -1 : NextOf<int(const char*, mode_t)>("mkdir")(path, mode);
}

extern "C" int renameat2(int fromFolder, const char* from, int toFolder, const char* to,
                         unsigned flags) noexcept {
  if (answer && IsRefused("renameat2", PathIn(toFolder, to))) return -1;
  return NextOf<int(int, const char*, int, const char*, unsigned)>("renameat2")(
      fromFolder, from, toFolder, to, flags);
}

extern "C" int ioctl(int file, unsigned long request, ...) noexcept {
  std::va_list rest;
  va_start(rest, request);
  void* argument = va_arg(rest, void*);
  va_end(rest);
  if (!sharesFiles || request != FICLONE) {
    return NextOf<int(int, unsigned long, ...)>("ioctl")(file, request, argument);
  }
  ++shared;
  off64_t from = 0;
  off64_t to = 0;
  const int source = static_cast<int>(reinterpret_cast<std::intptr_t>(argument));
  while (::copy_file_range(source, &from, file, &to, std::size_t{1} << 20, 0) > 0) continue;
  return 0;
}

namespace quorbix::virtdisk::internal::guard {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using enum GuardedOutcome;

class RefusedCall : public GuardedPair {
 protected:
  ~RefusedCall() override {
    answer = nullptr;
    locksOfTheSystem.clear();
    flippedBytes.clear();
    sharesFiles = false;
    shared = 0;
  }

  static std::vector<std::string> NamesIn(const fs::path& place) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(place)) {
      names.push_back(entry.path().filename());
    }
    return names;
  }

  bool IsOfHost(const std::string& path) const {
    return path == Host() || path.starts_with(Host().string() + '/');
  }
};

// --- the new image

struct Spot {
  const char* name;
  std::function<std::set<std::size_t>(const std::vector<std::uint8_t>& image)> bytes;
};

std::size_t OffsetOf(const std::vector<std::uint8_t>& image, std::string_view text) {
  const auto found = std::search(image.begin(), image.end(), text.begin(), text.end());
  EXPECT_NE(found, image.end()) << text;
  return static_cast<std::size_t>(found - image.begin());
}

constexpr std::string_view kSlot = "LONG    TXT";

// Of each FAT, the word of the first cluster of LONG.TXT.
std::array<std::size_t, 2> ChainOf(const std::vector<std::uint8_t>& bytes) {
  Fat16FsImage image;
  std::string err;
  EXPECT_TRUE(image.LoadFromBytes(bytes, err)) << err;
  const std::size_t slot = OffsetOf(bytes, kSlot);
  const std::size_t cluster = bytes[slot + 26] + 256u * bytes[slot + 27];
  const std::size_t first = image.Info().fatStartSector * std::size_t{512} + 2 * cluster;
  return {first, first + image.Info().sectorsPerFat * std::size_t{512}};
}

const Spot kSpots[] = {
    {"Content", [](const auto& image) { return std::set{OffsetOf(image, "long text") + 1000}; }},
    {"FirstFat", [](const auto& image) { return std::set{ChainOf(image)[0]}; }},
    {"SecondFat", [](const auto& image) { return std::set{ChainOf(image)[1]}; }},
    {"BothFats",
     [](const auto& image) {
       return std::set{ChainOf(image)[0], ChainOf(image)[1]};
     }},
    {"Name", [](const auto& image) { return std::set{OffsetOf(image, kSlot)}; }},
    {"Size", [](const auto& image) { return std::set{OffsetOf(image, kSlot) + 28}; }},
    {"FirstCluster", [](const auto& image) { return std::set{OffsetOf(image, kSlot) + 26}; }},
    {"Attributes", [](const auto& image) { return std::set{OffsetOf(image, kSlot) + 11}; }},
    {"Date", [](const auto& image) { return std::set{OffsetOf(image, kSlot) + 24}; }},
    {"VolumeId", [](const auto&) { return std::set<std::size_t>{512 + 39}; }},
    {"BootCode", [](const auto&) { return std::set<std::size_t>{100}; }},
};

class NewImageReadBack : public RefusedCall, public testing::WithParamInterface<bool> {
 protected:
  void SetUp() override {
    options.inPlace = GetParam();
    folder.File("host/long.txt", "long text" + std::string(9000, 'l')).File("host/a.txt", "a");
    BuildAndAgree();
    // A build may lay its clusters out in another way; the new images of passes are alike.
    folder.File("host/a.txt", "b");
    ASSERT_EQ(Pass().outcome, kDone);
    fs::remove_all(StateFolder() / "trash");
    folder.File("host/a.txt", "c");
  }
};

TEST_P(NewImageReadBack, FlippedBit_KeepsTheOldOneAndLeavesNothingElse) {
  const std::vector<std::uint8_t> before = test::ReadBytes(Image());
  const auto inStateBefore = NamesIn(StateFolder());
  for (const Spot& spot : kSpots) {
    SCOPED_TRACE(spot.name);
    flippedBytes = spot.bytes(before);
    const GuardedReport report = Sync()->Pass();
    flippedBytes.clear();
    EXPECT_EQ(report.outcome, kFailed);
    EXPECT_THAT(report.message, HasSubstr("does not hold what was planned"));
    EXPECT_EQ(test::ReadBytes(Image()), before);
    EXPECT_THAT(NamesIn(folder.Path()), UnorderedElementsAre("host", "DISK.IMG", "DISK.IMG.sync"));
    EXPECT_THAT(NamesIn(StateFolder()), testing::UnorderedElementsAreArray(inStateBefore));
    EXPECT_FALSE(report.steps.at(0).isDone);
  }
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnDisk().at("A.TXT"), "c");
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

INSTANTIATE_TEST_SUITE_P(Ways, NewImageReadBack, testing::Bool(),
                         [](const auto& way) { return way.param ? "InPlace" : "Renamed"; });

// --- copies to the host

struct Refusal {
  const char* name;
  const char* call;
  int error;
  bool isBeforeAnything = true;  // otherwise the files have been written by then
};

// Something of every sort is to be done.
class CopyToTheHost : public RefusedCall, public testing::WithParamInterface<Refusal> {
 protected:
  void SetUp() override {
    folder.File("host/edit.txt", "c").File("host/drop.txt", "d").File("host/sub/gone", "s");
    folder.File("host/mine.txt", "m").File("host/gone.txt", "g");
    BuildAndAgree();
    GuestWrites("EDIT.TXT", "of the guest");
    GuestWrites("NEW.TXT", "new");
    GuestRemoves("DROP.TXT");
    GuestRemoves("SUB/GONE");
    GuestRemoves("SUB");
    folder.File("host/mine.txt", "of the host").Remove("host/gone.txt");
  }
};

TEST_P(CopyToTheHost, ThatFails_KeepsEverythingFromBeingDeletedAndTheImageFromBeingMade) {
  const FileTree host = OnHost();
  const auto image = test::ReadBytes(Image());
  answer = [&](std::string_view call, const std::string& path) {
    return call == GetParam().call && IsOfHost(path) ? GetParam().error : 0;
  };
  const GuardedReport report = Sync()->Pass();
  answer = nullptr;
  EXPECT_EQ(report.outcome, kFailed) << report.message;
  for (const GuardedStep& step : report.steps) {
    const bool isWritten = step.kind == GuardedStep::Kind::kWriteOnHost;
    EXPECT_EQ(step.isDone, isWritten && !GetParam().isBeforeAnything) << step.hostPath;
  }
  EXPECT_EQ(test::ReadBytes(Image()), image);
  FileTree expected = host;
  if (!GetParam().isBeforeAnything) {
    expected["edit.txt"] = "of the guest";
    expected["NEW.TXT"] = "new";
  }
  EXPECT_EQ(OnHost(), expected);
  EXPECT_THAT(NamesIn(folder.Path()), UnorderedElementsAre("host", "DISK.IMG", "DISK.IMG.sync"));
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(
      OnHost(),
      (FileTree{{"edit.txt", "of the guest"}, {"NEW.TXT", "new"}, {"mine.txt", "of the host"}}));
  EXPECT_EQ(
      OnDisk(),
      (FileTree{{"EDIT.TXT", "of the guest"}, {"MINE.TXT", "of the host"}, {"NEW.TXT", "new"}}));
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

INSTANTIATE_TEST_SUITE_P(Refusals, CopyToTheHost,
                         testing::Values(Refusal{"MakingIt", "openat", ENOSPC},
                                         Refusal{"FullDisk", "write", ENOSPC},
                                         Refusal{"FailingDisk", "write", EIO},
                                         Refusal{"FlushOfTheFile", "fdatasync", EIO},
                                         Refusal{"Naming", "renameat2", EIO},
                                         Refusal{"FlushOfTheFolder", "fsync", EIO, false}),
                         [](const auto& refusal) { return refusal.param.name; });

// One call writes out all of them.
TEST_F(RefusedCall, FlushOfManyFiles_KeepsTheirNamesAsTheyWere) {
  folder.File("host/a.txt", "a").File("host/drop.txt", "d");
  BuildAndAgree();
  for (int i = 10; i < 30; ++i) GuestWrites("F" + std::to_string(i), "f");
  GuestRemoves("DROP.TXT");
  bool wasCalled = false;
  answer = [&](std::string_view call, const std::string&) {
    wasCalled = wasCalled || call == "syncfs";
    return call == "syncfs" ? EIO : 0;
  };
  const GuardedReport report = Sync()->Pass();
  answer = nullptr;
  EXPECT_TRUE(wasCalled);
  EXPECT_EQ(report.outcome, kFailed);
  EXPECT_THAT(report.message, HasSubstr("cannot write out"));
  EXPECT_EQ(OnHost(), (FileTree{{"a.txt", "a"}, {"drop.txt", "d"}}));
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnHost().size(), 21u);
}

// --- flushes, wherever they are

class RefusedFlush : public RefusedCall, public testing::WithParamInterface<bool> {};

TEST_P(RefusedFlush, AtEveryPlace_LosesNothingAndIsEndedByTheNextPass) {
  options.inPlace = GetParam();
  // In the short form some of them.
  const int step = test::IsWholeSearch() ? 1 : 3;
  int place = 0;
  for (bool wasRefused = true; wasRefused && !HasFailure(); place += step) {
    SCOPED_TRACE("at flush " + std::to_string(place));
    fs::remove_all(folder.Path());
    folder.File("host/edit.txt", "c1").File("host/drop.txt", "d").File("host/mine.txt", "m1");
    BuildAndAgree();
    GuestWrites("EDIT.TXT", "c2");
    GuestRemoves("DROP.TXT");
    folder.File("host/mine.txt", "m2");
    Contents before{"c1", "c2", "d", "m1", "m2"};
    int flushes = 0;
    answer = [&](std::string_view call, const std::string&) {
      const bool isFlush = call == "fsync" || call == "fdatasync" || call == "syncfs";
      return isFlush && flushes++ == place ? EIO : 0;
    };
    const GuardedReport report = Sync()->Pass();
    answer = nullptr;
    wasRefused = flushes > place;
    EXPECT_EQ(report.outcome, wasRefused ? kFailed : kDone) << report.message;
    const GuardedReport next = Pass();
    EXPECT_TRUE(next.outcome == kDone || next.outcome == kNothingToDo) << next.message;
    EXPECT_EQ(Pass().outcome, kNothingToDo);
    EXPECT_EQ(OnHost(), (FileTree{{"edit.txt", "c2"}, {"mine.txt", "m2"}}));
    EXPECT_EQ(OnDisk(), (FileTree{{"EDIT.TXT", "c2"}, {"MINE.TXT", "m2"}}));
    EXPECT_THAT(NamesIn(folder.Path()), UnorderedElementsAre("host", "DISK.IMG", "DISK.IMG.sync"));
    Contents after;
    AddFolder(Host(), after);
    AddTrash(StateFolder(), after);
    ExpectAllIn(before, after);
  }
  EXPECT_GE(place, 10);
}

INSTANTIATE_TEST_SUITE_P(Ways, RefusedFlush, testing::Bool(),
                         [](const auto& way) { return way.param ? "InPlace" : "Renamed"; });

// --- the trash

// As when the process has too many files open for a moment.
TEST_F(RefusedCall, TrashThatCannotBeOpenedAtAnyTime_IsNotTakenForEmpty) {
  int refused = 0;
  for (bool wasRefused = true; wasRefused && !HasFailure();) {
    SCOPED_TRACE("after " + std::to_string(refused) + " openings");
    fs::remove_all(folder.Path());
    folder.File("host/a.txt", "a").File("host/drop.txt", "d").File("host/edit.txt", "e1");
    BuildAndAgree();
    GuestRemoves("DROP.TXT");
    GuestWrites("EDIT.TXT", "e2");
    folder.File("host/a.txt", "a2");
    int openings = 0;
    answer = [&](std::string_view call, const std::string& path) {
      const bool isTrash = call == "open" && path.find(".sync/trash") != std::string::npos;
      return isTrash && openings++ == refused ? EMFILE : 0;
    };
    Sync()->Pass();
    answer = nullptr;
    wasRefused = openings > refused++;
    const GuardedReport next = Pass();
    EXPECT_TRUE(next.outcome == kDone || next.outcome == kNothingToDo) << next.message;
    EXPECT_EQ(OnHost(), (FileTree{{"a.txt", "a2"}, {"edit.txt", "e2"}}));
    Contents after;
    AddTrash(StateFolder(), after);
    ExpectAllIn({"a", "d", "e1"}, after);
  }
  EXPECT_GE(refused, 5);
}

// --- locks

// As on network file systems.
TEST_F(RefusedCall, FolderThatCannotBeLocked_IsKeptInStepAllTheSame) {
  folder.File("host/a.txt", "a");
  BuildImage();
  for (const int error : {ENOLCK, EOPNOTSUPP, EINVAL, EBADF}) {
    answer = [&](std::string_view call, const std::string& path) {
      return call == "flock" && path == Host() ? error : 0;
    };
    EXPECT_EQ(Sync()->Pass().outcome, kNothingToDo) << error;
  }
}

// What the system tells of locks, with the folder's device and inode in place of "THIS".
class HolderOfAFolder : public RefusedCall {
 protected:
  HolderOfAFolder() {
    folder.Folder("host");
    EXPECT_TRUE(first.Take(Host(), ignored)) << ignored;
  }

  std::string HolderTold(std::string locks) {
    struct ::stat status;
    EXPECT_EQ(::stat(Host().c_str(), &status), 0);
    std::array<char, 64> place{};
    std::snprintf(place.data(), place.size(), "%02x:%02x:%ju", major(status.st_dev),
                  minor(status.st_dev), static_cast<std::uintmax_t>(status.st_ino));
    for (std::size_t at; (at = locks.find("THIS")) != std::string::npos;) {
      locks.replace(at, 4, place.data());
    }
    folder.File("locks", locks);
    locksOfTheSystem = folder / "locks";
    FolderLock second;
    std::string err;
    EXPECT_FALSE(second.Take(Host(), err));
    const std::size_t end = err.find(" keeps the folder " + Host().string() + " in step already");
    EXPECT_NE(end, std::string::npos) << err;
    return err.substr(0, end);
  }

  FolderLock first;
  std::string ignored;
};

TEST_F(HolderOfAFolder, ThatTheSystemTells_IsNamed) {
  EXPECT_EQ(HolderTold("1: POSIX  ADVISORY  WRITE 11 fe:00:5678 0 EOF\n"
                       "2: POSIX  ADVISORY  WRITE 12 THIS 0 EOF\n"
                       "3: FLOCK  ADVISORY  WRITE 13 fe:00:5678 0 EOF\n"
                       "3: -> FLOCK  ADVISORY  WRITE 14 THIS 0 EOF\n"
                       "4: FLOCK  ADVISORY  WRITE 15 THIS 0 EOF\n"),
            "process 15");
  EXPECT_EQ(HolderTold("4: FLOCK  ADVISORY  WRITE 16 THIS 0 EOF"), "process 16");
}

TEST_F(HolderOfAFolder, ThatTheSystemDoesNotTell_IsAnotherProcess) {
  for (const char* locks :
       {"", "\n", "1: FLOCK  ADVISORY  WRITE 13 fe:00:5678 0 EOF\n",
        // In another container.
        "1: FLOCK  ADVISORY  WRITE 0 THIS 0 EOF\n", "1: FLOCK  ADVISORY  WRITE -1 THIS 0 EOF\n",
        // That wait for it, and of other sorts.
        "1: -> FLOCK  ADVISORY  WRITE 14 THIS 0 EOF\n", "1: POSIX  ADVISORY  WRITE 12 THIS 0 EOF\n",
        "1: LEASE  ACTIVE    READ  12 THIS 0 EOF\n"}) {
    EXPECT_EQ(HolderTold(locks), "another process") << locks;
  }
}

TEST_F(HolderOfAFolder, WhereTheSystemDoesNotTellOfLocks_IsAnotherProcess) {
  locksOfTheSystem = folder / "nothing";
  FolderLock second;
  std::string err;
  EXPECT_FALSE(second.Take(Host(), err));
  EXPECT_EQ(err, "another process keeps the folder " + Host().string() +
                     " in step already, and remembers it elsewhere");
}

// What it puts into its folder is none of the first one's affair.
TEST_F(RefusedCall, MissingFolderThatSomebodyElseMakesAndLocks_IsLeftToHim) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  fs::remove_all(Host());
  FolderLock other;
  std::string err;
  answer = [&](std::string_view call, const std::string& path) {
    if (call != "mkdir" || path != Host()) return 0;
    folder.File("host/theirs", "t");
    EXPECT_TRUE(other.Take(Host(), err));
    return 0;
  };
  const GuardedReport report = Sync()->Pass({GuardedHazard::kFolderMissing});
  answer = nullptr;
  EXPECT_EQ(report.outcome, kNotNow);
  EXPECT_THAT(report.message, HasSubstr("keeps the folder " + Host().string()));
  EXPECT_EQ(OnHost(), (FileTree{{"theirs", "t"}}));
  EXPECT_EQ(OnDisk(), (FileTree{{"A.TXT", "a"}}));
}

// Both sides would seem to meet for the first time.
TEST_F(RefusedCall, StateThatGoesOnceItIsLocked_IsWaitedFor) {
  folder.File("host/a.txt", "a").File("host/b.txt", "b");
  BuildAndAgree();
  folder.Remove("host/a.txt");
  answer = [&](std::string_view call, const std::string& path) {
    if (call == "flock" && path == Host()) fs::rename(StateFolder(), folder / "away");
    return 0;
  };
  const GuardedReport report = Sync()->Pass();
  answer = nullptr;
  EXPECT_EQ(report.outcome, kNotNow);
  EXPECT_EQ(report.message, "the folder " + StateFolder().string() + " has gone just now");
  EXPECT_THAT(report.steps, IsEmpty());
  fs::rename(folder / "away", StateFolder());
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnDisk(), (FileTree{{"B.TXT", "b"}}));
}

// --- the copy that a pass in place keeps

TEST_F(RefusedCall, ImageOnAFileSystemThatSharesFiles_IsKeptWithoutBeingWritten) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  const std::string before = test::ReadWholeFile(Image());
  folder.File("host/a.txt", "b");
  options.inPlace = true;
  GuardedProgress kept;
  options.onProgress = [&](const GuardedProgress& told) {
    if (told.work == GuardedWork::kKeep) kept = told;
  };
  sharesFiles = true;
  bool wasWritten = false;
  answer = [&](std::string_view call, const std::string& path) {
    wasWritten = wasWritten || (call == "write" && path.ends_with(".part"));
    return 0;
  };
  EXPECT_EQ(Sync()->Pass().outcome, kDone);
  EXPECT_EQ(shared, 1);
  EXPECT_FALSE(wasWritten);
  EXPECT_EQ(kept.bytes, kImageBytes);
  EXPECT_EQ(kept.total, kImageBytes);
  EXPECT_EQ(InTrash(), (FileTree{{"image replaced DISK.IMG", before}}));
  EXPECT_EQ(OnDisk(), (FileTree{{"A.TXT", "b"}}));
}

// --- restoring

class RefusedRestore : public RefusedCall {
 protected:
  void SetUp() override {
    folder.File("host/a.txt", "old");
    BuildAndAgree();
    GuestWrites("A.TXT", "new");
    ASSERT_EQ(Pass().outcome, kDone);
    std::vector<TrashedItem> items;
    ASSERT_TRUE(ListTrash(StateFolder(), items, err)) << err;
    ASSERT_EQ(items.size(), 1u);
    id = items[0].id;
  }

  bool Restore() {
    const bool done = RestoreTrashed(StateFolder(), id, folder / "made/deep/old.txt", err);
    answer = nullptr;
    return done;
  }

  // Just before it is made.
  static void Precede(const std::string& place, const std::function<void()>& other,
                      const Answer& otherwise = {}) {
    answer = [=](std::string_view call, const std::string& path) {
      if (call == "mkdir" && path == place) other();
      return otherwise ? otherwise(call, path) : 0;
    };
  }

  std::string id;
  std::string err;
};

TEST_F(RefusedRestore, FolderThatSomebodyElseMakesMeanwhile_IsUsed) {
  Precede(folder / "made", [&] { folder.File("made/theirs", "t"); });
  EXPECT_TRUE(Restore()) << err;
  EXPECT_EQ(folder.Files("made"), (FileTree{{"deep/old.txt", "old"}, {"theirs", "t"}}));
}

TEST_F(RefusedRestore, FolderThatSomebodyElseMakesMeanwhile_IsNotTakenAwayAgain) {
  Precede(
      folder / "made", [&] { folder.Folder("made"); },
      [](std::string_view call, const std::string&) { return call == "openat" ? ENOSPC : 0; });
  EXPECT_FALSE(Restore());
  EXPECT_THAT(err, HasSubstr("No space left on device"));
  EXPECT_TRUE(folder.Exists("made"));
  EXPECT_FALSE(folder.Exists("made/deep"));
}

TEST_F(RefusedRestore, FileThatSomebodyElsePutsInTheWay_Stays) {
  Precede(folder / "made/deep", [&] { folder.File("made/deep", "theirs"); });
  EXPECT_FALSE(Restore());
  EXPECT_THAT(err, HasSubstr("Not a directory"));
  EXPECT_EQ(folder.Read("made/deep"), "theirs");
  EXPECT_THAT(NamesIn(folder / "made"), ElementsAre("deep"));
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard

// What a pass opens and reads of both sides: every call of this process that reads is counted.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>

#include "guard/guarded_pair.h"
#include "guard/kept_contents.h"
#include "support/clock_ahead.h"
#include "support/next_function.h"
#include "support/opening.h"
#include "support/path_of.h"
#include "sync/sync_pass.h"

namespace {

using quorbix::virtdisk::test::NextOf;
using quorbix::virtdisk::test::PathOf;

struct Counted {
  std::set<std::string> opened;               // paths
  std::map<std::string, std::uint64_t> read;  // bytes by path
};
Counted* counted = nullptr;  // null: nothing is counted

int Opened(int file) {
  if (counted != nullptr && file >= 0) counted->opened.insert(PathOf(file));
  return file;
}

ssize_t Read(int file, ssize_t got) {
  if (counted != nullptr && got > 0) counted->read[PathOf(file)] += static_cast<std::uint64_t>(got);
  return got;
}

}  // namespace

int quorbix::virtdisk::test::InPlaceOf(const Opening& opening) { return Opened(opening.Next()); }

// These stand in front of the C library's functions for the whole program, the C++ library
// included.

extern "C" ssize_t read(int file, void* buffer, size_t size) {
  return Read(file, NextOf<ssize_t(int, void*, size_t)>("read")(file, buffer, size));
}

extern "C" ssize_t pread(int file, void* buffer, size_t size, off_t offset) {
  return Read(file,
              NextOf<ssize_t(int, void*, size_t, off_t)>("pread")(file, buffer, size, offset));
}

namespace quorbix::virtdisk::internal::guard {
namespace {

namespace fs = std::filesystem;
using testing::IsEmpty;
using enum GuardedOutcome;

constexpr std::uint64_t kBytesOfA = 300'000;
constexpr std::uint64_t kBytesOfB = 500'000;
constexpr std::uint64_t kBytesOfC = 700'000;
// Boot sectors, FATs, the top directory, and the ends of clusters: less than any of the files.
constexpr std::uint64_t kBesideContents = 200'000;

class ReadCost : public GuardedPair {
 protected:
  ReadCost() {
    folder.File("host/a.bin", std::string(kBytesOfA, 'a'));
    folder.File("host/b.bin", std::string(kBytesOfB, 'b'));
    folder.File("host/sub/c.bin", std::string(kBytesOfC, 'c'));
    BuildImage();
    test::secondsAhead = 10;  // everything has been quiet for long
    EXPECT_EQ(Sync()->Pass().outcome, kNothingToDo);
  }
  ~ReadCost() override { test::secondsAhead = 0; }

  static Counted Count(const std::function<void()>& work) {
    Counted result;
    counted = &result;
    work();
    counted = nullptr;
    return result;
  }

  Counted CountPass(GuardedOutcome outcome) {
    GuardedReport report;
    const auto sync = Sync();
    Counted result = Count([&] { report = sync->Pass(); });
    EXPECT_EQ(report.outcome, outcome) << report.message;
    return result;
  }

  std::uint64_t OfHost(const Counted& result, const std::string& path) const {
    const auto found = result.read.find((Host() / path).string());
    return found == result.read.end() ? 0 : found->second;
  }

  std::uint64_t OfImage(const Counted& result) const {
    const auto found = result.read.find(Image().string());
    return found == result.read.end() ? 0 : found->second;
  }

  // Of files with temporary names, in which new images are.
  static std::uint64_t OfNewImage(const Counted& result) {
    std::uint64_t bytes = 0;
    for (const auto& [path, read] : result.read) {
      if (path.find("/.quorbix-") != path.npos) bytes += read;
    }
    return bytes;
  }

  static std::uint64_t OfAll(const Counted& result) {
    std::uint64_t bytes = 0;
    for (const auto& [path, read] : result.read) bytes += read;
    return bytes;
  }

  std::set<std::string> OpenedFilesOfHost(const Counted& result) const {
    std::set<std::string> files;
    for (const std::string& path : result.opened) {
      const bool isFile = fs::is_regular_file(path);
      if (isFile && path.starts_with(Host().string() + '/')) files.insert(path);
    }
    return files;
  }

  void ExpectIdle(const Counted& result) const {
    EXPECT_THAT(OpenedFilesOfHost(result), IsEmpty());
    EXPECT_FALSE(result.opened.contains(Image()));
    EXPECT_EQ(OfImage(result), 0u);
    EXPECT_TRUE(result.opened.contains(Host()));  // which is listed
  }
};

constexpr std::uint64_t kContents = kBytesOfA + kBytesOfB + kBytesOfC;

TEST_F(ReadCost, IdlePass_OpensNoFileAndNoImage) {
  ExpectIdle(CountPass(kNothingToDo));
  const auto sync = Sync();
  ASSERT_EQ(sync->Pass().outcome, kNothingToDo);
  ExpectIdle(Count([&] { sync->Pass(); }));
}

// By what is remembered, without the list of a quiet pair.
TEST_F(ReadCost, IdlePassThatLooksAtEverything_OpensNoFileAndNoImage) {
  folder.Remove("DISK.IMG.sync/quiet");
  ExpectIdle(CountPass(kNothingToDo));
}

TEST_F(ReadCost, IdlePreview_OpensNoFileAndNoImage) {
  const auto sync = Sync();
  ExpectIdle(Count([&] { EXPECT_EQ(sync->Preview().outcome, kNothingToDo); }));
}

TEST_F(ReadCost, PreviewOfAChangeOnTheHost_ReadsTheChangedFileAndTheImageOnce) {
  folder.File("host/b.bin", std::string(kBytesOfB, 'x'));
  const auto sync = Sync();
  const Counted result = Count([&] { EXPECT_EQ(sync->Preview().outcome, kDone); });
  EXPECT_EQ(OfHost(result, "b.bin"), kBytesOfB);
  EXPECT_EQ(OfHost(result, "a.bin"), 0u);
  EXPECT_LE(OfImage(result), kContents + kBesideContents);
}

// What is changed and new for what it says, which the new image is made of; the others for the new
// image.
TEST_F(ReadCost, ChangesOnTheHost_ReadEveryFileOnce) {
  folder.File("host/b.bin", std::string(kBytesOfB, 'x'))
      .File("host/new.bin", std::string(1000, 'n'));
  const Counted result = CountPass(kDone);
  EXPECT_EQ(OfHost(result, "a.bin"), kBytesOfA);
  EXPECT_EQ(OfHost(result, "b.bin"), kBytesOfB);
  EXPECT_EQ(OfHost(result, "sub/c.bin"), kBytesOfC);
  EXPECT_EQ(OfHost(result, "new.bin"), 1000u);
  EXPECT_EQ(OnDisk().at("B.BIN"), std::string(kBytesOfB, 'x'));
  EXPECT_GE(OfImage(result), kContents);
  EXPECT_LE(OfImage(result), kContents + kBesideContents);
  EXPECT_GE(OfNewImage(result), kContents);
  EXPECT_LE(OfNewImage(result), kContents + kBesideContents);
}

TEST_F(ReadCost, ChangeOnTheHostWithVerify_ReadsEveryFileOnce) {
  folder.File("host/b.bin", std::string(kBytesOfB, 'x'));
  options.verify = true;
  const Counted result = CountPass(kDone);
  EXPECT_EQ(OfHost(result, "a.bin"), kBytesOfA);
  EXPECT_EQ(OfHost(result, "b.bin"), kBytesOfB);
  EXPECT_EQ(OfHost(result, "sub/c.bin"), kBytesOfC);
}

// So much is kept of what is read, and no more.
class ReadCostOfALargeFile : public GuardedPair {
 protected:
  ~ReadCostOfALargeFile() override { test::secondsAhead = 0; }

  std::uint64_t ReadOf(std::uint64_t bytes) {
    folder.File("host/a.bin", "a");
    BuildImage(std::uint64_t{80} << 20);
    test::secondsAhead = 10;  // what is not the large file is known
    EXPECT_EQ(Sync()->Pass().outcome, kNothingToDo);
    folder.File("host/large.bin", "l");
    fs::resize_file(Host() / "large.bin", bytes);
    Counted result;
    counted = &result;
    EXPECT_EQ(Sync()->Pass().outcome, kDone);
    counted = nullptr;
    return result.read[(Host() / "large.bin").string()];
  }
};

TEST_F(ReadCostOfALargeFile, ThatIsKept_IsOnce) {
  EXPECT_EQ(ReadOf(kMostKeptBytes), kMostKeptBytes);
}

TEST_F(ReadCostOfALargeFile, OneByteTooLargeToBeKept_IsTwice) {
  EXPECT_EQ(ReadOf(kMostKeptBytes + 1), 2 * (kMostKeptBytes + 1));
}

TEST_F(ReadCost, ChangesInTheImage_ReadEveryFileOfTheImageOnce) {
  GuestWrites("B.BIN", std::string(kBytesOfB, 'x'));
  GuestWrites("NEW.BIN", std::string(1000, 'n'));
  const Counted result = CountPass(kDone);
  EXPECT_GE(OfImage(result), kContents + 1000);
  EXPECT_LE(OfImage(result), kContents + 1000 + kBesideContents);
  EXPECT_EQ(OfNewImage(result), 0u);
  for (const char* path : {"a.bin", "b.bin", "sub/c.bin"}) EXPECT_EQ(OfHost(result, path), 0u);
}

TEST_F(ReadCost, FirstMeeting_ReadsBothSidesOnce) {
  fs::remove_all(StateFolder());
  const Counted result = CountPass(kNothingToDo);
  EXPECT_EQ(OfHost(result, "a.bin"), kBytesOfA);
  EXPECT_EQ(OfHost(result, "b.bin"), kBytesOfB);
  EXPECT_EQ(OfHost(result, "sub/c.bin"), kBytesOfC);
  EXPECT_LE(OfImage(result), kContents + kBesideContents);
}

// The plain pass reads the folder at its beginning, too.
TEST_F(ReadCost, ChangeOnTheHost_IsLessToReadThanForAPlainPass) {
  fs::copy(Host(), folder / "plain", fs::copy_options::recursive);
  fs::copy_file(Image(), folder / "PLAIN.IMG");
  SyncState state;
  RunSyncPass(folder / "PLAIN.IMG", folder / "plain", state);
  for (const char* side : {"host/b.bin", "plain/b.bin"}) {
    folder.File(side, std::string(kBytesOfB, 'x'));
  }
  const std::uint64_t plain =
      OfAll(Count([&] { RunSyncPass(folder / "PLAIN.IMG", folder / "plain", state); }));
  EXPECT_GE(plain, 4 * kContents);  // otherwise it reads by other ways than those that are counted
  EXPECT_LT(OfAll(CountPass(kDone)), plain);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard

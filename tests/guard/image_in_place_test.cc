// Images that are written over, on file systems of several kinds.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "guard/refusals.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

using namespace test;
using testing::HasSubstr;
using testing::IsEmpty;
using enum GuardedOutcome;

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

// A machine that has it attached sees little change, and it is over sooner.
TEST_F(RefusedCall, ImageInPlace_IsWrittenOnlyWhereItDiffers) {
  folder.File("host/a.txt", "a").File("host/b.bin", std::string(std::size_t{9} << 20, 'b'));
  BuildImage(std::uint64_t{16} << 20);
  options.inPlace = true;
  ASSERT_EQ(Pass().outcome, kNothingToDo);
  folder.File("host/a.txt", "b");
  ASSERT_EQ(Pass().outcome, kDone);  // passes lay all clusters out alike, a build may not
  folder.File("host/a.txt", "c");
  int writes = 0;
  answer = [&](std::string_view call, const std::string& path) {
    if (call == "write" && path == Image()) ++writes;
    return 0;
  };
  EXPECT_EQ(Sync()->Pass().outcome, kDone);
  answer = nullptr;
  EXPECT_LE(writes, 5);  // the boot sectors before and after, the file, its entry
  EXPECT_EQ(OnDisk().at("A.TXT"), "c");
}

// An image that was made by cutting a file to length, and has no room yet but for what was written.
class SparseImage : public RefusedCall {
 protected:
  void SetUp() override {
    folder.File("host/a.txt", "a");
    options.inPlace = true;
    BuildAndAgree();
    MakeHoles();
    EXPECT_EQ(Pass().outcome, kNothingToDo);
    folder.File("host/a.txt", "b");
  }

  std::uint64_t RoomOfImage() const {
    struct ::stat status;
    EXPECT_EQ(::stat(Image().c_str(), &status), 0);
    return static_cast<std::uint64_t>(status.st_blocks) * 512;
  }

  void MakeHoles() const {
    const std::vector<std::uint8_t> bytes = test::ReadBytes(Image());
    const int file = ::open(Image().c_str(), O_WRONLY | O_TRUNC);
    EXPECT_EQ(::ftruncate(file, static_cast<::off_t>(bytes.size())), 0);
    constexpr std::size_t kBlock = 4096;
    for (std::size_t at = 0; at < bytes.size(); at += kBlock) {
      const std::span block = std::span(bytes).subspan(at, kBlock);
      const bool isBlank =
          std::all_of(block.begin(), block.end(), [](std::uint8_t byte) { return byte == 0; });
      if (isBlank) continue;
      EXPECT_EQ(::pwrite(file, block.data(), kBlock, static_cast<::off_t>(at)),
                static_cast<::ssize_t>(kBlock));
    }
    ::close(file);
  }
};

TEST_F(SparseImage, InPlace_HasRoomBeforeItsFirstByteIsWritten) {
  if (RoomOfImage() >= kImageBytes) GTEST_SKIP() << "this file system makes no holes";
  std::uint64_t roomAtFirstWrite = 0;
  answer = [&](std::string_view call, const std::string& path) {
    if (call == "write" && path == Image() && roomAtFirstWrite == 0) {
      roomAtFirstWrite = RoomOfImage();
    }
    return 0;
  };
  EXPECT_EQ(Sync()->Pass().outcome, kDone);
  EXPECT_GE(roomAtFirstWrite, kImageBytes);
}

TEST_F(SparseImage, WithoutRoomForItsHoles_StaysAsItIs) {
  if (RoomOfImage() >= kImageBytes) GTEST_SKIP() << "this file system makes no holes";
  const std::vector<std::uint8_t> before = test::ReadBytes(Image());
  answer = [](std::string_view call, const std::string&) {
    return call == "fallocate" ? ENOSPC : 0;
  };
  const GuardedReport report = Sync()->Pass();
  answer = nullptr;
  EXPECT_EQ(report.outcome, kFailed);
  EXPECT_THAT(report.message, HasSubstr("cannot make room in the image"));
  EXPECT_EQ(test::ReadBytes(Image()), before);
  EXPECT_THAT(InTrash(), IsEmpty());
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnDisk(), (FileTree{{"A.TXT", "b"}}));
}

TEST_F(SparseImage, WhereRoomCannotBeMadeBeforehand_IsWrittenAllTheSame) {
  answer = [](std::string_view call, const std::string&) {
    return call == "fallocate" ? EOPNOTSUPP : 0;
  };
  EXPECT_EQ(Sync()->Pass().outcome, kDone);
  EXPECT_EQ(OnDisk(), (FileTree{{"A.TXT", "b"}}));
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard

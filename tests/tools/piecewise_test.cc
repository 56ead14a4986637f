#include "host/piecewise.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "program_run.h"
#include "support/memory_folder.h"
#include "support/need_tool.h"
#include "support/sharing_folder.h"
#include "support/sizes.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::tool {
namespace {

using test::kMiB;
using test::TempFolder;
using ::testing::ElementsAre;

TEST(WriteInPieces, Bytes_ArriveAndAreToldPieceByPiece) {
  const TempFolder folder;
  std::vector<std::uint8_t> bytes(17 * kMiB, 'x');
  bytes.back() = 'y';
  std::vector<std::uint64_t> told;
  const int file = ::open((folder / "A").c_str(), O_WRONLY | O_CREAT, 0600);
  EXPECT_TRUE(WriteInPieces(file, bytes, [&](std::uint64_t more) { told.push_back(more); }));
  ::close(file);
  EXPECT_EQ(test::ReadBytes(folder / "A"), bytes);
  EXPECT_THAT(told, ElementsAre(8 * kMiB, 8 * kMiB, kMiB));
}

TEST(WriteInPieces, FullDevice_FailsWithTheReason) {
  const std::vector<std::uint8_t> bytes(3);
  const int file = ::open("/dev/full", O_WRONLY);
  EXPECT_FALSE(WriteInPieces(file, bytes));
  EXPECT_EQ(errno, ENOSPC);
  ::close(file);
}

class CopyInPiecesTest : public ::testing::Test {
 protected:
  // Copies the file `name` to the path `to`.
  bool Copy(const std::string& name, const std::filesystem::path& to, std::uint64_t bytes) {
    const int in = ::open((folder / name).c_str(), O_RDONLY);
    const int out = ::open(to.c_str(), O_RDWR | O_CREAT, 0600);
    const bool copied = CopyInPieces(in, out, bytes, [&](std::uint64_t more) { moved += more; });
    const int error = errno;
    ::close(in);
    ::close(out);
    errno = error;
    return copied;
  }

  TempFolder folder;
  std::uint64_t moved = 0;
};

TEST_F(CopyInPiecesTest, File_IsCopiedAndTold) {
  std::string content(9 * kMiB, 'x');
  content.back() = 'y';
  folder.File("A", content);
  EXPECT_TRUE(Copy("A", folder / "B", content.size()));
  EXPECT_EQ(folder.Read("B"), content);
  EXPECT_EQ(moved, content.size());
}

TEST_F(CopyInPiecesTest, Holes_StayHoles) {
  folder.File("A", "begin");
  std::filesystem::resize_file(folder / "A", 100 * kMiB);
  std::ofstream(folder / "A", std::ios::app) << "end";
  EXPECT_TRUE(Copy("A", folder / "B", 100 * kMiB + 3));
  struct ::stat status {};
  ASSERT_EQ(::stat((folder / "B").c_str(), &status), 0);
  EXPECT_EQ(static_cast<std::uint64_t>(status.st_size), 100 * kMiB + 3);
  EXPECT_LT(status.st_blocks, 1000);
  EXPECT_EQ(test::ReadBytes(folder / "A"), test::ReadBytes(folder / "B"));
  EXPECT_EQ(moved, 100 * kMiB + 3);
}

TEST_F(CopyInPiecesTest, AnotherFileSystem_IsReachedByHand) {
  const test::MemoryFolder memory;
  if (!memory.Usable()) GTEST_SKIP() << "no memory file system";
  folder.File("A", std::string(9 * kMiB, 'x'));
  EXPECT_TRUE(Copy("A", memory.Path() / "B", 9 * kMiB));
  EXPECT_EQ(test::ReadWholeFile(memory.Path() / "B"), folder.Read("A"));
}

// How many of the file's bytes lie where another one's do, too.
std::uint64_t SharedBytes(const std::filesystem::path& path) {
  constexpr unsigned kMost = 64;
  std::vector<std::uint64_t> memory((sizeof(::fiemap) + kMost * sizeof(::fiemap_extent)) / 8 + 1);
  auto* map = reinterpret_cast<::fiemap*>(memory.data());
  map->fm_length = FIEMAP_MAX_OFFSET;
  map->fm_flags = FIEMAP_FLAG_SYNC;
  map->fm_extent_count = kMost;
  const int file = ::open(path.c_str(), O_RDONLY);
  EXPECT_EQ(::ioctl(file, FS_IOC_FIEMAP, map), 0);
  ::close(file);
  std::uint64_t bytes = 0;
  for (unsigned i = 0; i < map->fm_mapped_extents; ++i) {
    const ::fiemap_extent& extent = map->fm_extents[i];
    if ((extent.fe_flags & FIEMAP_EXTENT_SHARED) != 0) bytes += extent.fe_length;
  }
  return bytes;
}

class CopyWithSharing : public CopyInPiecesTest {
 protected:
  void SetUp() override {
    if (::geteuid() == 0) NEED_TOOL("mkfs.xfs");
    if (!sharing.Usable()) GTEST_SKIP() << sharing.WhyNot();
  }

  const test::SharingFolder sharing;
};

TEST_F(CopyWithSharing, Data_AreSharedAtOnceAndNotMoved) {
  const std::vector<std::uint8_t> content(20 * kMiB, 'x');
  test::WriteBytes(sharing.Path() / "A", content);
  const int in = ::open((sharing.Path() / "A").c_str(), O_RDONLY);
  const int out = ::open((sharing.Path() / "B").c_str(), O_RDWR | O_CREAT, 0600);
  std::vector<std::uint64_t> told;
  EXPECT_TRUE(CopyInPieces(in, out, content.size(), [&](std::uint64_t n) { told.push_back(n); }));
  ::close(in);
  ::close(out);
  EXPECT_THAT(told, ElementsAre(20 * kMiB));
  EXPECT_EQ(SharedBytes(sharing.Path() / "B"), 20 * kMiB);
  EXPECT_EQ(test::ReadBytes(sharing.Path() / "B"), content);
}

// All but what is written, a part of the file system's blocks.
TEST_F(CopyWithSharing, Put_LeavesTheRestOfTheImageShared) {
  folder.File("DISK/LARGE.BIN", std::string(20 * kMiB, 'x')).File("DISK/A.TXT", "a");
  folder.File("new", "b");
  const std::string image = (sharing.Path() / "disk.img").string();
  ASSERT_EQ(test::RunVirtdisk({"build", (folder / "DISK").string(), image, "-q"}).status, 0);
  std::filesystem::create_hard_link(image, sharing.Path() / "before.img");
  EXPECT_EQ(test::RunVirtdisk({"put", image, "A.TXT", (folder / "new").string()}).status, 0);
  EXPECT_EQ(test::RunVirtdisk({"cat", image, "A.TXT"}).out, "b");
  EXPECT_GT(SharedBytes(image), 20 * kMiB);
}

TEST_F(CopyInPiecesTest, FileThatIsShorter_IsToldByErrno) {
  folder.File("A", "abc");
  EXPECT_FALSE(Copy("A", folder / "B", 4));
  EXPECT_EQ(errno, ENODATA);
}

TEST_F(CopyInPiecesTest, EmptyFile_IsCopied) {
  folder.File("A");
  EXPECT_TRUE(Copy("A", folder / "B", 0));
  EXPECT_TRUE(folder.Exists("B"));
}

}  // namespace
}  // namespace quorbix::virtdisk::tool

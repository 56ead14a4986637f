// Image files that fail, shrink or answer in pieces under the reader, at each read in turn.

#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <span>

#include "browser/browser_fixture.h"
#include "browser/file_source.h"
#include "browser/volume_index.h"
#include "support/next_function.h"
#include "support/temp_folder.h"

namespace {

// What happens to this process at each pread: it is counted; from some number on it fails; every
// other one is interrupted; it gives few bytes; something is done before it.
int preads = 0;
int preadsBeforeError = -1;
bool isInterrupted = false;
std::size_t mostBytes = ~std::size_t{0};
std::function<void()> beforePread;

}  // namespace

// Stands in front of the C library's function for the whole program.
extern "C" ssize_t pread(int file, void* buffer, size_t size, off_t offset) {
  static const auto next =
      quorbix::virtdisk::test::NextOf<ssize_t(int, void*, size_t, off_t)>("pread");
  ++preads;
  if (beforePread) beforePread();
  if (isInterrupted && preads % 2 == 1) {
    errno = EINTR;
    return -1;
  }
  if (preadsBeforeError >= 0 && preads > preadsBeforeError) {
    errno = EIO;
    return -1;
  }
  return next(file, buffer, std::min(size, mostBytes), offset);
}

namespace quorbix::virtdisk::internal {
namespace {

using test::Bytes;
using test::ImageCrafter;

class FileFault : public testing::Test {
 protected:
  FileFault() { folder.File("disk.img", Image().Bytes()); }
  ~FileFault() override {
    preads = 0;
    preadsBeforeError = -1;
    isInterrupted = false;
    mostBytes = ~std::size_t{0};
    beforePread = nullptr;
  }

  // Directories in clusters that lie far apart, one of them hidden, and 2,000 files in one.
  static ImageCrafter Image() {
    auto image = ImageCrafter({.sectorsPerFat = 32, .clusters = 8000});
    image.Directory("A", 10).Directory("B", 7900).Chain(test::Clusters(10, 134)).InCluster(10);
    for (int i = 0; i < 2000; ++i) image.File("F" + std::to_string(i));
    image.InCluster(7900).File("G", {.firstCluster = 3000, .size = 700}).Chain({3000, 5000});
    image.InRoot().RawSlot("        GIT", {.attributes = 0x10, .firstCluster = 6000});
    return image.InCluster(6000).File("CONFIG");
  }

  std::unique_ptr<FileSource> OpenDisk() const {
    std::string err;
    auto source = FileSource::Open(folder / "disk.img", err);
    EXPECT_NE(source, nullptr) << err;
    preads = 0;
    return source;
  }

  // Opens the disk, indexes it and reads a file; the first message met. Whatever it is, the index
  // can be asked.
  std::string UseDisk() const {
    const auto source = OpenDisk();
    VolumeIndex index(*source);
    std::string err, ignored;
    std::vector<Fat16FsEntry> entries;
    const bool parsed = index.Parse(err, VolumeIndex::Hidden::kCollect);
    EXPECT_EQ(parsed, err.empty());
    EXPECT_TRUE(index.ListDirectory("/", entries, ignored));
    EXPECT_TRUE(index.Search("F", entries, ignored));
    if (!parsed) return err;
    EXPECT_EQ(index.Records().size(), 2003u);
    EXPECT_EQ(index.HiddenEntries().size(), 2u);
    EXPECT_TRUE(index.HasAllHiddenEntries());
    return ReadG(index);
  }

  static std::string ReadG(const VolumeIndex& index) {
    std::string err;
    const EntryRecord* file = index.FindFile("/B/G", err);
    if (file == nullptr) return err;
    ContentReader reader = index.Open(file->firstCluster, file->size);
    std::span<const std::uint8_t> piece;
    std::size_t given = 0;
    while (reader.Next(piece, err) && !piece.empty()) given += piece.size();
    EXPECT_EQ(err.empty(), given == 700) << given;
    return err;
  }

  test::TempFolder folder;
};

TEST_F(FileFault, ReadsOfASoundDisk_AreFewerThanItsSectorsLetAloneItsSlots) {
  EXPECT_EQ(UseDisk(), "");

  // Boot sectors, FAT, root, 16 blocks of A's clusters, B and the hidden directory, which share a
  // place in the cache with others, the root again after each, two clusters of content.
  EXPECT_LE(preads, 1 + 1 + 1 + 17 + 1 + 1 + 3 + 2);
}

TEST_F(FileFault, ReadThatFailsAnywhere_IsToldWithTheSystemsText) {
  int failed = 0;
  for (preadsBeforeError = 0;; ++preadsBeforeError) {
    const std::string err = UseDisk();
    if (err.empty()) break;
    ++failed;
    EXPECT_EQ(err, "image could not be read: Input/output error");
  }
  EXPECT_GT(failed, 20);
}

TEST_F(FileFault, FileThatShrinksToNothingAtAnyRead_IsTold) {
  const std::filesystem::path disk = folder / "disk.img";
  int failed = 0;
  for (int soundReads = 0;; ++soundReads) {
    folder.File("disk.img", Image().Bytes());
    beforePread = [&] {
      if (preads == soundReads + 1) std::filesystem::resize_file(disk, 0);
    };
    const std::string err = UseDisk();
    if (err.empty()) break;
    ++failed;
    EXPECT_EQ(err, "image could not be read: it is shorter than it was");
  }
  EXPECT_GT(failed, 20);
}

TEST_F(FileFault, InterruptedReads_AreTriedAgain) {
  isInterrupted = true;

  EXPECT_EQ(UseDisk(), "");
}

TEST_F(FileFault, ReadsThatGiveFewBytes_AreGoneOnWith) {
  mostBytes = 100;

  EXPECT_EQ(UseDisk(), "");
}

TEST_F(FileFault, FileWhoseContentCannotBeRead_IsReadOnceItCan) {
  const auto source = OpenDisk();
  VolumeIndex index(*source);
  std::string err;
  ASSERT_TRUE(index.Parse(err)) << err;
  preadsBeforeError = preads;

  EXPECT_EQ(ReadG(index), "image could not be read: Input/output error");
  preadsBeforeError = -1;
  EXPECT_EQ(ReadG(index), "");
}

TEST_F(FileFault, FailedParse_CanBeRepeated) {
  const auto source = OpenDisk();
  VolumeIndex index(*source);
  std::string err;
  preadsBeforeError = 5;
  ASSERT_FALSE(index.Parse(err));
  preadsBeforeError = -1;

  EXPECT_TRUE(index.Parse(err)) << err;

  EXPECT_EQ(index.Records().size(), 2003u);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal

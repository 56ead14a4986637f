// Images in files: what is opened, what is refused, how much is read.

#include "browser/file_source.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <span>

#include "browser/browser_fixture.h"
#include "browser/volume_index.h"
#include "support/lease_holder.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::internal {
namespace {

using test::Bytes;
using test::ImageCrafter;
using test::TempFolder;

std::unique_ptr<FileSource> OpenImage(const std::filesystem::path& path) {
  std::string err;
  auto source = FileSource::Open(path, err);
  EXPECT_NE(source, nullptr) << err;
  return source;
}

std::string OpenMessage(const std::filesystem::path& path) {
  std::string err;
  EXPECT_EQ(FileSource::Open(path, err), nullptr);
  return err;
}

Bytes Numbered(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(i / 251 + i);
  return bytes;
}

// `count` bytes from `offset` on; the message when they cannot be read.
std::string ReadAt(FileSource& source, std::uint64_t offset, std::size_t count) {
  Bytes buffer;
  std::string err;
  const std::uint8_t* bytes = source.Read(offset, count, buffer, err);
  return bytes == nullptr ? err : std::string(bytes, bytes + count);
}

TEST(FileSource, MissingFile_IsToldWithTheSystemsText) {
  const TempFolder folder;

  EXPECT_EQ(OpenMessage(folder / "none"), "image could not be opened: No such file or directory");
}

TEST(FileSource, WhatIsNoFileOrBlockDevice_IsRefused) {
  TempFolder folder;
  folder.Folder("folder").Pipe("pipe");
  const std::string refused =
      "image could not be opened: neither a regular file nor a block device";

  EXPECT_EQ(OpenMessage(folder / "folder"), refused);
  EXPECT_EQ(OpenMessage(folder / "pipe"), refused);
  EXPECT_EQ(OpenMessage("/dev/zero"), refused);
}

TEST(FileSource, LinkToAFile_IsFollowed) {
  TempFolder folder;
  folder.File("disk.img", "abc").Link("link", "disk.img");

  EXPECT_EQ(OpenImage(folder / "link")->Size(), 3u);
}

TEST(FileSource, LeasedFile_IsWaitedFor) {
  test::TempFolder folder;
  folder.File("F", "leased");
  test::LeaseHolder holder(folder / "F");
  if (!holder.Holds()) GTEST_SKIP() << "this file system has no leases";
  std::string err;
  EXPECT_NE(FileSource::Open(folder / "F", err), nullptr) << err;
  EXPECT_TRUE(holder.WasAsked());
}

TEST(FileSource, Descriptor_IsNotInheritedAndIsClosed) {
  TempFolder folder;
  folder.File("disk.img", "abc");
  const int next = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  ::close(next);
  auto source = OpenImage(folder / "disk.img");

  EXPECT_EQ(::fcntl(next, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(::fcntl(next, F_GETFL) & O_ACCMODE, O_RDONLY);
  source.reset();
  EXPECT_EQ(::fcntl(next, F_GETFD), -1);
}

TEST(FileSource, AnyPart_IsReadAsItIs) {
  TempFolder folder;
  const Bytes bytes = Numbered(300000);
  folder.File("disk.img", bytes);
  const std::string text = test::ToText(bytes);
  const auto source = OpenImage(folder / "disk.img");
  ASSERT_EQ(source->Size(), bytes.size());

  for (const std::size_t offset : {0u, 1u, 4095u, 4096u, 262144u, 299999u, 295000u}) {
    for (const std::size_t count : {1u, 512u, 4096u, 4097u, 20000u}) {
      const std::size_t fitting = std::min(count, bytes.size() - offset);
      EXPECT_EQ(ReadAt(*source, offset, fitting), text.substr(offset, fitting))
          << offset << ", " << count;
    }
  }
}

TEST(FileSource, SmallReadsOfTheSameBlock_AskTheSystemOnce) {
  TempFolder folder;
  folder.File("disk.img", Numbered(100000));
  const auto source = OpenImage(folder / "disk.img");

  for (std::size_t offset = 8192; offset < 8192 + 4096; offset += 32) ReadAt(*source, offset, 32);

  EXPECT_EQ(source->BytesRead(), 4096u);
}

TEST(FileSource, BlocksThatShareAPlaceInTheCache_AreToldApart) {
  TempFolder folder;
  const Bytes bytes = Numbered(600000);
  folder.File("disk.img", bytes);
  const auto source = OpenImage(folder / "disk.img");

  for (const std::size_t offset : {0u, 262144u, 524288u, 0u}) {
    EXPECT_EQ(ReadAt(*source, offset, 16), test::ToText(bytes).substr(offset, 16));
  }
}

TEST(FileSource, FileBeyond4GiB_IsReadThere) {
  TempFolder folder;
  folder.File("disk.img");
  constexpr std::uint64_t kOffset = (std::uint64_t{1} << 32) + 12345;
  std::filesystem::resize_file(folder / "disk.img", kOffset);  // sparse
  std::ofstream(folder / "disk.img", std::ios::app | std::ios::binary) << "the end";
  const auto source = OpenImage(folder / "disk.img");

  EXPECT_EQ(source->Size(), kOffset + 7);
  EXPECT_EQ(ReadAt(*source, kOffset, 7), "the end");
  EXPECT_EQ(ReadAt(*source, kOffset - 5000, 5007), std::string(5000, '\0') + "the end");
}

TEST(FileSource, FileThatShrank_IsToldAtEveryReadBeyondItsEnd) {
  TempFolder folder;
  folder.File("disk.img", Numbered(20000));
  const auto source = OpenImage(folder / "disk.img");
  std::filesystem::resize_file(folder / "disk.img", 6000);
  const std::string shorter = "image could not be read: it is shorter than it was";

  EXPECT_EQ(ReadAt(*source, 0, 10), test::ToText(Numbered(10)));
  EXPECT_EQ(ReadAt(*source, 8192, 10), shorter);  // nothing of the block is left
  EXPECT_EQ(ReadAt(*source, 4096, 10), shorter);  // a part of it is
  EXPECT_EQ(ReadAt(*source, 0, 20000), shorter);  // past the cache
  EXPECT_EQ(ReadAt(*source, 4096, 10), shorter);  // a failed read leaves nothing in the cache
}

TEST(FileSource, ReadThatFailsHalfWay_LeavesNothingOfItInTheCache) {
  TempFolder folder;
  folder.File("disk.img", Numbered(300000));
  const auto source = OpenImage(folder / "disk.img");
  const std::string begin = ReadAt(*source, 0, 200);
  std::filesystem::resize_file(folder / "disk.img", 262144 + 100);

  // Both blocks have the same place in the cache.
  EXPECT_EQ(ReadAt(*source, 262144, 200), "image could not be read: it is shorter than it was");
  EXPECT_EQ(ReadAt(*source, 0, 200), begin);
}

TEST(FileSource, FileThatIsReplacedOrRemoved_IsStillTheOneThatWasOpened) {
  TempFolder folder;
  folder.File("disk.img", Numbered(20000)).File("other", "x");
  const auto source = OpenImage(folder / "disk.img");
  std::filesystem::rename(folder / "other", folder / "disk.img");

  EXPECT_EQ(ReadAt(*source, 8192, 10), test::ToText(Numbered(20000)).substr(8192, 10));
}

TEST(FileSource, EmptyFile_IsTooSmallAnImage) {
  TempFolder folder;
  folder.File("disk.img");
  const auto source = OpenImage(folder / "disk.img");
  VolumeIndex index(*source);
  std::string err;

  EXPECT_FALSE(index.Parse(err));
  EXPECT_EQ(err, "image too small");
}

TEST(FileSource, IndexOfAFileThatShrinksAfterwards_StillListsAndTellsWhatItCannotRead) {
  TempFolder folder;
  const auto image =
      ImageCrafter().File("A.TXT", {.firstCluster = 20, .size = 3}).Data(20, "abc").Chain({20});
  folder.File("disk.img", image.Bytes());
  const auto source = OpenImage(folder / "disk.img");
  VolumeIndex index(*source);
  std::string err;
  ASSERT_TRUE(index.Parse(err)) << err;
  std::filesystem::resize_file(folder / "disk.img", 5000);

  std::vector<Fat16FsEntry> entries;
  EXPECT_TRUE(index.ListDirectory("/", entries, err));
  EXPECT_EQ(entries.size(), 1u);
  ContentReader reader = index.Open(20, 3);
  std::span<const std::uint8_t> piece;
  EXPECT_FALSE(reader.Next(piece, err));
  EXPECT_EQ(err, "image could not be read: it is shorter than it was");
  EXPECT_TRUE(piece.empty());
}

// 2 GiB, nearly all of it a hole: 10 files in the root, 10 in a directory of two clusters.
void MakeSparseDisk(const std::filesystem::path& path) {
  auto image = ImageCrafter({.sectorsPerCluster = 64, .sectorsPerFat = 256, .clusters = 2});
  image.Directory("D", 2).Chain({2, 3});
  for (std::uint16_t i = 0; i < 10; ++i) {
    const auto cluster = static_cast<std::uint16_t>(60000 + i);
    image.InRoot().File("F" + std::to_string(i), {.firstCluster = cluster, .size = 32768});
    image.InCluster(2).File("G" + std::to_string(i), {.firstCluster = cluster, .size = 32768});
    image.FatWord(cluster, 0xFFFF);
  }
  image.InCluster(3).File("LAST");
  test::WriteBytes(path, image.Bytes());
  std::filesystem::resize_file(path, std::uint64_t{2} << 30);
}

TEST(FileSource, SparseDiskOf2GiB_IsListedFromItsFatAndItsDirectories) {
  TempFolder folder;
  MakeSparseDisk(folder / "disk.img");
  const auto source = OpenImage(folder / "disk.img");
  VolumeIndex index(*source);
  std::string err;

  ASSERT_TRUE(index.Parse(err, VolumeIndex::Hidden::kCollect)) << err;

  EXPECT_EQ(index.Records().size(), 22u);
  EXPECT_EQ(index.Chains().Length(60009), 1u);
  // The two boot sectors share a block; the root and each cluster of the directory end in their
  // first one.
  EXPECT_LE(source->BytesRead(), 4096u + 65536 * 2 + 3 * 4096);
}

TEST(FileSource, SmallVolume_IsReadWithNoMoreOfTheFatThanItsClustersNeed) {
  // The FAT has room for 65,536 words, the volume for 98 clusters.
  TempFolder folder;
  const auto image = ImageCrafter({.sectorsPerFat = 256, .clusters = 98}).File("A.TXT");
  folder.File("disk.img", image.Bytes());
  const auto source = OpenImage(folder / "disk.img");
  VolumeIndex index(*source);
  std::string err;

  ASSERT_TRUE(index.Parse(err)) << err;

  EXPECT_LE(source->BytesRead(), 2u * 4096);  // boot sectors and FAT, root
}

}  // namespace
}  // namespace quorbix::virtdisk::internal

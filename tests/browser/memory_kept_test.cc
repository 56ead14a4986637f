// How much of a large image's memory stays when a small one takes its place, and how much an image
// in a file takes.

#include <filesystem>

#include "browser/browser_fixture.h"
#include "browser/file_source.h"
#include "browser/volume_index.h"
#include "support/temp_folder.h"
#include "support/watched_heap.h"

namespace quorbix::virtdisk::test {
namespace {

Bytes SmallImage() { return ImageCrafter({.clusters = 1}).File("A.TXT").Bytes(); }

// 5 MB with 20,000 files, each with a path of its own.
Bytes LargeImage() {
  auto image = ImageCrafter({.sectorsPerFat = 40, .clusters = 10000});
  image.Directory("D", 2).Chain(Clusters(2, 1251)).InCluster(2);
  for (unsigned i = 0; i < 20000; ++i) image.File("F" + std::to_string(i));
  return image.Bytes();
}

// What a browser holds that has seen this image and no other.
std::size_t BytesHeldFor(const Bytes& image) {
  const std::size_t before = BytesInUse();
  Fat16FsImage browser;
  LoadMessage(browser, image);
  return BytesInUse() - before;
}

// What a browser holds whose next image after the large one is `image`.
std::size_t BytesHeldAfterTheLargeImage(const Bytes& image) {
  const Bytes large = LargeImage();
  const std::size_t before = BytesInUse();
  Fat16FsImage browser;
  EXPECT_EQ(LoadMessage(browser, large), "");
  EXPECT_GT(BytesInUse() - before, large.size() + 1'000'000);
  LoadMessage(browser, image);
  return BytesInUse() - before;
}

TEST(MemoryKept, SmallImageAfterALargeOne_TakesWhatItTakesAlone) {
  EXPECT_LE(BytesHeldAfterTheLargeImage(SmallImage()), BytesHeldFor(SmallImage()) + 500);
}

TEST(MemoryKept, RefusedImageAfterALargeOne_TakesWhatItTakesAlone) {
  EXPECT_LE(BytesHeldAfterTheLargeImage(Bytes(100)), BytesHeldFor(Bytes(100)) + 500);
}

TEST(MemoryKept, ImageOfTheSameSizeWithoutFiles_KeepsNoIndex) {
  auto image = ImageCrafter({.sectorsPerFat = 40, .clusters = 10000}).File("A.TXT");

  EXPECT_LE(BytesHeldAfterTheLargeImage(image.Bytes()), BytesHeldFor(image.Bytes()) + 500);
}

TEST(MemoryKept, LoadThatThrows_KeepsNoIndex) {
  const Bytes large = LargeImage();
  const std::size_t before = BytesInUse();
  Fat16FsImage browser;
  EXPECT_EQ(LoadMessage(browser, large), "");
  std::string err;

  EXPECT_FALSE(RunWithAllocations(10000, [&] { browser.LoadFromBytes(large, err); }));

  EXPECT_LE(BytesInUse() - before, large.size() + 2000);
}

TEST(MemoryKept, SmallImageThatThrowsBeforeItsBytesAreCopied_LeavesTheLargeOne) {
  const Bytes large = LargeImage();
  Fat16FsImage browser;
  EXPECT_EQ(LoadMessage(browser, large), "");
  std::string err;

  EXPECT_FALSE(RunWithAllocations(0, [&] { browser.LoadFromBytes(SmallImage(), err); }));

  EXPECT_EQ(browser.ImageBytes(), large);
  EXPECT_THAT(ListPaths(browser, "/D"), testing::SizeIs(20000));
}

TEST(MemoryKept, OwnBytes_LoadAgainIntoTheSameMemory) {
  const auto browser = Load(LargeImage());
  const std::uint8_t* bytes = browser->ImageBytes().data();
  const std::size_t before = BytesInUse();

  EXPECT_EQ(LoadMessage(*browser, browser->ImageBytes()), "");

  EXPECT_EQ(browser->ImageBytes().data(), bytes);
  EXPECT_LE(BytesInUse(), before + 500);
}

TEST(MemoryKept, QueryLongerThanAnyPath_TakesNoMemoryForWhatCannotMatch) {
  Fat16FsImage browser;
  ASSERT_EQ(LoadMessage(browser, SmallImage()), "");
  const std::string query(10'000'000, 'A');
  std::vector<Fat16FsEntry> results;
  std::string err;
  const std::size_t before = BytesInUse();
  ResetPeak();

  EXPECT_TRUE(browser.Search(query, results, err));

  EXPECT_LE(PeakBytesInUse() - before, 1000u);
}

TEST(MemoryKept, ListingAndReadingADiskOf2GiBInAFile_TakesAFewHundredKilobytes) {
  TempFolder folder;
  auto image = ImageCrafter({.sectorsPerCluster = 64, .sectorsPerFat = 256, .clusters = 1});
  image.File("A.TXT", {.firstCluster = 2, .size = 40000 * 32768}).Chain(Clusters(2, 40001));
  for (int i = 0; i < 15; ++i) image.File("F" + std::to_string(i));
  WriteBytes(folder / "disk.img", image.Bytes());
  std::filesystem::resize_file(folder / "disk.img", std::uint64_t{2} << 30);
  const std::size_t before = BytesInUse();
  ResetPeak();

  std::string err;
  const auto source = internal::FileSource::Open(folder / "disk.img", err);
  ASSERT_NE(source, nullptr) << err;
  internal::VolumeIndex index(*source);
  ASSERT_TRUE(index.Parse(err)) << err;
  internal::ContentReader reader = index.Open(2, 100 * 32768);
  std::span<const std::uint8_t> piece;
  while (reader.Next(piece, err) && !piece.empty()) continue;

  EXPECT_EQ(reader.Total(), 100u * 32768);
  // The cache 256 KiB, the FAT 128 KiB, the lengths of chains as much, a piece of content 256 KiB.
  EXPECT_LE(PeakBytesInUse() - before, (256 + 128 + 128 + 256 + 32) * std::size_t{1024});
}

}  // namespace
}  // namespace quorbix::virtdisk::test

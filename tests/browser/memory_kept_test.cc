// How much of a large image's memory stays when a small one takes its place.

#include "browser/browser_fixture.h"
#include "browser/watched_heap.h"

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

}  // namespace
}  // namespace quorbix::virtdisk::test

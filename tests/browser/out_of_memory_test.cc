// What an exception leaves behind. Every operation is repeated with one allocation more, until it
// goes through.

#include "browser/browser_fixture.h"
#include "support/watched_heap.h"

namespace quorbix::virtdisk::test {
namespace {

Bytes NewImage() {
  ImageCrafter image;
  image.File("A.TXT", {.firstCluster = 3, .size = 3}).Data(3, "abc").Chain({3});
  image.Directory("SUB", 2).Chain({2});
  for (int i = 0; i < 10; ++i) image.InCluster(2).File("F" + std::to_string(i));
  return image.Bytes();
}

Bytes OldImage() {
  return ImageCrafter({.clusters = 1}).File("OLD", {.firstCluster = 2, .size = 3}).Bytes();
}

// Whether the load went through with `allocations` of them.
bool LoadWith(long allocations, Fat16FsImage& browser, const Bytes& image) {
  std::string err(200, ' ');
  bool loaded = false;
  const bool finished =
      RunWithAllocations(allocations, [&] { loaded = browser.LoadFromBytes(image, err); });
  EXPECT_EQ(loaded, finished) << err;
  return finished;
}

// The root is known, nothing else is.
void ExpectNoIndex(const Fat16FsImage& browser) {
  EXPECT_TRUE(ListPaths(browser, "/").empty());
  EXPECT_TRUE(AllPaths(browser).empty());
  EXPECT_EQ(ListMessage(browser, "/SUB"), "directory not found");
  EXPECT_EQ(ReadMessage(browser, "/A.TXT"), "file not found");
}

void ExpectNewImage(const Fat16FsImage& browser) {
  EXPECT_EQ(browser.ImageBytes(), NewImage());
  EXPECT_THAT(ListPaths(browser, "/SUB"), testing::SizeIs(10));
  EXPECT_EQ(ReadText(browser, "/A.TXT"), "abc");
}

TEST(OutOfMemory, FirstLoadThatThrowsAnywhere_LeavesNothingOrTheNewBytesWithTheRoot) {
  const Bytes image = NewImage();
  int heldNothing = 0;
  int heldTheNew = 0;
  for (long allocations = 0;; ++allocations) {
    Fat16FsImage browser;
    if (LoadWith(allocations, browser, image)) break;
    if (browser.ImageBytes().empty()) {
      ++heldNothing;
      EXPECT_EQ(ListMessage(browser, "/"), "directory not found");
    } else {
      ++heldTheNew;
      EXPECT_EQ(browser.ImageBytes(), image);
      ExpectNoIndex(browser);
    }
    EXPECT_TRUE(LoadWith(-1, browser, image));
    ExpectNewImage(browser);
  }
  EXPECT_EQ(heldNothing, 1);  // one allocation is for the bytes
  EXPECT_GT(heldTheNew, 10);
}

TEST(OutOfMemory, LaterLoadThatThrowsAnywhere_LeavesTheOldImageOrTheNewBytesWithTheRoot) {
  const Bytes image = NewImage();
  int keptTheOld = 0;
  int heldTheNew = 0;
  for (long allocations = 0;; ++allocations) {
    const auto browser = Load(OldImage());
    if (LoadWith(allocations, *browser, image)) break;
    if (browser->ImageBytes() == OldImage()) {
      ++keptTheOld;
      EXPECT_EQ(AllPaths(*browser), Names{"/OLD"});
      EXPECT_EQ(ReadText(*browser, "/OLD").size(), 3u);
    } else {
      ++heldTheNew;
      EXPECT_EQ(browser->ImageBytes(), image);
      ExpectNoIndex(*browser);
    }
    EXPECT_TRUE(LoadWith(-1, *browser, image));
    ExpectNewImage(*browser);
  }
  EXPECT_EQ(keptTheOld, 1);
  EXPECT_GT(heldTheNew, 10);
}

TEST(OutOfMemory, LoadThatThrowsWhileIndexing_TellsTheNewVolume) {
  Fat16FsImage browser;

  EXPECT_FALSE(LoadWith(3, browser, ImageCrafter({.label = "NEW"}).File("A").File("B").Bytes()));

  EXPECT_EQ(browser.Info().volumeLabel, "NEW");
  ExpectNoIndex(browser);
}

TEST(OutOfMemory, RewriteThatThrowsAnywhere_LeavesEverythingOrTheNewBytesWithTheRoot) {
  const Bytes content = ToBytes("xyz");
  Bytes rewritten = NewImage();
  const std::size_t data = ImageCrafter().ClusterOffset(3);
  std::copy(content.begin(), content.end(), rewritten.begin() + static_cast<std::ptrdiff_t>(data));
  std::fill_n(rewritten.begin() + static_cast<std::ptrdiff_t>(data) + 3, 509, std::uint8_t{0});
  int changedNothing = 0;
  int changedTheFile = 0;
  for (long allocations = 0;; ++allocations) {
    const auto browser = Load(NewImage());
    std::string err(200, ' ');
    if (RunWithAllocations(allocations,
                           [&] { browser->WriteExistingFile("/A.TXT", content, err); })) {
      break;
    }
    if (browser->ImageBytes() == NewImage()) {
      ++changedNothing;
      ExpectNewImage(*browser);
    } else {
      ++changedTheFile;
      EXPECT_EQ(browser->ImageBytes(), rewritten);
      ExpectNoIndex(*browser);
    }
  }
  EXPECT_GT(changedNothing, 0);
  EXPECT_GT(changedTheFile, 0);
}

TEST(OutOfMemory, QueriesThatThrowAnywhere_LeaveTheObjectAsItWas) {
  const auto browser = Load(NewImage());
  const auto queries = [&] {
    std::string err;
    std::vector<Fat16FsEntry> entries;
    Bytes content;
    browser->ListDirectory("/A PATH THAT NEEDS MEMORY OF ITS OWN", entries, err);
    browser->ListDirectory("/SUB", entries, err);
    browser->Search("F", entries, err);
    browser->ReadFile("/A.TXT", content, err);
  };
  long allocations = 0;
  while (!RunWithAllocations(allocations, queries)) {
    ++allocations;
    ExpectNewImage(*browser);
  }
  EXPECT_GT(allocations, 10);
}

}  // namespace
}  // namespace quorbix::virtdisk::test

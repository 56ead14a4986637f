#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "quorbix/virtdisk/fat16_fs_image.h"
#include "support/image_crafter.h"

namespace {

// Allocations that still succeed; negative: all do.
long allocationsLeft = -1;

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (allocationsLeft == 0) return nullptr;
  if (allocationsLeft > 0) --allocationsLeft;
  return std::malloc(size == 0 ? 1 : size);
}

void* operator new(std::size_t size) {
  if (void* memory = operator new(size, std::nothrow)) return memory;
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace quorbix::virtdisk {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes Tree() {
  test::ImageCrafter image;
  image.File("A.TXT", {.firstCluster = 3, .size = 3}).Chain({3}).Directory("SUB", 2).Chain({2});
  for (int i = 0; i < 10; ++i) image.InCluster(2).File("F" + std::to_string(i));
  return image.Bytes();
}

// Whether the load went through with `allocations` of them.
bool LoadWith(long allocations, Fat16FsImage& browser, const Bytes& image) {
  std::string err;
  err.reserve(200);
  allocationsLeft = allocations;
  try {
    const bool loaded = browser.LoadFromBytes(image, err);
    allocationsLeft = -1;
    EXPECT_TRUE(loaded) << err;
    return true;
  } catch (const std::bad_alloc&) {
    allocationsLeft = -1;
    return false;
  }
}

TEST(OutOfMemory, LoadThatThrowsAnywhere_LeavesABrowserThatCanBeAskedAndLoadedAgain) {
  const Bytes image = Tree();
  long allocations = 0;
  for (bool loaded = false; !loaded; ++allocations) {
    Fat16FsImage browser;
    std::string err;
    std::vector<Fat16FsEntry> entries;
    Bytes content;
    loaded = LoadWith(allocations, browser, image);
    EXPECT_EQ(browser.ListDirectory("/", entries, err), loaded);
    EXPECT_EQ(browser.ListDirectory("/SUB", entries, err), loaded);
    EXPECT_EQ(browser.ReadFile("/A.TXT", content, err), loaded);
    EXPECT_TRUE(browser.Search("F", entries, err));
    EXPECT_TRUE(LoadWith(-1, browser, image));
    EXPECT_TRUE(browser.ListDirectory("/SUB", entries, err));
    EXPECT_EQ(entries.size(), 10u);
  }
  EXPECT_GT(allocations, 10);
}

}  // namespace
}  // namespace quorbix::virtdisk

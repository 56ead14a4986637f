// Image bytes in: they are loaded, listed, searched, read and rewritten by the library and by the
// plain browser of the tests, and the two must agree about everything. So this finds wrong answers,
// not crashes alone. Loading twice must give one answer, too, and of a volume that the check calls
// sound every file can be read whole.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "../tests/browser/agreement.h"
#include "../tests/check/soundness.h"
#include "browser/volume_index.h"
#include "quorbix/virtdisk/fat16_fs_image.h"

// Present in the explorer only; the replayer links without it.
extern "C" __attribute__((weak)) std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size,
                                                              std::size_t maxSize);

namespace {

using quorbix::virtdisk::Fat16FsEntry;
using quorbix::virtdisk::Fat16FsImage;
using quorbix::virtdisk::internal::EntryRecord;
using quorbix::virtdisk::internal::MemorySource;
using quorbix::virtdisk::internal::VolumeIndex;
using Bytes = std::vector<std::uint8_t>;

// The plain browser's time grows with the square of the entries, or worse.
constexpr std::size_t kMaxBytes = std::size_t{64} * 1024;

void Require(bool condition, const std::string& what) {
  if (condition) return;
  std::fprintf(stderr, "%s\n", what.c_str());
  std::abort();
}

bool IsSame(const Fat16FsEntry& a, const Fat16FsEntry& b) {
  return a.name == b.name && a.path == b.path && a.isDirectory == b.isDirectory &&
         a.attributes == b.attributes && a.size == b.size && a.firstCluster == b.firstCluster &&
         a.writeTime == b.writeTime && a.writeDate == b.writeDate;
}

void CheckLoadingTwice(const Bytes& image) {
  Fat16FsImage browser;
  std::string first, second;
  std::vector<Fat16FsEntry> before, after;
  const bool loaded = browser.LoadFromBytes(image, first);
  std::string err;
  browser.Search("/", before, err);
  const bool loadedAgain = browser.LoadFromBytes(browser.ImageBytes(), second);
  browser.Search("/", after, err);
  Require(loaded == loadedAgain && first == second, "a second load says something else");
  Require(browser.ImageBytes() == image, "a second load changes the bytes");
  Require(std::equal(before.begin(), before.end(), after.begin(), after.end(), IsSame),
          "a second load gives another index");
  Require(before.size() <= image.size() / 32, "the index has more entries than the image slots");
}

// Collecting what makes no record must change nothing about the records.
void CheckHiddenEntries(const Bytes& image) {
  MemorySource source(image);
  VolumeIndex plain(source);
  VolumeIndex collecting(source);
  std::string plainErr, err;
  const bool parsed = plain.Parse(plainErr);
  Require(collecting.Parse(err, VolumeIndex::Hidden::kCollect) == parsed && err == plainErr,
          "collecting hidden entries changes the outcome");
  Require(plain.Info().volumeLabel == collecting.Info().volumeLabel,
          "collecting hidden entries changes the label");
  const auto isSameSlot = [](const EntryRecord& a, const EntryRecord& b) {
    return a.dirEntryOffset == b.dirEntryOffset && a.parent == b.parent;
  };
  Require(std::equal(plain.Records().begin(), plain.Records().end(), collecting.Records().begin(),
                     collecting.Records().end(), isSameSlot),
          "collecting hidden entries changes the records");
  Require(collecting.Records().size() + collecting.HiddenEntries().size() <= image.size() / 32,
          "there are more entries than the image has slots");
}

// Where the volume's parts lie, as far as its boot sector can be believed.
struct Places {
  std::size_t boot = 0, fat = 0, root = 0;
};

Places FindPlaces(const std::uint8_t* data, std::size_t size) {
  Places places;
  if (size > 512 && data[450] != 0) places.boot = std::size_t{data[454]} * 512;
  if (places.boot + 512 > size) places.boot = 0;
  const std::uint8_t* boot = data + places.boot;
  const std::size_t reserved = boot[14] + std::size_t{256} * boot[15];
  const std::size_t fatSectors = boot[22] + std::size_t{256} * boot[23];
  places.fat = places.boot + reserved * 512;
  places.root = places.fat + boot[16] * fatSectors * 512;
  return places;
}

}  // namespace

// Half of the mutations aim at what the reader looks at: FAT words, slots, the boot sector's
// fields.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t maxSize, unsigned seed) {
  const auto below = [&seed](std::size_t n) {
    seed = seed * 1664525u + 1013904223u;
    return std::size_t{seed >> 8} % n;
  };
  if (size < 1024 || below(2) == 0) return LLVMFuzzerMutate(data, size, maxSize);
  const Places places = FindPlaces(data, size);
  const auto put = [&](std::size_t offset, std::size_t value) {
    if (offset < size) data[offset] = static_cast<std::uint8_t>(value);
  };
  switch (below(4)) {
    case 0: {  // a FAT word: any small cluster, or an end
      const std::size_t word = places.fat + 2 * below(64);
      const std::size_t target = below(4) == 0 ? 0xFFF7 + below(9) : below(64);
      put(word, target & 0xFF);
      put(word + 1, target >> 8);
      break;
    }
    case 1: {  // a field of a slot, in the root or behind it
      const std::size_t slot = places.root + 32 * below((size - 512) / 32);
      const std::size_t fields[] = {0, 7, 8, 11, 26, 27, 28, 29};
      const std::size_t values[] = {0,   0x10, 0x20, 0x08, 0x0F,     0xE5,
                                    '.', '/',  '\\', 'a',  below(64)};
      put(slot + fields[below(8)], values[below(11)]);
      break;
    }
    case 2: {  // a copy of another slot
      const std::size_t to = below(size / 32) * 32;
      std::memmove(data + to, data + below(size / 32) * 32, 32);
      break;
    }
    default: {  // a field of the boot sector
      const std::size_t fields[] = {13, 14, 16, 17, 18, 22, 43, 53};
      put(places.boot + fields[below(8)], below(4));
    }
  }
  return size;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Bytes image(data, data + std::min(size, kMaxBytes));
  CheckLoadingTwice(image);
  CheckHiddenEntries(image);
  const std::string disagreement = quorbix::virtdisk::test::FindDisagreement(image, 8, 2);
  Require(disagreement.empty(), disagreement);
  bool sound = false;
  const std::string falseReport = quorbix::virtdisk::test::FindFalseReport(image, sound);
  Require(falseReport.empty(), falseReport);
  return 0;
}

// One image in memory and in a file: the same index, slot for slot, which is also the one that the
// plain browser of the tests makes.

#include <algorithm>
#include <filesystem>
#include <random>
#include <span>

#include "browser/agreement.h"
#include "browser/browser_fixture.h"
#include "browser/file_source.h"
#include "browser/plain_browser.h"
#include "browser/volume_index.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::internal {
namespace {

using test::Bytes;
using test::ImageCrafter;
using test::Names;
using test::PlainBrowser;
using test::TempFolder;

std::string Line(const Fat16FsEntry& entry, std::uint64_t slotOffset, std::uint64_t allocated) {
  std::string line = entry.path + " (" + entry.name + ")";
  for (const std::uint64_t number :
       {std::uint64_t{entry.isDirectory}, std::uint64_t{entry.attributes},
        std::uint64_t{entry.size}, std::uint64_t{entry.firstCluster},
        std::uint64_t{entry.writeTime}, std::uint64_t{entry.writeDate}, slotOffset, allocated}) {
    line += " " + std::to_string(number);
  }
  return line;
}

Names LinesOf(const VolumeIndex& index) {
  Names lines;
  for (const EntryRecord& record : index.Records()) {
    lines.push_back(
        Line(record.Entry(index.PathOf(record)), record.dirEntryOffset, record.allocatedBytes));
  }
  return lines;
}

Names LinesOf(const PlainBrowser& plain) {
  Names lines;
  for (const PlainBrowser::Record& record : plain.records) {
    lines.push_back(Line(record.entry, record.slotOffset, record.allocatedBytes));
  }
  return lines;
}

// Everything that can be read below `index`, or the reason why not.
Names ContentsOf(const VolumeIndex& index) {
  Names contents;
  std::uint64_t left = std::uint64_t{4} << 20;  // bytes; hostile images share their clusters
  for (const EntryRecord& record : index.Records()) {
    std::string content, err;
    ContentReader reader =
        index.Open(record.firstCluster, std::min<std::uint64_t>(record.size, left));
    std::span<const std::uint8_t> piece;
    while (reader.Next(piece, err) && !piece.empty()) content.append(piece.begin(), piece.end());
    left -= content.size();
    contents.push_back(content + err);
  }
  return contents;
}

Names RawNames(const VolumeIndex& index) {
  Names names;
  for (const HiddenEntry& entry : index.HiddenEntries()) {
    names.emplace_back(entry.rawName.begin(), entry.rawName.end());
  }
  return names;
}

// Compares both sources, and the plain browser where `asPlain` says that the image is small enough.
void ExpectOneIndex(const TempFolder& folder, const Bytes& image, bool asPlain) {
  test::WriteBytes(folder / "disk.img", image);
  MemorySource memory(image);
  std::string err;
  const auto file = FileSource::Open(folder / "disk.img", err);
  ASSERT_NE(file, nullptr) << err;
  VolumeIndex inMemory(memory);
  VolumeIndex inFile(*file);
  std::string memoryErr, fileErr;

  const bool memoryParsed = inMemory.Parse(memoryErr, VolumeIndex::Hidden::kCollect);
  const bool fileParsed = inFile.Parse(fileErr, VolumeIndex::Hidden::kCollect);

  ASSERT_EQ(fileErr, memoryErr);
  ASSERT_EQ(fileParsed, memoryParsed);
  ASSERT_TRUE(test::SameInfo(inFile.Info(), inMemory.Info()));
  ASSERT_EQ(LinesOf(inFile), LinesOf(inMemory));
  ASSERT_EQ(RawNames(inFile), RawNames(inMemory));
  ASSERT_EQ(inFile.HasAllHiddenEntries(), inMemory.HasAllHiddenEntries());
  ASSERT_EQ(ContentsOf(inFile), ContentsOf(inMemory));
  if (!asPlain) return;
  PlainBrowser plain;
  ASSERT_EQ(fileErr, plain.Load(image));
  ASSERT_TRUE(test::SameInfo(inFile.Info(), plain.info));
  ASSERT_EQ(LinesOf(inFile), LinesOf(plain));
}

ImageCrafter SmallTree() {
  auto image = ImageCrafter({.rootEntryCount = 16, .clusters = 24});
  image.Directory("A", 2).File("B.TXT", {.firstCluster = 5, .size = 700}).Label("LABEL      ");
  image.Directory("a", 9).File("C", {.firstCluster = 8, .size = 10}).LongNameSlot();
  image.RawSlot("        PRO", {.firstCluster = 20, .size = 4});
  image.RawSlot("        GIT", {.attributes = 0x10, .firstCluster = 15});
  image.Chain({2, 3}).Chain({5, 7, 6}).Chain({8}).Chain({9}).Chain({11, 12}).Chain({14, 13});
  image.InCluster(2).DotEntries(2, 0).Directory("DEEP", 11);
  for (int i = 0; i < 15; ++i) image.File("F" + std::to_string(i), {.firstCluster = 20, .size = 1});
  image.InCluster(9).DotEntries(9, 0).File("D.TXT", {.firstCluster = 14, .size = 1024});
  image.InCluster(11).DotEntries(11, 2).File("E", {.firstCluster = 10, .size = 1});
  return image.InCluster(15).File("CONFIG", {.firstCluster = 21, .size = 100});
}

TEST(BothSources, SmallTree_IsIndexedAlike) {
  const TempFolder folder;

  ExpectOneIndex(folder, SmallTree().Bytes(), true);
}

TEST(BothSources, EveryPrefixOfAnImage_IsIndexedAlike) {
  const TempFolder folder;
  const Bytes image = SmallTree().Bytes();
  for (std::size_t length = 0; length < image.size(); length += 97) {
    const auto end = image.begin() + static_cast<std::ptrdiff_t>(length);
    ExpectOneIndex(folder, Bytes(image.begin(), end), true);
    ASSERT_FALSE(HasFatalFailure()) << length;
  }
}

TEST(BothSources, DamagedTrees_AreIndexedAlike) {
  const TempFolder folder;
  const ImageCrafter tree = SmallTree();
  for (unsigned seed = 0; seed < 300; ++seed) {
    std::mt19937 random(seed);
    Bytes bytes = tree.Bytes();
    for (std::size_t i = 0; i < 8; ++i) {
      const std::size_t at =
          i == 0 ? 512 + 11 + random() % 25
                 : tree.FatOffset() + random() % (tree.ClusterOffset(17) - tree.FatOffset());
      bytes[at] = static_cast<std::uint8_t>(random() % 32);
    }
    ExpectOneIndex(folder, bytes, true);
    ASSERT_FALSE(HasFatalFailure()) << seed;
  }
}

TEST(BothSources, NestedDirectories_AreIndexedAlike) {
  const TempFolder folder;
  auto image = ImageCrafter({.sectorsPerFat = 256, .clusters = 3001}).Directory("D", 2);
  for (std::uint16_t i = 2; i < 3002; ++i) {
    image.InCluster(i).Directory("D", static_cast<std::uint16_t>(i + 1)).File("F");
  }

  ExpectOneIndex(folder, image.InCluster(3002).Bytes(), false);
}

TEST(BothSources, DirectoriesAllOverALargeImage_AreIndexedAlike) {
  // More blocks than the cache of a file has places, each of them returned to again and again.
  const TempFolder folder;
  auto image = ImageCrafter({.sectorsPerFat = 256, .clusters = 20000}).Directory("D", 2);
  std::vector<std::uint16_t> chain;
  for (std::uint16_t i = 0; i < 100; ++i) chain.push_back(static_cast<std::uint16_t>(2 + i * 190));
  image.Chain(chain).InCluster(2);
  for (std::uint16_t i = 0; i < 1600; ++i) {
    image.Directory("S" + std::to_string(i), static_cast<std::uint16_t>(3 + i * 12));
  }
  for (std::uint16_t i = 0; i < 1600; ++i) {
    const auto cluster = static_cast<std::uint16_t>(3 + i * 12);
    if ((cluster - 2) % 190 != 0) image.InCluster(cluster).File("F");
  }

  ExpectOneIndex(folder, image.Bytes(), false);
}

TEST(BothSources, StoredInputsOfTheFuzzTarget_AreIndexedAlike) {
  const TempFolder folder;
  std::size_t inputs = 0;
  for (const char* kind : {"corpus", "regressions"}) {
    const auto stored = std::filesystem::path(VIRTDISK_FUZZ_FOLDER) / kind / "browser_fuzz";
    if (!std::filesystem::is_directory(stored)) continue;
    for (const auto& entry : std::filesystem::directory_iterator(stored)) {
      ++inputs;
      ExpectOneIndex(folder, test::ReadBytes(entry.path()), true);
      ASSERT_FALSE(HasFatalFailure()) << entry.path();
    }
  }
  EXPECT_GT(inputs, 50u);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal

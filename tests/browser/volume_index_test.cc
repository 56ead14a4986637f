// The index where it is more than Fat16FsImage shows: records, offsets, images beyond 4 GiB.

#include "browser/volume_index.h"

#include <sys/mman.h>

#include <span>

#include "browser/browser_fixture.h"

namespace quorbix::virtdisk::internal {
namespace {

using test::Bytes;
using test::ImageCrafter;
using test::Names;

constexpr std::uint64_t kGiB = std::uint64_t{1} << 30;

// Zeros that take no memory until they are written to.
class SparseMemory {
 public:
  explicit SparseMemory(std::uint64_t bytes) : size(bytes) {
    void* memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE,
                          MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    EXPECT_NE(memory, MAP_FAILED);
    data = static_cast<std::uint8_t*>(memory);
  }
  ~SparseMemory() { ::munmap(data, size); }
  SparseMemory(const SparseMemory&) = delete;
  SparseMemory& operator=(const SparseMemory&) = delete;

  void Put(std::uint64_t offset, const Bytes& bytes) {
    std::copy(bytes.begin(), bytes.end(), data + offset);
  }
  std::span<const std::uint8_t> All() const { return {data, size}; }

 private:
  std::uint64_t size;
  std::uint8_t* data = nullptr;
};

// The sector where a partition begins, as a partition table says it.
Bytes PartitionAt(std::uint32_t sector) {
  Bytes table(66);
  table[4] = 0x06;
  for (std::size_t i = 0; i < 4; ++i) {
    table[8 + i] = static_cast<std::uint8_t>(sector >> (8 * i));
  }
  table[64] = 0x55;
  table[65] = 0xAA;
  return table;
}

std::string ContentOf(const VolumeIndex& index, const std::string& path) {
  std::string err;
  const EntryRecord* file = index.FindFile(path, err);
  if (file == nullptr) return err;
  ContentReader reader = index.Open(file->firstCluster, file->size);
  std::string content;
  std::span<const std::uint8_t> piece;
  do {
    if (!reader.Next(piece, err)) return err;
    content.append(piece.begin(), piece.end());
  } while (!piece.empty());
  return content;
}

Names ListedPaths(const VolumeIndex& index, const std::string& path) {
  std::vector<Fat16FsEntry> entries;
  std::string err;
  EXPECT_TRUE(index.ListDirectory(path, entries, err)) << err;
  return test::PathsOf(entries);
}

TEST(VolumeIndex, VolumeBeyond4GiB_IsReadThere) {
  const auto volume = ImageCrafter({.partitioned = false})
                          .File("A.TXT", {.firstCluster = 4, .size = 600})
                          .Directory("SUB", 2)
                          .InCluster(2)
                          .File("B.TXT", {.firstCluster = 6, .size = 3})
                          .Chain({2})
                          .Chain({4, 5})
                          .Fill(4, 'a')
                          .Fill(5, 'b')
                          .Data(6, "abc");
  const std::uint64_t start = 4 * kGiB + 7 * 512;
  SparseMemory memory(start + volume.Bytes().size());
  memory.Put(446, PartitionAt(0x00800007));
  memory.Put(start, volume.Bytes());
  MemorySource source(memory.All());
  VolumeIndex index(source);
  std::string err;

  ASSERT_TRUE(index.Parse(err)) << err;

  EXPECT_EQ(index.Info().volumeOffset, start);
  EXPECT_EQ(ListedPaths(index, "/"), (Names{"/SUB", "/A.TXT"}));
  EXPECT_EQ(ContentOf(index, "/A.TXT"), std::string(512, 'a') + std::string(88, 'b'));
  EXPECT_EQ(ContentOf(index, "/SUB/B.TXT"), "abc");
  EXPECT_EQ(index.Records()[2].dirEntryOffset, start + volume.ClusterOffset(2));
}

TEST(VolumeIndex, ClusterBeyond4GiB_IsReadThere) {
  // The offset of cluster 33,000, of 255 sectors each, does not fit 32 bits.
  auto volume = ImageCrafter({.sectorsPerCluster = 255, .sectorsPerFat = 256, .clusters = 0});
  volume.File("A", {.firstCluster = 33000, .size = 3}).Directory("D", 33001);
  const ImageCrafter directory =
      ImageCrafter().File("IN", {.firstCluster = 0x1234, .size = 0xFFFFFFFF});
  SparseMemory memory(volume.ClusterOffset(33002));
  memory.Put(0, volume.Bytes());
  memory.Put(volume.ClusterOffset(33000), test::ToBytes("abc"));
  memory.Put(volume.ClusterOffset(33001),
             Bytes(directory.Bytes().begin() + static_cast<std::ptrdiff_t>(directory.RootOffset()),
                   directory.Bytes().end()));
  MemorySource source(memory.All());
  VolumeIndex index(source);
  std::string err;

  ASSERT_TRUE(index.Parse(err)) << err;

  ASSERT_GT(volume.ClusterOffset(33000), 4 * kGiB);
  EXPECT_EQ(ContentOf(index, "/A"), "abc");
  EXPECT_EQ(ListedPaths(index, "/D"), Names{"/D/IN"});
  EXPECT_EQ(index.Records()[2].dirEntryOffset, volume.ClusterOffset(33001));
}

TEST(VolumeIndex, ChainOfMoreThan4GiB_IsMeasuredWhole) {
  // 40,000 clusters of 127.5 KiB.
  auto volume = ImageCrafter({.sectorsPerCluster = 255, .sectorsPerFat = 256, .clusters = 0});
  volume.File("A", {.firstCluster = 2, .size = 0xFFFFFFFF}).Chain(test::Clusters(2, 40001));
  SparseMemory memory(volume.ClusterOffset(40002));
  memory.Put(0, volume.Bytes());
  MemorySource source(memory.All());
  VolumeIndex index(source);
  std::string err;

  ASSERT_TRUE(index.Parse(err)) << err;

  const EntryRecord& file = index.Records().at(0);
  EXPECT_EQ(file.allocatedBytes, std::uint64_t{40000} * 255 * 512);
  EXPECT_EQ(file.MostContent(), 0xFFFFFFFFu);
  EXPECT_EQ(index.Open(2, ~std::uint64_t{0}).Total(), std::uint64_t{40000} * 255 * 512);
  EXPECT_EQ(index.Open(2, file.size).Total(), 0xFFFFFFFFu);
}

TEST(EntryRecord, MostContent_IsWhatChainAndSizeFieldAllow) {
  EntryRecord record;
  EXPECT_EQ(record.MostContent(), 0u);
  record.allocatedBytes = 0xFFFFFFFE;
  EXPECT_EQ(record.MostContent(), 0xFFFFFFFEu);
  record.allocatedBytes = 0xFFFFFFFF;
  EXPECT_EQ(record.MostContent(), 0xFFFFFFFFu);
  record.allocatedBytes = 0x100000000;
  EXPECT_EQ(record.MostContent(), 0xFFFFFFFFu);
}

TEST(VolumeIndex, NewIndex_KnowsNoRoot) {
  MemorySource source({});
  const VolumeIndex index(source);
  std::vector<Fat16FsEntry> entries;
  std::string err;

  EXPECT_FALSE(index.ListDirectory("/", entries, err));
  EXPECT_EQ(err, "directory not found");
  EXPECT_EQ(ContentOf(index, "/A"), "file not found");
}

TEST(VolumeIndex, Records_NameTheirParentAndTheirSlot) {
  auto image = ImageCrafter().File("A.TXT").Directory("D", 2).InCluster(2).File("B.TXT");
  image.InRoot().File("C.TXT");
  MemorySource source(image.Bytes());
  VolumeIndex index(source);
  std::string err;
  ASSERT_TRUE(index.Parse(err)) << err;

  const std::vector<EntryRecord>& records = index.Records();
  ASSERT_EQ(records.size(), 4u);
  EXPECT_EQ(index.PathOf(records[2]), "/D/B.TXT");
  EXPECT_EQ(records[0].parent, VolumeIndex::kNoRecord);
  EXPECT_EQ(records[2].parent, 1u);
  EXPECT_EQ(records[2].dirEntryOffset, image.ClusterOffset(2));
  EXPECT_EQ(records[3].dirEntryOffset, image.RootOffset() + 64);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal

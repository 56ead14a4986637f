#ifndef QUORBIX_VIRTDISK_TESTS_SUPPORT_IMAGE_CRAFTER_H_
#define QUORBIX_VIRTDISK_TESTS_SUPPORT_IMAGE_CRAFTER_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace quorbix::virtdisk::test {

// The volume that ImageCrafter lays out. As it stands: the smallest disk with a partition table.
struct VolumeShape {
  bool partitioned = true;
  unsigned partitionSlot = 0;  // which of the four entries of the partition table
  std::uint8_t partitionType = 0x04;
  std::uint32_t startLba = 1;  // first sector of the volume; a bare volume begins at 0
  std::uint16_t bytesPerSector = 512;
  std::uint8_t sectorsPerCluster = 1;
  std::uint16_t reservedSectors = 1;
  std::uint8_t fatCount = 2;
  std::uint16_t rootEntryCount = 16;
  std::uint16_t sectorsPerFat = 1;
  std::uint32_t clusters = 90;        // data clusters, numbered from 2
  std::uint32_t trailingSectors = 0;  // after the last cluster
  std::string label = "";             // of the boot sector
  std::uint8_t unclaimed = 0xDB;      // fills the data clusters
};

// What a directory slot says beside its name.
struct SlotFields {
  std::uint8_t attributes = 0x20;
  std::uint16_t firstCluster = 0;
  std::uint32_t size = 0;
  std::uint16_t writeTime = 0;
  std::uint16_t writeDate = 0;
};

// Lays out a disk image field by field, with offsets written as literal numbers and nothing of the
// library behind it, so that a wrong constant there cannot cancel itself out here. Data clusters
// that nobody claims hold a byte that would show.
class ImageCrafter {
 public:
  explicit ImageCrafter(VolumeShape volumeShape = {});

  // Chooses where the following slots go: the root, or a directory that begins in `cluster`, whose
  // slots are zeroed when it is first chosen and which goes on along the chain laid out so far.
  ImageCrafter& InRoot();
  ImageCrafter& InCluster(std::uint16_t cluster);

  // One slot each, at the next position of the chosen directory. A name is "BASE.EXT" as shown, or
  // exactly eleven bytes taken raw.
  ImageCrafter& File(std::string_view name, SlotFields fields = {});
  ImageCrafter& Directory(std::string_view name, std::uint16_t firstCluster);
  ImageCrafter& DotEntries(std::uint16_t own, std::uint16_t parent);
  ImageCrafter& Label(std::string_view elevenBytes);
  ImageCrafter& DeletedSlot();
  ImageCrafter& LongNameSlot();
  ImageCrafter& EndSlot();  // first byte 0x00; later slots can follow it
  ImageCrafter& RawSlot(std::string_view elevenBytes, SlotFields fields);

  // Links the clusters in order in every FAT and ends the chain with 0xFFFF.
  ImageCrafter& Chain(const std::vector<std::uint16_t>& clusters);
  ImageCrafter& FatWord(std::uint16_t cluster, std::uint16_t word);  // in every FAT

  ImageCrafter& Fill(std::uint16_t cluster, std::uint8_t value);
  ImageCrafter& Data(std::uint16_t cluster, std::string_view content);  // from the cluster's start

  ImageCrafter& Byte(std::size_t offset, std::uint8_t value);
  ImageCrafter& U16(std::size_t offset, std::uint16_t value);
  ImageCrafter& U32(std::size_t offset, std::uint32_t value);
  ImageCrafter& CutTo(std::size_t length);

  // Where things lie, in bytes from the start of the image.
  std::size_t VolumeOffset() const;
  std::size_t FatOffset(unsigned copy = 0) const;
  std::size_t RootOffset() const;
  std::size_t ClusterOffset(std::uint32_t cluster) const;
  std::size_t ClusterBytes() const;
  std::size_t NextSlotOffset() const;  // where the next slot of the chosen directory goes

  const std::vector<std::uint8_t>& Bytes() const { return image; }

 private:
  void WritePartitionTable();
  void WriteBootSector();

  VolumeShape shape;
  std::vector<std::uint8_t> image;
  std::uint16_t directory = 0;        // first cluster of the chosen directory, 0 for the root
  std::vector<std::size_t> nextSlot;  // per first cluster: slots laid out so far
};

// What puts one slot of a kind at the next position, by the kind's name.
using SlotMaker = std::function<void(ImageCrafter&)>;
const std::map<std::string, SlotMaker>& SlotsOfEveryKind();

// "A.TXT" as the eleven bytes of a slot's name field.
std::string PaddedName(std::string_view name);

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_SUPPORT_IMAGE_CRAFTER_H_

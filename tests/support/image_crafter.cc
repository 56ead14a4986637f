#include "support/image_crafter.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace quorbix::virtdisk::test {
namespace {

constexpr std::size_t kNotChosenYet = static_cast<std::size_t>(-1);

}  // namespace

const std::map<std::string, SlotMaker>& SlotsOfEveryKind() {
  static const std::map<std::string, SlotMaker> kinds = {
      {"file", [](ImageCrafter& image) { image.File("F"); }},
      {"empty directory", [](ImageCrafter& image) { image.Directory("D", 0); }},
      {"deleted", [](ImageCrafter& image) { image.DeletedSlot(); }},
      {"long name", [](ImageCrafter& image) { image.LongNameSlot(); }},
      {"label", [](ImageCrafter& image) { image.Label("LABEL      "); }},
      {"dot", [](ImageCrafter& image) { image.Directory(".          ", 2); }},
      {"blank", [](ImageCrafter& image) { image.RawSlot("        PRO", {}); }},
  };
  return kinds;
}

std::string PaddedName(std::string_view name) {
  if (name.size() == 11) return std::string(name);
  std::string padded(11, ' ');
  const std::size_t dot = name.rfind('.');
  const std::string_view base = name.substr(0, dot);
  const std::string_view extension = dot == std::string_view::npos ? "" : name.substr(dot + 1);
  if (base.size() > 8 || extension.size() > 3) throw std::invalid_argument("not an 8.3 name");
  std::copy(base.begin(), base.end(), padded.begin());
  std::copy(extension.begin(), extension.end(), padded.begin() + 8);
  return padded;
}

ImageCrafter::ImageCrafter(VolumeShape volumeShape)
    : shape(std::move(volumeShape)), nextSlot(65536, kNotChosenYet) {
  if (!shape.partitioned) shape.startLba = 0;
  nextSlot[0] = 0;
  image.assign(ClusterOffset(2), 0);
  image.resize(ClusterOffset(2) + shape.clusters * ClusterBytes() + shape.trailingSectors * 512u,
               shape.unclaimed);
  if (shape.partitioned) WritePartitionTable();
  WriteBootSector();
  FatWord(0, 0xFFF8);
  FatWord(1, 0xFFFF);
}

void ImageCrafter::WritePartitionTable() {
  const std::size_t entry = 446 + 16 * shape.partitionSlot;
  Byte(entry + 4, shape.partitionType);
  U32(entry + 8, shape.startLba);
  U32(entry + 12, static_cast<std::uint32_t>(image.size() / 512) - shape.startLba);
  Byte(510, 0x55);
  Byte(511, 0xAA);
}

void ImageCrafter::WriteBootSector() {
  const std::size_t boot = VolumeOffset();
  const auto sectors = static_cast<std::uint32_t>(image.size() / 512) - shape.startLba;
  std::string label = shape.label;
  label.resize(11, ' ');
  Byte(boot, 0xEB).Byte(boot + 1, 0x3C).Byte(boot + 2, 0x90);
  std::memcpy(&image[boot + 3], "CRAFTED ", 8);
  U16(boot + 11, shape.bytesPerSector);
  Byte(boot + 13, shape.sectorsPerCluster);
  U16(boot + 14, shape.reservedSectors);
  Byte(boot + 16, shape.fatCount);
  U16(boot + 17, shape.rootEntryCount);
  U16(boot + 19, sectors < 65536 ? static_cast<std::uint16_t>(sectors) : std::uint16_t{0});
  Byte(boot + 21, 0xF8);
  U16(boot + 22, shape.sectorsPerFat);
  U32(boot + 28, shape.startLba);
  U32(boot + 32, sectors < 65536 ? 0 : sectors);
  Byte(boot + 38, 0x29);
  U32(boot + 39, 0x1234ABCD);
  std::memcpy(&image[boot + 43], label.data(), 11);
  std::memcpy(&image[boot + 54], "FAT16   ", 8);
  // A bare volume that wants no signature is made so with Byte().
  Byte(boot + 510, 0x55);
  Byte(boot + 511, 0xAA);
}

ImageCrafter& ImageCrafter::InRoot() {
  directory = 0;
  return *this;
}

ImageCrafter& ImageCrafter::InCluster(std::uint16_t cluster) {
  directory = cluster;
  if (nextSlot[cluster] != kNotChosenYet) return *this;
  nextSlot[cluster] = 0;
  return Fill(cluster, 0);
}

std::size_t ImageCrafter::NextSlotOffset() const {
  const std::size_t slot = nextSlot[directory];
  if (directory == 0) return RootOffset() + slot * 32;
  const std::size_t slotsPerCluster = ClusterBytes() / 32;
  std::uint16_t cluster = directory;
  for (std::size_t i = 0; i < slot / slotsPerCluster; ++i) {
    const std::size_t word = FatOffset() + 2u * cluster;
    cluster = static_cast<std::uint16_t>(image[word] | (image[word + 1] << 8));
  }
  return ClusterOffset(cluster) + slot % slotsPerCluster * 32;
}

ImageCrafter& ImageCrafter::RawSlot(std::string_view elevenBytes, SlotFields fields) {
  if (elevenBytes.size() != 11) throw std::invalid_argument("a slot's name has eleven bytes");
  const std::size_t slot = NextSlotOffset();
  if (slot + 32 > image.size()) throw std::out_of_range("slot");
  if (directory != 0 && nextSlot[directory] % (ClusterBytes() / 32) == 0 &&
      nextSlot[directory] != 0) {
    std::fill_n(image.begin() + static_cast<std::ptrdiff_t>(slot), ClusterBytes(), std::uint8_t{0});
  }
  std::memcpy(&image[slot], elevenBytes.data(), 11);
  Byte(slot + 11, fields.attributes);
  U16(slot + 22, fields.writeTime);
  U16(slot + 24, fields.writeDate);
  U16(slot + 26, fields.firstCluster);
  U32(slot + 28, fields.size);
  ++nextSlot[directory];
  return *this;
}

ImageCrafter& ImageCrafter::File(std::string_view name, SlotFields fields) {
  return RawSlot(PaddedName(name), fields);
}

ImageCrafter& ImageCrafter::Directory(std::string_view name, std::uint16_t firstCluster) {
  return RawSlot(PaddedName(name), {.attributes = 0x10, .firstCluster = firstCluster});
}

ImageCrafter& ImageCrafter::DotEntries(std::uint16_t own, std::uint16_t parent) {
  RawSlot(".          ", {.attributes = 0x10, .firstCluster = own});
  return RawSlot("..         ", {.attributes = 0x10, .firstCluster = parent});
}

ImageCrafter& ImageCrafter::Label(std::string_view elevenBytes) {
  return RawSlot(elevenBytes, {.attributes = 0x08});
}

ImageCrafter& ImageCrafter::DeletedSlot() { return RawSlot("\xE5GONE   TXT", {}); }

ImageCrafter& ImageCrafter::LongNameSlot() {
  // Ordinal 1 of 1, then the name's first letters in UTF-16.
  return RawSlot(std::string_view("\x41l\0o\0n\0g\0 \0", 11), {.attributes = 0x0F});
}

ImageCrafter& ImageCrafter::EndSlot() { return RawSlot(std::string(11, '\0'), {.attributes = 0}); }

ImageCrafter& ImageCrafter::Chain(const std::vector<std::uint16_t>& clusters) {
  for (std::size_t i = 0; i < clusters.size(); ++i) {
    FatWord(clusters[i], i + 1 < clusters.size() ? clusters[i + 1] : std::uint16_t{0xFFFF});
  }
  return *this;
}

ImageCrafter& ImageCrafter::FatWord(std::uint16_t cluster, std::uint16_t word) {
  for (unsigned copy = 0; copy < shape.fatCount; ++copy) U16(FatOffset(copy) + 2u * cluster, word);
  return *this;
}

ImageCrafter& ImageCrafter::Fill(std::uint16_t cluster, std::uint8_t value) {
  if (ClusterOffset(cluster) + ClusterBytes() > image.size()) throw std::out_of_range("cluster");
  std::fill_n(image.begin() + static_cast<std::ptrdiff_t>(ClusterOffset(cluster)), ClusterBytes(),
              value);
  return *this;
}

ImageCrafter& ImageCrafter::Data(std::uint16_t cluster, std::string_view content) {
  if (ClusterOffset(cluster) + content.size() > image.size()) throw std::out_of_range("data");
  std::copy(content.begin(), content.end(),
            image.begin() + static_cast<std::ptrdiff_t>(ClusterOffset(cluster)));
  return *this;
}

ImageCrafter& ImageCrafter::Byte(std::size_t offset, std::uint8_t value) {
  image.at(offset) = value;
  return *this;
}

ImageCrafter& ImageCrafter::U16(std::size_t offset, std::uint16_t value) {
  return Byte(offset, static_cast<std::uint8_t>(value & 0xFF))
      .Byte(offset + 1, static_cast<std::uint8_t>(value >> 8));
}

ImageCrafter& ImageCrafter::U32(std::size_t offset, std::uint32_t value) {
  return U16(offset, static_cast<std::uint16_t>(value & 0xFFFF))
      .U16(offset + 2, static_cast<std::uint16_t>(value >> 16));
}

ImageCrafter& ImageCrafter::CutTo(std::size_t length) {
  image.resize(std::min(length, image.size()));
  return *this;
}

std::size_t ImageCrafter::VolumeOffset() const { return std::size_t{shape.startLba} * 512; }

std::size_t ImageCrafter::FatOffset(unsigned copy) const {
  return VolumeOffset() +
         (std::size_t{shape.reservedSectors} + std::size_t{copy} * shape.sectorsPerFat) * 512;
}

std::size_t ImageCrafter::RootOffset() const { return FatOffset(shape.fatCount); }

std::size_t ImageCrafter::ClusterBytes() const { return shape.sectorsPerCluster * 512u; }

std::size_t ImageCrafter::ClusterOffset(std::uint32_t cluster) const {
  const std::size_t rootSectors = (shape.rootEntryCount * 32u + 511) / 512;
  return RootOffset() + rootSectors * 512 + (cluster - 2) * ClusterBytes();
}

}  // namespace quorbix::virtdisk::test

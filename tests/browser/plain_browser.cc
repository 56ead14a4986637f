#include "plain_browser.h"

#include <algorithm>
#include <cstddef>

namespace quorbix::virtdisk::test {
namespace {

std::string Lower(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  }
  return text;
}

std::string Key(std::string path) {
  if (path.empty()) return "/";
  std::replace(path.begin(), path.end(), '\\', '/');
  path = Lower(path);
  if (path[0] != '/') path = "/" + path;
  for (std::size_t at; (at = path.find("//")) != std::string::npos;) path.erase(at, 1);
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

}  // namespace

std::uint64_t PlainBrowser::U16(std::uint64_t offset) const {
  return image.at(offset) + std::uint64_t{256} * image.at(offset + 1);
}

std::uint64_t PlainBrowser::U32(std::uint64_t offset) const {
  return U16(offset) + 65536 * U16(offset + 2);
}

std::string PlainBrowser::Text(std::uint64_t offset, std::size_t width) const {
  std::string text;
  for (std::size_t i = 0; i < width && image.at(offset + i) != 0; ++i) {
    text += static_cast<char>(image.at(offset + i));
  }
  while (!text.empty() && text.back() == ' ') text.pop_back();
  return text;
}

std::uint64_t PlainBrowser::ClusterBytes() const { return info.sectorsPerCluster * 512u; }

std::uint64_t PlainBrowser::ClusterOffset(std::uint16_t cluster) const {
  return info.dataStartSector * std::uint64_t{512} + (cluster - std::uint64_t{2}) * ClusterBytes();
}

std::string PlainBrowser::Load(const std::vector<std::uint8_t>& bytes) {
  image = bytes;
  return Parse();
}

std::string PlainBrowser::Parse() {
  records.clear();
  directories = {"/"};
  info = {};
  visited.clear();
  slotsLeft = image.size() / 32;
  if (image.size() < 512) return "image too small";
  for (std::uint64_t at = 446; U16(510) == 0xAA55 && at < 510 && !info.partitioned; at += 16) {
    const unsigned type = image[at + 4];
    if (type != 1 && type != 4 && type != 6 && type != 14) continue;
    if (U32(at + 8) == 0 || U32(at + 8) * 512 >= image.size()) continue;
    info.partitioned = true;
    info.partitionType = image[at + 4];
    info.partitionStartLba = static_cast<std::uint32_t>(U32(at + 8));
    info.partitionSectorCount = static_cast<std::uint32_t>(U32(at + 12));
    info.volumeOffset = U32(at + 8) * 512;
  }
  const std::uint64_t boot = info.volumeOffset;
  if (boot + 512 > image.size()) return "vbr offset out of range";
  info.bytesPerSector = static_cast<std::uint16_t>(U16(boot + 11));
  info.sectorsPerCluster = image[boot + 13];
  info.reservedSectors = static_cast<std::uint16_t>(U16(boot + 14));
  info.fatCount = image[boot + 16];
  info.rootEntryCount = static_cast<std::uint16_t>(U16(boot + 17));
  info.sectorsPerFat = static_cast<std::uint16_t>(U16(boot + 22));
  info.totalSectors = static_cast<std::uint32_t>(U16(boot + 19) ? U16(boot + 19) : U32(boot + 32));
  info.fileSystemType = Text(boot + 54, 8);
  info.volumeLabel = Text(boot + 43, 11);
  if (info.bytesPerSector != 512 || info.sectorsPerCluster == 0 || info.fatCount == 0 ||
      info.rootEntryCount == 0 || info.sectorsPerFat == 0) {
    return "unsupported or invalid FAT16 BPB";
  }
  info.fatStartSector = info.partitionStartLba + info.reservedSectors;
  info.rootDirStartSector =
      info.fatStartSector + static_cast<std::uint32_t>(info.fatCount * info.sectorsPerFat);
  info.rootDirSectors = static_cast<std::uint32_t>(info.rootEntryCount * 32 + 511) / 512;
  info.dataStartSector = info.rootDirStartSector + info.rootDirSectors;
  if (info.dataStartSector * std::uint64_t{512} > image.size()) {
    return "directory block out of range";
  }
  return WalkSlots(info.rootDirStartSector * std::uint64_t{512},
                   info.rootDirSectors * std::uint64_t{512}, "/");
}

std::string PlainBrowser::Walk(std::uint16_t start, const std::string& parent) {
  if (start == 0 || !visited.insert(start).second) return "";
  std::vector<std::uint16_t> chain;
  const std::string broken = Chain(start, chain);
  if (!broken.empty()) return broken;
  for (const std::uint16_t cluster : chain) {
    const std::string err = WalkSlots(ClusterOffset(cluster), ClusterBytes(), parent);
    if (!err.empty()) return err;
  }
  return "";
}

std::string PlainBrowser::WalkSlots(std::uint64_t offset, std::uint64_t bytes,
                                    const std::string& parent) {
  for (std::uint64_t slot = offset; slot < offset + bytes; slot += 32) {
    if (slotsLeft-- == 0) return "cluster loop detected";
    if (image.at(slot) == 0) return "";
    if (image[slot] == 0xE5 || (image[slot + 11] & 15) == 15 || !Add(slot, parent)) continue;
    const Fat16FsEntry entry = records.back().entry;
    if (!entry.isDirectory) continue;
    const std::string err = Walk(entry.firstCluster, entry.path);
    if (!err.empty()) return err;
  }
  return "";
}

bool PlainBrowser::Add(std::uint64_t slot, const std::string& parent) {
  const std::string extension = Text(slot + 8, 3);
  Record record;
  record.entry.name = Text(slot, 8);
  if (record.entry.name.empty()) return false;
  if (!extension.empty()) record.entry.name += "." + extension;
  if (record.entry.name == "." || record.entry.name == "..") return false;
  if ((image[slot + 11] & 0x18) == 8) {
    if (info.volumeLabel.empty()) info.volumeLabel = record.entry.name;
    return false;
  }
  record.entry.path = (parent == "/" ? "" : parent) + "/" + record.entry.name;
  record.entry.attributes = image[slot + 11];
  record.entry.isDirectory = (image[slot + 11] & 16) != 0;
  record.entry.writeTime = static_cast<std::uint16_t>(U16(slot + 22));
  record.entry.writeDate = static_cast<std::uint16_t>(U16(slot + 24));
  record.entry.firstCluster = static_cast<std::uint16_t>(U16(slot + 26));
  record.entry.size = static_cast<std::uint32_t>(U32(slot + 28));
  record.pathKey = Key(record.entry.path);
  record.parentKey = Key(parent);
  record.slotOffset = slot;
  std::vector<std::uint16_t> chain;
  if (Chain(record.entry.firstCluster, chain).empty()) {
    record.allocatedBytes = chain.size() * ClusterBytes();
  }
  if (record.entry.isDirectory) directories.insert(record.pathKey);
  records.push_back(record);
  return true;
}

std::string PlainBrowser::Chain(std::uint16_t start, std::vector<std::uint16_t>& chain) const {
  std::set<std::uint16_t> taken;
  chain.clear();
  if (start < 2 || start >= 0xFFF8) return "";
  for (std::uint16_t cluster = start;;) {
    if (!taken.insert(cluster).second) return "cluster loop detected";
    if (ClusterOffset(cluster) + ClusterBytes() > image.size()) {
      return "cluster offset out of range";
    }
    chain.push_back(cluster);
    const std::uint64_t word = info.fatStartSector * std::uint64_t{512} + cluster * 2u;
    if (word + 1 >= image.size()) return "";
    cluster = static_cast<std::uint16_t>(U16(word));
    if (cluster < 2 || cluster >= 0xFFF8) return "";
  }
}

std::string PlainBrowser::List(const std::string& path, std::vector<Fat16FsEntry>& results) const {
  results.clear();
  const std::string key = Key(path);
  if (directories.count(key) == 0) return "directory not found";
  for (const Record& record : records) {
    if (record.parentKey == key) results.push_back(record.entry);
  }
  std::stable_sort(results.begin(), results.end(), [](const auto& a, const auto& b) {
    return a.isDirectory != b.isDirectory ? a.isDirectory : a.path < b.path;
  });
  return "";
}

std::string PlainBrowser::Search(const std::string& query,
                                 std::vector<Fat16FsEntry>& results) const {
  results.clear();
  if (query.empty()) return "empty query";
  const std::string needle = Lower(query);
  for (const Record& record : records) {
    const bool inPath = Lower(record.entry.path).find(needle) != std::string::npos;
    const bool inName = Lower(record.entry.name).find(needle) != std::string::npos;
    if (inPath || inName) results.push_back(record.entry);
  }
  std::stable_sort(results.begin(), results.end(),
                   [](const auto& a, const auto& b) { return a.path < b.path; });
  return "";
}

const PlainBrowser::Record* PlainBrowser::Find(const std::string& path) const {
  const std::string key = Key(path);
  for (const Record& record : records) {
    if (record.pathKey == key) return &record;
  }
  return nullptr;
}

std::string PlainBrowser::Read(const std::string& path, std::vector<std::uint8_t>& content) const {
  content.clear();
  const Record* record = Find(path);
  if (record == nullptr) return "file not found";
  if (record->entry.isDirectory) return "path is a directory";
  if (record->entry.size == 0) return "";
  std::vector<std::uint16_t> chain;
  const std::string broken = Chain(record->entry.firstCluster, chain);
  if (!broken.empty()) return broken;
  for (const std::uint16_t cluster : chain) {
    for (std::uint64_t i = 0; i < ClusterBytes() && content.size() < record->entry.size; ++i) {
      content.push_back(image.at(ClusterOffset(cluster) + i));
    }
  }
  return "";
}

std::string PlainBrowser::Write(const std::string& path, const std::vector<std::uint8_t>& content) {
  const Record* record = Find(path);
  if (record == nullptr) return "file not found";
  if (record->entry.isDirectory) return "path is a directory";
  if (content.size() > record->allocatedBytes) {
    return "new file content exceeds allocated cluster chain";
  }
  std::vector<std::uint16_t> chain;
  const std::string broken = Chain(record->entry.firstCluster, chain);
  if (!broken.empty()) return broken;
  for (std::uint64_t i = 0; i < chain.size() * ClusterBytes(); ++i) {
    const std::uint64_t offset = ClusterOffset(chain[i / ClusterBytes()]) + i % ClusterBytes();
    image.at(offset) = i < content.size() ? content[i] : std::uint8_t{0};
  }
  for (unsigned i = 0; i < 4; ++i) {
    image.at(record->slotOffset + 28 + i) = static_cast<std::uint8_t>(content.size() >> (8 * i));
  }
  return Parse();
}

}  // namespace quorbix::virtdisk::test

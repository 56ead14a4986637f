#include "support/guest_editor.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "support/image_crafter.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::test {
namespace fs = std::filesystem;

namespace {

constexpr std::size_t kNone = static_cast<std::size_t>(-1);
constexpr std::uint16_t kSomeDate = (44 << 9) | (5 << 5) | 17;  // 17 May 2024
constexpr std::uint16_t kSomeTime = (12 << 11) | (34 << 5) | 28;

std::vector<std::uint8_t> LoadImage(const fs::path& path) {
  std::vector<std::uint8_t> bytes(fs::file_size(path));
  std::ifstream in(path, std::ios::binary);
  in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  if (!in) throw std::runtime_error("cannot read " + path.string());
  return bytes;
}

// Two saves within one tick of the system's file clock must still look like two.
fs::file_time_type NextModificationTime() {
  static fs::file_time_type last = fs::file_time_type::min();
  last = std::max(fs::file_time_type::clock::now(), last + std::chrono::milliseconds(1));
  return last;
}

std::string_view WithoutPadding(std::string_view text) {
  return text.substr(0, text.find_last_not_of(' ') + 1);
}

// As a reader shows it: base, and extension after a dot. Blanks inside either belong to it.
std::string ShownName(std::string_view eleven) {
  const std::string_view extension = WithoutPadding(eleven.substr(8));
  std::string name(WithoutPadding(eleven.substr(0, 8)));
  if (!extension.empty()) name.append(".").append(extension);
  return name;
}

}  // namespace

GuestEditor::GuestEditor(fs::path path) : imagePath(std::move(path)), image(LoadImage(imagePath)) {
  const std::size_t boot = U32(446 + 8) * 512;
  clusterBytes = image.at(boot + 13) * 512u;
  fatOffset = boot + U16(boot + 14) * 512;
  fatBytes = U16(boot + 22) * 512;
  rootOffset = fatOffset + image.at(boot + 16) * fatBytes;
  rootSlots = U16(boot + 17);
  dataOffset = rootOffset + rootSlots * 32;
  const std::size_t sectors = U16(boot + 19) != 0 ? U16(boot + 19) : U32(boot + 32);
  clusterEnd = 2 + (boot + sectors * 512 - dataOffset) / clusterBytes;
  if (image.at(boot + 16) != 2) throw std::invalid_argument("the guest knows two FATs only");
}

bool GuestEditor::Write(std::string_view path, std::string_view content) {
  const std::vector<std::uint8_t> before = image;
  if (Store(path, content)) return true;
  image = before;
  return false;
}

bool GuestEditor::Append(std::string_view path, std::string_view content) {
  Place place;
  if (!Locate(path, place)) return false;
  const std::size_t slot = FindSlot(place);
  if (slot == kNone) return false;
  return Write(path, Content(slot).append(content));
}

bool GuestEditor::MakeFolder(std::string_view path) {
  const std::vector<std::uint8_t> before = image;
  Place place;
  if (!Locate(path, place) || FindSlot(place) != kNone) return false;
  const std::size_t cluster = Allocate();
  const std::size_t slot = cluster == 0 ? kNone : TakeSlot(place);
  if (slot == kNone) {
    image = before;
    return false;
  }
  const std::size_t offset = ClusterOffset(cluster);
  std::fill_n(&image[offset], clusterBytes, std::uint8_t{0});
  std::copy_n(".          ", 11, &image[offset]);
  std::copy_n("..         ", 11, &image[offset + 32]);
  image[offset + 11] = image[offset + 32 + 11] = image[slot + 11] = 0x10;
  PutU16(offset + 26, cluster);
  PutU16(offset + 32 + 26, place.directory);
  PutU16(slot + 26, cluster);
  return true;
}

bool GuestEditor::Remove(std::string_view path) {
  Place place;
  if (!Locate(path, place)) return false;
  const std::size_t slot = FindSlot(place);
  if (slot == kNone || ((image[slot + 11] & 0x10) != 0 && !IsEmptyFolder(slot))) return false;
  Resize(slot, 0);
  image[slot] = 0xE5;
  return true;
}

bool GuestEditor::Rename(std::string_view path, std::string_view newName) {
  Place place;
  if (!Locate(path, place)) return false;
  const std::size_t slot = FindSlot(place);
  const std::string padded = PaddedName(newName);
  if (slot == kNone || FindSlot({place.directory, padded}) != kNone) return false;
  std::copy(padded.begin(), padded.end(), &image[slot]);
  return true;
}

bool GuestEditor::SetStamp(std::string_view path, std::uint16_t date, std::uint16_t time) {
  Place place;
  if (!Locate(path, place)) return false;
  const std::size_t slot = FindSlot(place);
  if (slot == kNone) return false;
  PutU16(slot + 22, time);
  PutU16(slot + 24, date);
  return true;
}

std::map<std::string, std::string> GuestEditor::Files() const {
  std::map<std::string, std::string> files;
  Collect(0, "", files);
  return files;
}

bool GuestEditor::Exists(std::string_view path) const {
  Place place;
  return Locate(path, place) && FindSlot(place) != kNone;
}

std::size_t GuestEditor::FreeClusters() const {
  std::size_t count = 0;
  for (std::size_t cluster = 2; cluster < clusterEnd; ++cluster) {
    if (U16(fatOffset + cluster * 2) == 0) ++count;
  }
  return count;
}

void GuestEditor::Save() const {
  WriteBytes(imagePath, image);
  fs::last_write_time(imagePath, NextModificationTime());
}

std::size_t GuestEditor::U16(std::size_t offset) const {
  return image.at(offset) | (std::size_t{image.at(offset + 1)} << 8);
}

std::size_t GuestEditor::U32(std::size_t offset) const {
  return U16(offset) | (U16(offset + 2) << 16);
}

void GuestEditor::PutU16(std::size_t offset, std::size_t value) {
  image.at(offset) = static_cast<std::uint8_t>(value & 0xFF);
  image.at(offset + 1) = static_cast<std::uint8_t>(value >> 8 & 0xFF);
}

void GuestEditor::PutU32(std::size_t offset, std::size_t value) {
  PutU16(offset, value & 0xFFFF);
  PutU16(offset + 2, value >> 16);
}

std::size_t GuestEditor::ClusterOffset(std::size_t cluster) const {
  return dataOffset + (cluster - 2) * clusterBytes;
}

std::vector<std::uint16_t> GuestEditor::Chain(std::size_t first) const {
  std::vector<std::uint16_t> chain;
  for (std::size_t cluster = first; cluster >= 2 && cluster < 0xFFF8;
       cluster = U16(fatOffset + cluster * 2)) {
    if (cluster >= clusterEnd || chain.size() > clusterEnd) throw std::runtime_error("bad chain");
    chain.push_back(static_cast<std::uint16_t>(cluster));
  }
  return chain;
}

void GuestEditor::Link(const std::vector<std::uint16_t>& chain) {
  for (std::size_t i = 0; i < chain.size(); ++i) {
    const std::size_t next = i + 1 < chain.size() ? chain[i + 1] : 0xFFFF;
    PutU16(fatOffset + chain[i] * 2u, next);
    PutU16(fatOffset + fatBytes + chain[i] * 2u, next);
  }
}

// Takes the lowest free cluster and marks it as the end of a chain; 0 when the disk is full.
std::size_t GuestEditor::Allocate() {
  for (std::size_t cluster = 2; cluster < clusterEnd; ++cluster) {
    if (U16(fatOffset + cluster * 2) != 0) continue;
    Link({static_cast<std::uint16_t>(cluster)});
    return cluster;
  }
  return 0;
}

bool GuestEditor::Resize(std::size_t slot, std::size_t clusters) {
  std::vector<std::uint16_t> chain = Chain(U16(slot + 26));
  while (chain.size() > clusters) {
    PutU16(fatOffset + chain.back() * 2u, 0);
    PutU16(fatOffset + fatBytes + chain.back() * 2u, 0);
    chain.pop_back();
  }
  while (chain.size() < clusters) {
    const std::size_t cluster = Allocate();
    if (cluster == 0) return false;
    chain.push_back(static_cast<std::uint16_t>(cluster));
  }
  Link(chain);
  PutU16(slot + 26, chain.empty() ? 0 : chain.front());
  return true;
}

std::vector<std::size_t> GuestEditor::Slots(std::uint16_t directory) const {
  std::vector<std::size_t> slots;
  const auto add = [&](std::size_t offset, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) slots.push_back(offset + i * 32);
  };
  if (directory == 0) add(rootOffset, rootSlots);
  for (const std::uint16_t cluster : Chain(directory)) {
    add(ClusterOffset(cluster), clusterBytes / 32);
  }
  return slots;
}

std::size_t GuestEditor::FindSlot(const Place& place) const {
  for (const std::size_t slot : Slots(place.directory)) {
    if (image[slot] == 0x00) break;
    const bool counts = image[slot] != 0xE5 && (image[slot + 11] & 0x08) == 0;
    const auto isSame = [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; };
    if (counts && std::equal(place.name.begin(), place.name.end(), &image[slot], isSame)) {
      return slot;
    }
  }
  return kNone;
}

// The slot comes zeroed but for its name; kNone when neither slot nor cluster is left.
std::size_t GuestEditor::TakeSlot(const Place& place) {
  std::vector<std::size_t> slots = Slots(place.directory);
  const auto isFree = [&](std::size_t slot) { return image[slot] == 0 || image[slot] == 0xE5; };
  auto found = std::find_if(slots.begin(), slots.end(), isFree);
  if (found == slots.end()) {
    const std::size_t cluster = place.directory == 0 ? 0 : Allocate();
    if (cluster == 0) return kNone;
    std::fill_n(&image[ClusterOffset(cluster)], clusterBytes, std::uint8_t{0});
    std::vector<std::uint16_t> chain = Chain(place.directory);
    chain.push_back(static_cast<std::uint16_t>(cluster));
    Link(chain);
    slots = {ClusterOffset(cluster)};
    found = slots.begin();
  }
  std::fill_n(&image[*found], 32, std::uint8_t{0});
  std::copy(place.name.begin(), place.name.end(), &image[*found]);
  return *found;
}

bool GuestEditor::Locate(std::string_view path, Place& place) const {
  std::uint16_t directory = 0;
  for (std::size_t slash; (slash = path.find('/')) != std::string_view::npos;
       path.remove_prefix(slash + 1)) {
    const std::size_t slot = FindSlot({directory, PaddedName(path.substr(0, slash))});
    if (slot == kNone || (image[slot + 11] & 0x10) == 0) return false;
    directory = static_cast<std::uint16_t>(U16(slot + 26));
  }
  place = {directory, PaddedName(path)};
  return true;
}

std::string GuestEditor::Content(std::size_t slot) const {
  std::string content;
  for (const std::uint16_t cluster : Chain(U16(slot + 26))) {
    const auto begin = image.begin() + static_cast<std::ptrdiff_t>(ClusterOffset(cluster));
    content.append(begin, begin + static_cast<std::ptrdiff_t>(clusterBytes));
  }
  content.resize(std::min(content.size(), U32(slot + 28)));
  return content;
}

bool GuestEditor::Store(std::string_view path, std::string_view content) {
  Place place;
  if (!Locate(path, place)) return false;
  std::size_t slot = FindSlot(place);
  if (slot == kNone) slot = TakeSlot(place);
  if (slot == kNone || (image[slot + 11] & 0x10) != 0) return false;
  image[slot + 11] = 0x20;
  if (!Resize(slot, (content.size() + clusterBytes - 1) / clusterBytes)) return false;
  PutU16(slot + 22, kSomeTime);
  PutU16(slot + 24, kSomeDate);
  PutU32(slot + 28, content.size());
  for (const std::uint16_t cluster : Chain(U16(slot + 26))) {
    const std::string_view part = content.substr(0, clusterBytes);
    std::copy(part.begin(), part.end(), &image[ClusterOffset(cluster)]);
    content.remove_prefix(part.size());
  }
  return true;
}

bool GuestEditor::IsEmptyFolder(std::size_t slot) const {
  for (const std::size_t entry : Slots(static_cast<std::uint16_t>(U16(slot + 26)))) {
    if (image[entry] == 0x00) break;
    if (image[entry] != 0xE5 && image[entry] != '.') return false;
  }
  return true;
}

void GuestEditor::Collect(std::uint16_t directory, const std::string& prefix,
                          std::map<std::string, std::string>& files) const {
  for (const std::size_t slot : Slots(directory)) {
    if (image[slot] == 0x00) break;
    if (image[slot] == 0xE5 || image[slot] == '.' || (image[slot + 11] & 0x08) != 0) continue;
    const std::string path = prefix + ShownName({reinterpret_cast<const char*>(&image[slot]), 11});
    if ((image[slot + 11] & 0x10) != 0) {
      Collect(static_cast<std::uint16_t>(U16(slot + 26)), path + "/", files);
    } else {
      files[path] = Content(slot);
    }
  }
}

}  // namespace quorbix::virtdisk::test

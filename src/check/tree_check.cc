#include "check/tree_check.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "browser/entry_record.h"
#include "common/ascii.h"
#include "common/byte_order.h"

namespace quorbix::virtdisk::internal {
namespace {

constexpr std::uint64_t kMostSlots = 65536;  // of a directory, elsewhere
constexpr std::uint32_t kRoot = 0;
constexpr std::uint8_t kStandsForE5 = 0x05;  // as the first byte of a name
constexpr std::string_view kCut = "...";

constexpr std::string_view kDotName = ".          ";
constexpr std::string_view kDotDotName = "..         ";

std::string_view NameField(const std::uint8_t* slot) {
  return {reinterpret_cast<const char*>(slot), dir_entry::kNameSize};
}

bool IsDirectorySlot(const std::uint8_t* slot) {
  return (slot[dir_entry::kAttributes] & dir_entry::kAttrDirectory) != 0;
}

// As a listing shows it; a blank base gives what is left.
std::string ShownName(const std::uint8_t* slot) {
  std::string name = SlotName(slot);
  if (!name.empty()) return name;
  name.assign(1, '.');
  name.append(slot + dir_entry::kExtension, slot + dir_entry::kNameSize);
  while (name.ends_with(' ')) name.pop_back();
  return name;
}

bool IsUnusableByte(std::uint8_t byte) {
  return byte < ' ' || byte == 0x7F ||
         std::string_view("\"*./:<>?\\|").find(static_cast<char>(byte)) != std::string_view::npos;
}

// In any letter case.
template <class Name>
bool ComesBefore(const Name& a, const Name& b) {
  return std::lexicographical_compare(
      a.begin(), a.end(), b.begin(), b.end(), [](std::uint8_t x, std::uint8_t y) {
        return ToAsciiUpper(static_cast<char>(x)) < ToAsciiUpper(static_cast<char>(y));
      });
}

bool IsOddLabelByte(std::uint8_t byte) {
  return byte < ' ' || byte >= 0x80 ||
         std::string_view("\"*+,./:;<=>?[\\]|").find(static_cast<char>(byte)) !=
             std::string_view::npos;
}

}  // namespace

bool IsUnusableName(const std::uint8_t* slot) {
  const std::size_t first = slot[0] == kStandsForE5 ? 1 : 0;
  return std::any_of(slot + first, slot + dir_entry::kNameSize, IsUnusableByte);
}

// Breadth first: the nodes are the list of what is still to be read.
bool TreeCheck::Run(std::string& err) {
  nodes.assign(1, Node{.isDirectory = true});
  for (std::uint32_t number = 0; number < nodes.size(); ++number) {
    if (nodes[number].isDirectory && !ReadDirectory(number, err)) return false;
  }
  return true;
}

bool TreeCheck::ReadDirectory(std::uint32_t number, std::string& err) {
  Place place;
  place.number = number;
  bool ended = false;
  if (number == kRoot) {
    const std::uint64_t offset = std::uint64_t{info.rootDirStartSector} * kSectorBytes;
    if (!ReadBlock(place, offset, std::uint64_t{info.rootDirSectors} * kSectorBytes, ended, err)) {
      return false;
    }
  }
  const std::uint32_t clusters = nodes[number].clusters;
  std::uint32_t cluster = nodes[number].start;
  for (std::uint32_t i = 0; i < clusters; ++i, cluster = fat.Word(cluster)) {
    // The readers go on in the next cluster, whatever this one ends with.
    ended = false;
    if (!ReadBlock(place, fat.ClusterOffset(cluster), fat.ClusterBytes(), ended, err)) return false;
  }
  EndDirectory(place);
  return true;
}

bool TreeCheck::ReadBlock(Place& place, std::uint64_t offset, std::uint64_t bytes, bool& ended,
                          std::string& err) {
  std::vector<std::uint8_t> buffer;
  const std::uint8_t* block = image.Read(offset, static_cast<std::size_t>(bytes), buffer, err);
  if (block == nullptr) return false;
  for (std::uint64_t at = 0; at < bytes && !ended; at += dir_entry::kSize) {
    ended = block[at] == dir_entry::kNeverUsed;
    if (!ended) CheckSlot(place, block + at);
  }
  return true;
}

void TreeCheck::EndDirectory(Place& place) {
  const auto path = [&] { return PathOf(place.number); };
  if (place.number != kRoot) {
    if (!place.hasDot) findings.AddFor(path, FindingKind::kNoDot);
    if (!place.hasDotDot) findings.AddFor(path, FindingKind::kNoDotDot);
  }
  if (place.slots > kMostSlots) {
    findings.AddFor(path, FindingKind::kDirectoryTooLong, {place.slots});
  }
  TellDuplicates(place);
}

void TreeCheck::CheckSlot(Place& place, const std::uint8_t* slot) {
  const std::uint64_t number = place.slots++;
  if (IsSkippedSlot(slot)) return;
  if (place.number != kRoot && number < 2 && TakeDotSlot(place, number, slot)) return;
  if (IsVolumeLabel(slot)) {
    if (place.number == kRoot && !std::exchange(hasLabel, true)) CheckLabel(slot);
    return;
  }
  CheckEntry(place, slot);
}

void TreeCheck::CheckLabel(const std::uint8_t* slot) {
  const std::string_view label = NameField(slot);
  const bool isBlank = label.find_first_not_of(' ') == std::string_view::npos;
  const auto* odd = std::find_if(slot, slot + label.size(), IsOddLabelByte);
  if (slot[0] == ' ') odd = slot;
  if (odd != slot + label.size()) findings.Add(FindingKind::kOddLabel, {*odd, isBlank ? 1U : 0U});
}

bool TreeCheck::TakeDotSlot(Place& place, std::uint64_t number, const std::uint8_t* slot) {
  const bool isSecond = number == 1;
  if (!IsDirectorySlot(slot) || NameField(slot) != (isSecond ? kDotDotName : kDotName)) {
    return false;
  }
  const Node& directory = nodes[place.number];
  const std::uint16_t start = LoadU16(slot + dir_entry::kFirstCluster);
  const std::uint16_t wanted = isSecond ? nodes[directory.parent].start : directory.start;
  (isSecond ? place.hasDotDot : place.hasDot) = true;
  if (start == wanted) return true;
  findings.AddFor([&] { return PathOf(place.number); },
                  isSecond ? FindingKind::kDotDotElsewhere : FindingKind::kDotElsewhere,
                  {start, wanted});
  return true;
}

void TreeCheck::CheckEntry(Place& place, const std::uint8_t* slot) {
  Node node;
  node.parent = place.number;
  node.start = LoadU16(slot + dir_entry::kFirstCluster);
  node.isDirectory = IsDirectorySlot(slot);
  std::copy_n(slot, node.name.size(), node.name.begin());
  const bool isBlank = SlotName(slot).empty();
  node.isHidden = isBlank || nodes[place.number].isHidden;

  ++(node.isDirectory ? counts.directories : counts.files);
  if (node.isHidden) ++counts.hiddenEntries;
  const auto path = [&] { return PathOf(node); };
  if (isBlank) {
    findings.AddFor(path, FindingKind::kHiddenEntry);
  } else if (slot[0] == ' ') {
    findings.AddFor(path, FindingKind::kLeadingBlank);
  }
  if (place.names.size() < kMostSlots) place.names.push_back(node.name);
  const bool isDot = NameField(slot) == kDotName || NameField(slot) == kDotDotName;
  // Of a file in the root they are no directory's names for itself and for that above.
  const bool leadsBack = isDot && (place.number != kRoot || node.isDirectory);
  if (IsUnusableName(slot)) findings.AddFor(path, FindingKind::kUnusableName);
  if (!leadsBack) CheckChain(node, LoadU32(slot + dir_entry::kFileSize));
}

void TreeCheck::CheckChain(const Node& node, std::uint32_t size) {
  const auto path = [&] { return PathOf(node); };
  if (node.isDirectory && size != 0) {
    findings.AddFor(path, FindingKind::kDirectoryWithSize, {size});
  }
  if (node.start == 0) {
    if (node.isDirectory) findings.AddFor(path, FindingKind::kDirectoryWithoutChain);
    if (!node.isDirectory && size > 0) {
      findings.AddFor(path, FindingKind::kChainTooShort, {0, size});
    }
    return;
  }
  const auto number = static_cast<std::uint32_t>(nodes.size());
  const ClusterClaims::Chain chain = claims.Take(node.start, number);
  if (chain.clusters > 0) {
    nodes.push_back(node);
    nodes.back().clusters = chain.clusters;
    if (foundClusters) foundClusters(chain.clusters, counts.usedClusters);
  }
  if (chain.end == ClusterClaims::End::kTaken) {
    NoteMeeting(node.start);
    NoteMeeting(nodes[chain.other].start);
  }
  if (chain.end != ClusterClaims::End::kMarked) return TellBreak(node, chain);
  if (!node.isDirectory) TellLength(node, chain.clusters, size);
}

void TreeCheck::NoteMeeting(std::uint16_t firstCluster) {
  meetings.resize(fat.End());
  meetings[firstCluster] = true;
}

void TreeCheck::TellLength(const Node& node, std::uint64_t clusters, std::uint64_t size) {
  const auto path = [&] { return PathOf(node); };
  const std::uint64_t needed = (size + fat.ClusterBytes() - 1) / fat.ClusterBytes();
  if (clusters < needed) {
    findings.AddFor(path, FindingKind::kChainTooShort, {clusters * fat.ClusterBytes(), size});
  } else if (clusters > needed) {
    findings.AddFor(path, FindingKind::kChainTooLong, {clusters, needed});
  }
}

void TreeCheck::TellBreak(const Node& node, const ClusterClaims::Chain& chain) {
  const auto path = [&] { return PathOf(node); };
  switch (chain.end) {
    case ClusterClaims::End::kMarked:
      return;
    case ClusterClaims::End::kBadStart:
      return findings.AddFor(path, FindingKind::kBadStart, {chain.at});
    case ClusterClaims::End::kLoop:
      return findings.AddFor(path, FindingKind::kChainLoops, {chain.at});
    case ClusterClaims::End::kOutside:
      return findings.AddFor(path, FindingKind::kChainLeavesVolume, {chain.at, chain.last});
    case ClusterClaims::End::kFree:
      return findings.AddFor(path, FindingKind::kChainHitsFree, {chain.at});
    case ClusterClaims::End::kBad:
      return findings.AddFor(path, FindingKind::kChainHitsBad, {chain.at});
    case ClusterClaims::End::kTaken:
      return findings.AddFor(path, [&] { return PathOf(chain.other); },
                             FindingKind::kChainMeetsAnother, {chain.at});
  }
}

void TreeCheck::TellDuplicates(Place& place) {
  std::vector<RawName>& names = place.names;
  std::stable_sort(names.begin(), names.end(), ComesBefore<RawName>);
  for (auto first = names.begin(); first != names.end();) {
    const auto next = std::upper_bound(first, names.end(), *first, ComesBefore<RawName>);
    if (next - first > 1) {
      const Node node{.parent = place.number, .name = *first};
      findings.AddFor([&] { return PathOf(node); }, FindingKind::kDuplicateName,
                      {static_cast<std::uint64_t>(next - first)});
    }
    first = next;
  }
}

std::string TreeCheck::PathOf(std::uint32_t number) const {
  return number == kRoot ? "/" : PathOf(nodes[number]);
}

// From the entry up to the root, as far as there is room.
std::string TreeCheck::PathOf(const Node& node) const {
  std::string path;
  for (const Node* part = &node; part != &nodes[kRoot]; part = &nodes[part->parent]) {
    std::string longer(1, '/');
    path = longer.append(ShownName(part->name.data())).append(path);
    if (path.size() <= CheckReport::kMostPathBytes) continue;
    const std::size_t cut = path.size() - CheckReport::kMostPathBytes;
    return std::string(kCut).append(path, cut);
  }
  return path;
}

}  // namespace quorbix::virtdisk::internal

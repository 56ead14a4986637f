#include "browser/chain_table.h"

#include <algorithm>

#include "browser/release_slack.h"
#include "common/byte_order.h"
#include "common/fail.h"
#include "common/fat_words.h"
#include "fat16/volume_layout.h"

namespace quorbix::virtdisk::internal {
namespace {

constexpr std::string_view kClusterOutOfRange = "cluster offset out of range";

// Values of `lengths` that are no length. The longest chain takes each cluster from 2 to 0xFFF7
// once, which stays below them.
constexpr std::uint16_t kNotMeasured = 0;
constexpr std::uint16_t kBeingMeasured = 0xFFFD;
constexpr std::uint16_t kLoops = 0xFFFE;
constexpr std::uint16_t kLeavesImage = 0xFFFF;
static_assert(fat::kFirstEndOfChain - fat::kFirstCluster < kBeingMeasured);

constexpr bool IsBroken(std::uint16_t length) { return length == kLoops || length == kLeavesImage; }

}  // namespace

void ChainTable::Clear() noexcept {
  words = nullptr;
  wordsBytes = 0;
  buffer.clear();
  lengths.clear();
}

// Every cluster has one successor, so each is followed once, whatever number of entries lead to it.
bool ChainTable::Measure(ByteSource& image, const Fat16FsInfo& info, std::string& err) {
  Clear();
  dataOffset = std::uint64_t{info.dataStartSector} * info.bytesPerSector;
  clusterBytes = std::uint64_t{info.sectorsPerCluster} * info.bytesPerSector;
  const std::uint64_t dataBytes = image.Size() - std::min(dataOffset, image.Size());
  const std::uint64_t end =
      std::min<std::uint64_t>(fat::kFirstCluster + dataBytes / clusterBytes, fat::kFirstEndOfChain);
  lengths.assign(static_cast<std::size_t>(end), kNotMeasured);
  const std::uint64_t fatOffset = std::uint64_t{info.fatStartSector} * info.bytesPerSector;
  if (!TakeWords(image, fatOffset, err)) {
    Clear();
    return false;
  }
  for (std::size_t start = fat::kFirstCluster; start < lengths.size(); ++start) {
    MeasureChain(static_cast<std::uint16_t>(start));
  }
  return true;
}

// A FAT may run over into whatever lies behind it, and the image may end before the FAT does.
bool ChainTable::TakeWords(ByteSource& image, std::uint64_t fatOffset, std::string& err) {
  if (fatOffset >= image.Size()) return true;
  const std::uint64_t wanted = std::uint64_t{lengths.size()} * fat::kWordBytes;
  const auto size = static_cast<std::size_t>(std::min(wanted, image.Size() - fatOffset));
  words = image.Read(fatOffset, size, buffer, err);
  if (words == nullptr) return false;
  wordsBytes = size;
  return true;
}

void ChainTable::MeasureChain(std::uint16_t start) {
  std::uint16_t unmeasured = 0;  // clusters from `start` on that have no length yet
  std::uint16_t rest = 0;        // what the chain after them comes to
  for (std::uint16_t cluster = start; cluster != kNoNextCluster; cluster = Next(cluster)) {
    if (cluster >= lengths.size()) {
      rest = kLeavesImage;
      break;
    }
    if (lengths[cluster] != kNotMeasured) {
      rest = lengths[cluster] == kBeingMeasured ? kLoops : lengths[cluster];
      break;
    }
    lengths[cluster] = kBeingMeasured;
    ++unmeasured;
  }
  for (std::uint16_t cluster = start; unmeasured > 0; --unmeasured) {
    const int length = rest + unmeasured;
    lengths[cluster] = IsBroken(rest) ? rest : static_cast<std::uint16_t>(length);
    cluster = Next(cluster);
  }
}

bool ChainTable::Check(std::uint16_t start, std::string& err) const {
  if (!fat::LeadsToCluster(start)) return true;
  if (start >= lengths.size() || lengths[start] == kLeavesImage) {
    return Fail(err, kClusterOutOfRange);
  }
  return lengths[start] != kLoops || Fail(err, kClusterLoop);
}

std::uint64_t ChainTable::Length(std::uint16_t start) const {
  if (start < fat::kFirstCluster || start >= lengths.size()) return 0;
  return IsBroken(lengths[start]) ? 0 : lengths[start];
}

bool ChainTable::Collect(std::uint16_t start, std::vector<std::uint16_t>& chain,
                         std::string& err) const {
  chain.clear();
  if (!Check(start, err)) return false;
  chain.resize(static_cast<std::size_t>(Length(start)));
  for (std::uint16_t& cluster : chain) {
    cluster = start;
    start = Next(start);
  }
  return true;
}

std::uint16_t ChainTable::Next(std::uint16_t cluster) const {
  const std::size_t offset = std::size_t{cluster} * fat::kWordBytes;
  if (offset + 1 >= wordsBytes) return kNoNextCluster;
  const std::uint16_t word = LoadU16(words + offset);
  return fat::LeadsToCluster(word) ? word : kNoNextCluster;
}

std::uint64_t ChainTable::ClusterOffset(std::uint16_t cluster) const {
  return dataOffset + (std::uint64_t{cluster} - fat::kFirstCluster) * clusterBytes;
}

void ChainTable::ReleaseSlack() { internal::ReleaseSlack(lengths); }

}  // namespace quorbix::virtdisk::internal

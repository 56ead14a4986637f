#include "builder/image_target.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>

#include "builder/file_reading.h"
#include "common/host_file.h"

namespace quorbix::virtdisk::internal {
namespace {

constexpr std::uint64_t kLargestFile = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint64_t kWorthReadingIntoPlace = std::uint64_t{1} << 20;
constexpr std::size_t kPieceTold = std::size_t{4} << 20;

}  // namespace

std::uint32_t ImageTarget::AddDirectory(const PlacedEntry& entry) {
  return image.AddDirectory(ClusterOf(entry.directory), entry.shortName, err);
}

PopulationTarget::FileResult ImageTarget::AddFile(const PlacedEntry& entry) {
  struct ::stat status;
  const Descriptor file = OpenRegularFile(entry.path.c_str(), status);
  if (!file) return FileResult::kUnreadable;
  const auto expected = static_cast<std::uint64_t>(status.st_size);
  if (expected >= kWorthReadingIntoPlace && expected <= kLargestFile) {
    const auto size = static_cast<std::uint32_t>(expected);
    if (const auto chain = ReadIntoPlace(file.Get(), size)) {
      const std::uint16_t added =
          image.AddTakenFile(ClusterOf(entry.directory), entry.shortName, *chain, size, err);
      return added != 0 ? FileResult::kAdded : FileResult::kFull;
    }
    ::lseek(file.Get(), 0, SEEK_SET);
  }
  if (ReadOpenedFile(file.Get(), expected, content, image.DataBytes()) != kReadWhole) {
    return FileResult::kUnreadable;
  }
  Tell(content.size());
  return AddContent(entry);
}

void ImageTarget::Skip(const std::filesystem::path& path, const std::string& reason) {
  skipped.push_back(path.string() + " [" + reason + "]");
}

PopulationTarget::FileResult ImageTarget::AddContent(const PlacedEntry& entry) {
  const auto size =
      static_cast<std::uint32_t>(std::min<std::uint64_t>(content.size(), kLargestFile));
  const std::uint16_t added =
      image.AddFile(ClusterOf(entry.directory), entry.shortName, content.data(), size, err);
  // Deliberate: an empty file that finds no slot is dropped, with the message left behind.
  return added != 0 || size == 0 ? FileResult::kAdded : FileResult::kFull;
}

// Spares a large file's content a copy. Nothing when it finds no room, or cannot be read at the
// size that the file says it has: whatever the reason, reading it once more finds it out.
std::optional<Fat16Image::Chain> ImageTarget::ReadIntoPlace(int file, std::uint32_t size) {
  auto chain = image.TakeChain(size);
  if (chain && !FillChain(file, *chain, size)) {
    image.GiveBack(*chain);
    return std::nullopt;
  }
  return chain;
}

bool ImageTarget::FillChain(int file, const Fat16Image::Chain& chain, std::uint32_t size) {
  std::uint32_t left = size;
  for (const Fat16Image::ClusterRun& run : chain.runs) {
    const auto bytes = image.RunBytes(run);
    const auto part = bytes.first(std::min<std::size_t>(bytes.size(), left));
    if (!ReadPart(file, part)) return false;
    left -= static_cast<std::uint32_t>(part.size());
  }
  std::array<std::uint8_t, 1> beyond{};
  return ReadFully(file, beyond) == 0;
}

bool ImageTarget::ReadPart(int file, std::span<std::uint8_t> part) {
  while (!part.empty()) {
    const auto piece = part.first(std::min(part.size(), kPieceTold));
    if (ReadFully(file, piece) != static_cast<std::ptrdiff_t>(piece.size())) return false;
    Tell(piece.size());
    part = part.subspan(piece.size());
  }
  return true;
}

void ImageTarget::Tell(std::uint64_t bytes) {
  if (observer != nullptr) observer->OnBytes(bytes);
}

}  // namespace quorbix::virtdisk::internal

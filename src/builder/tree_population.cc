#include "builder/tree_population.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <optional>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "common/host_file.h"
#include "fat16/short_name.h"

namespace quorbix::virtdisk::internal {
namespace fs = std::filesystem;

namespace {

constexpr char kNotRepresentable[] = "name not representable in 8.3";
constexpr char kReadError[] = "transient read error \xE2\x80\x94 file may have changed";
constexpr char kStatPrefix[] = "stat: ";
constexpr char kDirIterPrefix[] = "dir-iter: ";

constexpr std::size_t kReadChunk = std::size_t{256} * 1024;
// Some files of the system say that they are empty, and give their content to one read alone.
constexpr std::uint64_t kSmallestRead = 4096;
constexpr ::off_t kLargeFile = 1 << 20;
constexpr ::off_t kLargestFile = std::numeric_limits<std::uint32_t>::max();

// An entry of the host as the standard library's would be, had it been listed just now.
class AskedEntry {
 public:
  AskedEntry(const fs::path& entryPath, fs::file_type listedType)
      : path(entryPath),
        known(listedType != fs::file_type::none && listedType != fs::file_type::symlink),
        listed(listedType) {}

  bool is_directory(std::error_code& error) const {
    return Type(error) == fs::file_type::directory;
  }
  bool is_regular_file(std::error_code& error) const {
    return Type(error) == fs::file_type::regular;
  }

 private:
  fs::file_type Type(std::error_code& error) const {
    error.clear();
    return known ? listed : fs::status(path, error).type();
  }

  const fs::path& path;
  const bool known;
  const fs::file_type listed;
};

// As ReadHostFile, for a file that is open and whose metadata give `expected` bytes.
int ReadOpenedFile(int file, ::off_t expected, ByteBuffer& content, std::uint64_t mostBytes) {
  // One byte more than expected, so that the file's end is met without another read.
  const std::uint64_t first = std::max(static_cast<std::uint64_t>(expected) + 1, kSmallestRead);
  std::uint64_t chunk = std::min(first, mostBytes + 1);
  std::size_t size = 0;
  content.Reset(static_cast<std::size_t>(chunk));
  while (chunk > 0) {
    content.Resize(static_cast<std::size_t>(size + chunk));
    const std::ptrdiff_t got = ReadFully(file, content.Span().subspan(size));
    if (got < 0) return kUnreadable;
    size += static_cast<std::size_t>(got);
    if (static_cast<std::uint64_t>(got) < chunk) break;
    chunk = std::min<std::uint64_t>(kReadChunk, mostBytes + 1 - size);
  }
  content.Resize(size);
  return kReadWhole;
}

// A directory on the way. Its listing is taken whole before the first entry is copied, so that no
// open descriptor is left behind at each level of a deep tree.
struct OpenDir {
  std::string hostDir;
  std::uint32_t cluster = 0;
  FolderListing listing;
  std::size_t next = 0;  // entry to copy
  std::unordered_set<std::string> shortNames;
};

class TreePopulation {
 public:
  TreePopulation(Fat16Image& target, std::string& error, std::vector<std::string>& skippedEntries,
                 const HostQueries& hostQueries)
      : image(target), err(error), skipped(skippedEntries), host(hostQueries) {}

  bool Run(const fs::path& hostDir, std::uint32_t dirCluster) {
    Open(hostDir, dirCluster);
    while (!open.empty()) {
      OpenDir& dir = open.back();
      if (dir.next < dir.listing.entries.size()) {
        // Taken out, since adding a subdirectory moves `dir`.
        const ListedEntry entry = std::move(dir.listing.entries[dir.next++]);
        if (!AddEntry(dir, entry)) return false;
        continue;
      }
      if (dir.listing.error) Skip(dir.hostDir, kDirIterPrefix + dir.listing.error.message());
      open.pop_back();
    }
    return true;
  }

 private:
  void Open(const fs::path& hostDir, std::uint32_t cluster) {
    open.push_back({hostDir.native(), cluster, host.list(hostDir), 0, {}});
  }

  void Skip(const fs::path& path, const std::string& reason) {
    skipped.push_back(path.string() + " [" + reason + "]");
  }

  bool AddEntry(OpenDir& dir, const ListedEntry& entry) {
    const fs::path path = fs::path(dir.hostDir) / entry.name;
    const std::string shortName = UniqueFat83Name(entry.name, dir.shortNames);
    if (shortName.empty()) {
      Skip(path, kNotRepresentable);
      return true;
    }
    // Whatever becomes of the entry: one that is passed over uses its name up all the same.
    dir.shortNames.insert(shortName);

    std::error_code statusError;
    switch (host.ask(path, entry.type, statusError)) {
      case EntryKind::kDirectory:
        return AddSubdirectory(dir.cluster, shortName, path);
      case EntryKind::kRegularFile:
        return AddFile(dir.cluster, shortName, path);
      case EntryKind::kStatusFailed:
        Skip(path, kStatPrefix + statusError.message());
        return true;
      case EntryKind::kOther:
        return true;
    }
    return true;
  }

  bool AddSubdirectory(std::uint32_t parentCluster, const std::string& shortName,
                       const fs::path& path) {
    const std::uint16_t cluster = image.AddDirectory(parentCluster, shortName, err);
    if (cluster == 0) return false;
    Open(path, cluster);
    return true;
  }

  bool AddFile(std::uint32_t parentCluster, const std::string& shortName, const fs::path& path) {
    struct ::stat status;
    const Descriptor file = OpenRegularFile(path.c_str(), status);
    if (file && status.st_size >= kLargeFile && status.st_size <= kLargestFile) {
      const auto size = static_cast<std::uint32_t>(status.st_size);
      const auto chain = ReadIntoPlace(file.Get(), size);
      if (chain) return image.AddTakenFile(parentCluster, shortName, *chain, size, err) != 0;
      ::lseek(file.Get(), 0, SEEK_SET);
    }
    if (!file ||
        ReadOpenedFile(file.Get(), status.st_size, content, image.DataBytes()) != kReadWhole) {
      Skip(path, kReadError);
      return true;
    }
    const auto size = static_cast<std::uint32_t>(
        std::min<std::size_t>(content.size(), std::numeric_limits<std::uint32_t>::max()));
    const bool added = image.AddFile(parentCluster, shortName, content.data(), size, err) != 0;
    // Deliberate: an empty file that finds no slot is dropped, with the message left behind.
    return added || content.empty();
  }

  // Spares a large file's content a copy. Nothing when it finds no room, or cannot be read at the
  // size that the file says it has: whatever the reason, reading it once more finds it out.
  std::optional<Fat16Image::Chain> ReadIntoPlace(int file, std::uint32_t size) {
    auto chain = image.TakeChain(size);
    if (chain && !FillChain(file, *chain, size)) {
      image.GiveBack(*chain);
      return std::nullopt;
    }
    return chain;
  }

  bool FillChain(int file, const Fat16Image::Chain& chain, std::uint32_t size) {
    std::uint32_t left = size;
    for (const Fat16Image::ClusterRun& run : chain.runs) {
      const auto bytes = image.RunBytes(run);
      const auto part = bytes.first(std::min<std::size_t>(bytes.size(), left));
      if (ReadFully(file, part) != static_cast<std::ptrdiff_t>(part.size())) return false;
      left -= static_cast<std::uint32_t>(part.size());
    }
    std::array<std::uint8_t, 1> beyond{};
    return ReadFully(file, beyond) == 0;
  }

  Fat16Image& image;
  std::string& err;
  std::vector<std::string>& skipped;
  const HostQueries& host;
  std::vector<OpenDir> open;  // from the top directory down to the one being copied
  ByteBuffer content;         // of one file, kept so that its memory serves the next
};

}  // namespace

EntryKind AskKind(const fs::path& path, fs::file_type listed, std::error_code& error) {
  return KindOf(AskedEntry(path, listed), error);
}

bool PopulateDir(Fat16Image& image, std::uint32_t dirCluster, const fs::path& hostDir,
                 std::string& err, std::vector<std::string>& skipped, const HostQueries& host) {
  return TreePopulation(image, err, skipped, host).Run(hostDir, dirCluster);
}

int ReadHostFile(const fs::path& hostFile, ByteBuffer& content, std::uint64_t mostBytes) {
  struct ::stat status;
  const Descriptor file = OpenRegularFile(hostFile.c_str(), status);
  if (file) return ReadOpenedFile(file.Get(), status.st_size, content, mostBytes);
  content.Reset(0);
  return kUnreadable;
}

}  // namespace quorbix::virtdisk::internal

#include "builder/tree_population.h"

#include <algorithm>
#include <fstream>
#include <limits>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "fat16/short_name.h"

namespace quorbix::virtdisk::internal {
namespace fs = std::filesystem;

namespace {

constexpr char kNotRepresentable[] = "name not representable in 8.3";
constexpr char kReadError[] = "transient read error \xE2\x80\x94 file may have changed";
constexpr char kStatPrefix[] = "stat: ";
constexpr char kDirIterPrefix[] = "dir-iter: ";

constexpr std::size_t kReadChunk = std::size_t{256} * 1024;
constexpr std::uintmax_t kMostExpected = std::numeric_limits<std::uint32_t>::max();

// What the metadata say, 0 when they say nothing. A hint for the allocation, never relied on.
std::uintmax_t ExpectedSize(const fs::path& hostFile) {
  std::error_code unknown;
  const std::uintmax_t size = fs::file_size(hostFile, unknown);
  return unknown ? 0 : size;
}

// A directory on the way. Its listing is taken whole before the first entry is copied, so that no
// open descriptor is left behind at each level of a deep tree.
struct OpenDir {
  std::string hostDir;
  std::uint32_t cluster = 0;
  HostListing listing;
  std::size_t next = 0;  // entry to copy
  std::unordered_set<std::string> shortNames;
};

class TreePopulation {
 public:
  TreePopulation(Fat16Image& target, std::string& error, std::vector<std::string>& skippedEntries,
                 const ListDir& lister)
      : image(target), err(error), skipped(skippedEntries), listDir(lister) {}

  bool Run(const fs::path& hostDir, std::uint32_t dirCluster) {
    Open(hostDir, dirCluster);
    while (!open.empty()) {
      OpenDir& dir = open.back();
      if (dir.next < dir.listing.entries.size()) {
        // Taken out, since adding a subdirectory moves `dir`.
        const HostEntry entry = std::move(dir.listing.entries[dir.next++]);
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
    open.push_back({hostDir.native(), cluster, listDir(hostDir), 0, {}});
  }

  void Skip(const fs::path& path, const std::string& reason) {
    skipped.push_back(path.string() + " [" + reason + "]");
  }

  bool AddEntry(OpenDir& dir, const HostEntry& entry) {
    const fs::path path = fs::path(dir.hostDir) / entry.name;
    const std::string shortName = UniqueFat83Name(entry.name, dir.shortNames);
    if (shortName.empty()) {
      Skip(path, kNotRepresentable);
      return true;
    }
    // Whatever becomes of the entry: one that is passed over uses its name up all the same.
    dir.shortNames.insert(shortName);

    switch (entry.kind) {
      case EntryKind::kDirectory:
        return AddSubdirectory(dir.cluster, shortName, path);
      case EntryKind::kRegularFile:
        return AddFile(dir.cluster, shortName, path);
      case EntryKind::kStatusFailed:
        Skip(path, kStatPrefix + entry.statusError.message());
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
    if (ReadHostFile(path, content) != kReadWhole) {
      Skip(path, kReadError);
      return true;
    }
    const auto size = static_cast<std::uint32_t>(
        std::min<std::size_t>(content.size(), std::numeric_limits<std::uint32_t>::max()));
    const bool added = image.AddFile(parentCluster, shortName, content.data(), size, err) != 0;
    // Deliberate: an empty file that finds no slot is dropped, with the message left behind.
    return added || content.empty();
  }

  Fat16Image& image;
  std::string& err;
  std::vector<std::string>& skipped;
  const ListDir& listDir;
  std::vector<OpenDir> open;          // from the top directory down to the one being copied
  std::vector<std::uint8_t> content;  // of one file, kept so that its memory serves the next
};

}  // namespace

HostListing ListHostDir(const fs::path& hostDir) {
  HostListing listing;
  for (fs::directory_iterator it(hostDir, listing.error), end; !listing.error && it != end;
       it.increment(listing.error)) {
    HostEntry entry;
    entry.name = it->path().filename().native();
    entry.kind = KindOf(*it, entry.statusError);
    listing.entries.push_back(std::move(entry));
  }
  return listing;
}

bool PopulateDir(Fat16Image& image, std::uint32_t dirCluster, const fs::path& hostDir,
                 std::string& err, std::vector<std::string>& skipped, const ListDir& listDir) {
  return TreePopulation(image, err, skipped, listDir).Run(hostDir, dirCluster);
}

int ReadHostFile(const fs::path& hostFile, std::vector<std::uint8_t>& content) {
  content.clear();
  std::ifstream in;
  in.rdbuf()->pubsetbuf(nullptr, 0);  // read straight into `content`
  in.open(hostFile, std::ios::binary);
  if (!in) return kUnreadable;
  // One byte more than expected, so that the file's end is met without another chunk.
  std::size_t chunk = std::min(ExpectedSize(hostFile), kMostExpected) + 1;
  // Growing would hold the old and the new memory at the same time.
  if (content.capacity() < chunk) std::vector<std::uint8_t>().swap(content);
  std::size_t size = 0;
  while (in) {
    content.resize(size + chunk);
    in.read(reinterpret_cast<char*>(content.data() + size), static_cast<std::streamsize>(chunk));
    size += static_cast<std::size_t>(in.gcount());
    chunk = kReadChunk;
  }
  content.resize(size);
  return in.bad() ? kUnreadable : kReadWhole;
}

}  // namespace quorbix::virtdisk::internal

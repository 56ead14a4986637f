#include "builder/tree_population.h"

#include <cstddef>
#include <unordered_set>
#include <utility>

#include "builder/image_target.h"
#include "fat16/short_name.h"

namespace quorbix::virtdisk::internal {
namespace fs = std::filesystem;

namespace {

constexpr char kNotRepresentable[] = "name not representable in 8.3";
constexpr char kReadError[] = "transient read error \xE2\x80\x94 file may have changed";
constexpr char kStatPrefix[] = "stat: ";
constexpr char kDirIterPrefix[] = "dir-iter: ";

// A directory on the way. Its listing is taken whole before the first entry is copied, so that no
// open descriptor is left behind at each level of a deep tree.
struct OpenDir {
  std::string hostDir;
  std::uint32_t number = 0;
  FolderListing listing;
  std::size_t next = 0;  // entry to offer
  std::unordered_set<std::string> shortNames;
};

class TreePopulation {
 public:
  TreePopulation(PopulationTarget& populationTarget, const HostQueries& hostQueries)
      : target(populationTarget), host(hostQueries) {}

  bool Run(const fs::path& hostDir) {
    Open(hostDir, 0);
    while (!open.empty()) {
      OpenDir& dir = open.back();
      if (dir.next < dir.listing.entries.size()) {
        // Taken out, since adding a subdirectory moves `dir`.
        const ListedEntry entry = std::move(dir.listing.entries[dir.next++]);
        if (!AddEntry(dir, entry)) return false;
        continue;
      }
      if (dir.listing.error) target.Skip(dir.hostDir, kDirIterPrefix + dir.listing.error.message());
      open.pop_back();
    }
    return true;
  }

 private:
  void Open(const fs::path& hostDir, std::uint32_t number) {
    open.push_back({hostDir.native(), number, host.list(hostDir), 0, {}});
  }

  bool AddEntry(OpenDir& dir, const ListedEntry& entry) {
    const fs::path path = fs::path(dir.hostDir) / entry.name;
    const std::string shortName = UniqueFat83Name(entry.name, dir.shortNames);
    if (shortName.empty()) {
      target.Skip(path, kNotRepresentable);
      return true;
    }
    // Whatever becomes of the entry: one that is passed over uses its name up all the same.
    dir.shortNames.insert(shortName);

    const PlacedEntry placed{dir.number, shortName, path, entry.type == fs::file_type::symlink};
    const EntryAnswer answer = host.ask(path, entry.type);
    switch (answer.kind) {
      case EntryKind::kDirectory:
        return AddSubdirectory(placed);
      case EntryKind::kRegularFile:
        return AddFile(placed);
      case EntryKind::kStatusFailed:
        target.Skip(path, kStatPrefix + answer.error.message());
        return true;
      case EntryKind::kOther:
        target.PassOver(path);
        return true;
    }
    return true;
  }

  bool AddSubdirectory(const PlacedEntry& entry) {
    const std::uint32_t number = target.AddDirectory(entry);
    if (number == 0) return false;
    Open(entry.path, number);
    return true;
  }

  bool AddFile(const PlacedEntry& entry) {
    const PopulationTarget::FileResult result = target.AddFile(entry);
    if (result == PopulationTarget::FileResult::kUnreadable) target.Skip(entry.path, kReadError);
    return result != PopulationTarget::FileResult::kFull;
  }

  PopulationTarget& target;
  const HostQueries& host;
  std::vector<OpenDir> open;  // from the top directory down to the one being copied
};

}  // namespace

bool Populate(PopulationTarget& target, const fs::path& hostDir, const HostQueries& host) {
  return TreePopulation(target, host).Run(hostDir);
}

bool PopulateDir(Fat16Image& image, std::uint32_t dirCluster, const fs::path& hostDir,
                 std::string& err, std::vector<std::string>& skipped, const HostQueries& host,
                 BuildObserver* observer) {
  ImageTarget target(image, dirCluster, err, skipped, observer);
  return Populate(target, hostDir, host);
}

}  // namespace quorbix::virtdisk::internal

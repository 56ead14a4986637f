#ifndef QUORBIX_VIRTDISK_BUILDER_TREE_POPULATION_H_
#define QUORBIX_VIRTDISK_BUILDER_TREE_POPULATION_H_

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "builder/build_observer.h"
#include "builder/host_entry.h"
#include "fat16/fat16_image.h"

namespace quorbix::virtdisk::internal {

// An entry of the host that found a short name.
struct PlacedEntry {
  std::uint32_t directory = 0;  // as the target numbers them; 0 is the one that is populated
  const std::string& shortName;
  const std::filesystem::path& path;
  bool isLink = false;  // listed as a link, whatever it leads to
};

// Where a population puts what it finds.
class PopulationTarget {
 public:
  enum class FileResult { kAdded, kUnreadable, kFull };

  virtual ~PopulationTarget() = default;

  // Returns the number of the new directory, or 0 when the target takes nothing more.
  virtual std::uint32_t AddDirectory(const PlacedEntry& entry) = 0;
  // kUnreadable costs the file alone, kFull ends the population.
  virtual FileResult AddFile(const PlacedEntry& entry) = 0;

  // An entry, or what a folder holds (further), that is left out for a `reason`.
  virtual void Skip(const std::filesystem::path& path, const std::string& reason) = 0;
  // An entry that is neither file nor folder.
  virtual void PassOver(const std::filesystem::path& path) = 0;
};

// Offers what lies in `hostDir`, with all subdirectories, to a target, in the order in which the
// host lists it and under short names. Returns false when the target takes nothing more.
[[nodiscard]] bool Populate(PopulationTarget& target, const std::filesystem::path& hostDir,
                            const HostQueries& host = {});

// Copies what lies in `hostDir`, with all subdirectories, into the directory `dirCluster` of
// `image`, in the order in which the host lists it.
//
// Entries that cannot be copied are appended to `skipped`, as host path and bracketed reason, and
// cost nothing else. Returns false only when the image cannot take an entry; `err` then holds the
// image's message. An empty file that finds no slot is dropped: the result stays true, and the
// message stays in `err`.
[[nodiscard]] bool PopulateDir(Fat16Image& image, std::uint32_t dirCluster,
                               const std::filesystem::path& hostDir, std::string& err,
                               std::vector<std::string>& skipped, const HostQueries& host = {},
                               BuildObserver* observer = nullptr);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_BUILDER_TREE_POPULATION_H_

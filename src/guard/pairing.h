#ifndef QUORBIX_VIRTDISK_GUARD_PAIRING_H_
#define QUORBIX_VIRTDISK_GUARD_PAIRING_H_

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "guard/model.h"

namespace quorbix::virtdisk::internal::guard {

// What is known of one file or folder: on the host, on the disk, and from before.
struct Row {
  std::string host{};
  std::string disk{};
  EntryType type = EntryType::kFile;
  std::optional<HostItem> onHost{};
  std::optional<DiskItem> onDisk{};
  std::optional<Content> agreed{};  // a folder's is empty
};

// A file on one side where the other has a folder.
struct KindClash {
  std::string host{};
  std::string disk{};
  bool fileIsOnHost = false;
};

struct Pairing {
  // A folder before what it holds. Every entry of the observation is in one row, but for those
  // below; no host path and no disk path is in two.
  std::vector<Row> rows{};
  std::vector<KindClash> clashes{};
  std::vector<std::string> unnamed{};  // host paths for which the disk has no short name left
  std::vector<std::string> ignored{};  // keys of entries of the disk that stay out
};

// The short name that a host path would get from a build of the folder. Asked for at the first
// meeting only: a disk that was built from the folder has its names.
using BuildNames = std::map<std::string, std::string>;  // host path to disk path

// Puts in, below folders of the host that could not be listed, what memory says is there: not
// seeing it does not mean that it is gone. Such folders that are not known take no part.
Observation WithUnseen(Observation observation, const Memory& memory);

// Decides which entry of the folder stands for which entry of the disk.
//
// What `memory` has paired stays paired. A new entry of the folder takes the entry of the disk that
// a build would have made of it or that has its own name, when that is free; else the next short
// name that nobody uses. A new entry of the disk gets its own name in the folder that stands for
// its directory; where that is taken, one with " (disk)" behind it.
Pairing PairEntries(const Observation& observation, const Memory& memory,
                    const BuildNames& buildNames);

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_PAIRING_H_

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

// Which names may belong together at a meeting where nothing is agreed on.
struct NameHints {
  using Names = std::map<std::string, std::string>;  // host path to disk path
  // From before one of the sides was replaced: likelier than the other, also where that is of an
  // earlier path, unless the contents tell otherwise.
  Names remembered{};
  // That a build of the folder would give: a disk that was built from it has them.
  Names built{};
};

// Puts in, below folders of the host that could not be listed, what memory says is there: not
// seeing it does not mean that it is gone. Such folders that are not known take no part.
Observation WithUnseen(Observation observation, const Memory& memory);

// Follows names of the host that have changed in the case of their letters alone: "note.txt" that
// is gone and "NOTE.TXT" that is new in the same folder are one file, which has the same name on
// the disk. A folder takes with it all that it was known to hold.
void FollowLetterCase(const std::map<std::string, HostItem>& host, Memory& memory);

// Decides which entry of the folder stands for which entry of the disk.
//
// What `memory` has paired stays paired. A new entry of the folder takes an entry of the disk that
// is free and that the hints or its own name lead to, one of the same content before any other, and
// then what the remembered name leads to; else the next short name that nobody uses. A new entry of
// the disk gets the name that it had before, or its own, in the folder that stands for its
// directory; where that is taken, one with " (disk)" behind it.
Pairing PairEntries(const Observation& observation, const Memory& memory, const NameHints& hints);

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_PAIRING_H_

#ifndef QUORBIX_VIRTDISK_COMMON_FOLDER_WALK_H_
#define QUORBIX_VIRTDISK_COMMON_FOLDER_WALK_H_

#include <sys/stat.h>

#include <cstddef>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "common/descriptor.h"
#include "common/folder_listing.h"

namespace quorbix::virtdisk::internal {

// Walks everything below a folder as the standard library's recursive iterator does: depth first in
// the order of the listings, links to folders listed and not entered. Unlike that iterator it keeps
// but one descriptor open between its steps, that of the current entry's folder, and passes over
// what lies in folders whose paths are longer than the system takes.
class FolderWalk {
 public:
  // A root that cannot be opened has no entries, and `error` says why.
  FolderWalk(const std::filesystem::path& root, std::error_code& error);

  bool AtEnd() const { return open.empty(); }

  // The current entry: its path, which begins with the root's, and the type that was listed.
  const std::string& Path() const { return path; }
  std::filesystem::file_type ListedType() const { return Current().type; }

  // Whether the entry is a folder, or a regular file. The listed type answers when it is known and
  // no link, else the status of what the path leads to, with the error of that query.
  bool IsFolder(std::error_code& error) const;
  bool IsRegularFile(std::error_code& error) const;

  // Opens the current entry for reading if it is a regular file, or a link to one. None whose path
  // is longer than the system takes: nothing else that wants it could open it.
  Descriptor OpenRegularFile(struct ::stat& status);

  // Goes on to the next entry. Throws std::filesystem::filesystem_error when a sub-folder cannot be
  // opened, or a listing failed half way.
  void Advance();

 private:
  struct OpenFolder {
    Descriptor descriptor;  // closed while a sub-folder is walked
    FolderListing listing;
    std::size_t next = 0;      // entry to show next
    std::size_t pathSize = 0;  // of `path`, with the separator behind the folder's own
  };

  const ListedEntry& Current() const { return open.back().listing.entries[open.back().next - 1]; }
  std::filesystem::file_type TypeBehind(std::error_code& error) const;
  bool MayEnter() const;
  void Enter();
  void ShowNext();

  std::vector<OpenFolder> open;  // from the root down to the folder of the current entry
  std::string path;
};

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_COMMON_FOLDER_WALK_H_

#ifndef QUORBIX_VIRTDISK_COMMON_FOLDER_LISTING_H_
#define QUORBIX_VIRTDISK_COMMON_FOLDER_LISTING_H_

#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "common/descriptor.h"

namespace quorbix::virtdisk::internal {

// One entry of a folder, as the file system lists it.
struct ListedEntry {
  std::string name;
  // `none` where the file system does not say; a link is a link, whatever it leads to.
  std::filesystem::file_type type = std::filesystem::file_type::none;
};

struct FolderListing {
  bool opened = false;
  std::vector<ListedEntry> entries;  // in the file system's order
  std::error_code error;             // what kept the folder shut, or ended the listing early
};

enum class IfLink { kFollow, kRefuse };

// Lists a folder whole and closes it, so that no descriptor stays open while its sub-folders are
// looked at: the depth of a tree must not exhaust them.
FolderListing ListFolder(const std::string& folder, IfLink ifLink = IfLink::kFollow);

// The same, and leaves the folder open in `descriptor`, for whoever closes it soon.
FolderListing ListFolder(const std::string& folder, IfLink ifLink, Descriptor& descriptor);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_COMMON_FOLDER_LISTING_H_

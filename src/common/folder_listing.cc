#include "common/folder_listing.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string_view>

namespace quorbix::virtdisk::internal {
namespace fs = std::filesystem;

namespace {

struct CloseFolder {
  void operator()(::DIR* folder) const { ::closedir(folder); }
};

::DIR* OpenFolder(const fs::path& folder, IfLink ifLink) {
  const int links = ifLink == IfLink::kRefuse ? O_NOFOLLOW : 0;
  const int file = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | links);
  if (file < 0) return nullptr;
  ::DIR* stream = ::fdopendir(file);
  if (stream == nullptr) ::close(file);
  return stream;
}

fs::file_type TypeOf(const ::dirent& entry) {
  switch (entry.d_type) {
    case DT_REG:
      return fs::file_type::regular;
    case DT_DIR:
      return fs::file_type::directory;
    case DT_LNK:
      return fs::file_type::symlink;
    case DT_BLK:
      return fs::file_type::block;
    case DT_CHR:
      return fs::file_type::character;
    case DT_FIFO:
      return fs::file_type::fifo;
    case DT_SOCK:
      return fs::file_type::socket;
    default:
      return fs::file_type::none;
  }
}

}  // namespace

FolderListing ListFolder(const fs::path& folder, IfLink ifLink) {
  FolderListing listing;
  const std::unique_ptr<::DIR, CloseFolder> stream(OpenFolder(folder, ifLink));
  if (!stream) {
    listing.error.assign(errno, std::generic_category());
    return listing;
  }
  listing.opened = true;
  for (;;) {
    errno = 0;
    const ::dirent* entry = ::readdir(stream.get());
    if (entry == nullptr) {
      listing.error.assign(errno, std::generic_category());
      return listing;
    }
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") listing.entries.push_back({std::string(name), TypeOf(*entry)});
  }
}

}  // namespace quorbix::virtdisk::internal

#include "common/folder_listing.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string_view>

#include "common/host_file.h"

namespace quorbix::virtdisk::internal {
namespace fs = std::filesystem;

namespace {

struct CloseFolder {
  void operator()(::DIR* folder) const { ::closedir(folder); }
};

// A stream closes the descriptor that it was given, so it is given one of its own.
::DIR* OpenStream(const Descriptor& folder) {
  if (!folder) return nullptr;
  const int own = ::fcntl(folder.Get(), F_DUPFD_CLOEXEC, 0);
  if (own < 0) return nullptr;
  ::DIR* stream = ::fdopendir(own);
  if (stream == nullptr) ::close(own);
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

FolderListing ListFolder(const std::string& folder, IfLink ifLink) {
  Descriptor closedAtTheEnd;
  return ListFolder(folder, ifLink, closedAtTheEnd);
}

FolderListing ListFolder(const std::string& folder, IfLink ifLink, Descriptor& descriptor) {
  FolderListing listing;
  const int links = ifLink == IfLink::kRefuse ? O_NOFOLLOW : 0;
  descriptor = OpenHostPath(folder.c_str(), O_RDONLY | O_DIRECTORY | links);
  const std::unique_ptr<::DIR, CloseFolder> stream(OpenStream(descriptor));
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

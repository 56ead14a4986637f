#include "common/folder_walk.h"

#include <fcntl.h>

#include <climits>
#include <utility>

#include "common/host_file.h"

namespace quorbix::virtdisk::internal {
namespace fs = std::filesystem;

namespace {

[[noreturn]] void Throw(const std::string& path, std::error_code error) {
  throw fs::filesystem_error("cannot list folder", path, error);
}

}  // namespace

FolderWalk::FolderWalk(const fs::path& root, std::error_code& error) : path(root.native()) {
  error.clear();
  Descriptor descriptor;
  FolderListing listing = ListFolder(root.native(), IfLink::kFollow, descriptor);
  if (listing.entries.empty()) {
    error = listing.error;
    return;
  }
  if (!path.ends_with('/')) path += '/';
  open.push_back({std::move(descriptor), std::move(listing), 0, path.size()});
  ShowNext();
}

bool FolderWalk::IsFolder(std::error_code& error) const {
  return TypeBehind(error) == fs::file_type::directory;
}

bool FolderWalk::IsRegularFile(std::error_code& error) const {
  return TypeBehind(error) == fs::file_type::regular;
}

Descriptor FolderWalk::OpenRegularFile(struct ::stat& status) {
  if (path.size() >= PATH_MAX) return Descriptor();
  OpenFolder& folder = open.back();
  if (!folder.descriptor) {
    // The root may be named by a link, and then with the slash behind it; the others may not.
    const bool isRoot = open.size() == 1;
    const std::string folderPath = path.substr(0, folder.pathSize - (isRoot ? 0 : 1));
    folder.descriptor =
        OpenHostPath(folderPath.c_str(), O_PATH | O_DIRECTORY | (isRoot ? 0 : O_NOFOLLOW));
  }
  return OpenRegularFileIn(folder.descriptor.Get(), Current().name.c_str(), status);
}

void FolderWalk::Advance() {
  if (MayEnter()) Enter();
  ShowNext();
}

fs::file_type FolderWalk::TypeBehind(std::error_code& error) const {
  error.clear();
  const fs::file_type listed = ListedType();
  if (listed != fs::file_type::none && listed != fs::file_type::symlink) return listed;
  return fs::status(path, error).type();
}

bool FolderWalk::MayEnter() const {
  if (ListedType() == fs::file_type::directory) return true;
  if (ListedType() != fs::file_type::none) return false;
  std::error_code ignored;
  return fs::symlink_status(path, ignored).type() == fs::file_type::directory;
}

void FolderWalk::Enter() {
  // A link that took the folder's place since would lead out of the tree.
  Descriptor descriptor;
  FolderListing listing = ListFolder(path, IfLink::kRefuse, descriptor);
  if (!listing.opened && listing.error == std::errc::filename_too_long) return;
  if (listing.error && listing.entries.empty()) Throw(path, listing.error);
  path += '/';
  open.back().descriptor.Close();
  open.push_back({std::move(descriptor), std::move(listing), 0, path.size()});
}

void FolderWalk::ShowNext() {
  while (!open.empty()) {
    OpenFolder& folder = open.back();
    path.resize(folder.pathSize);
    if (folder.next < folder.listing.entries.size()) {
      path += folder.listing.entries[folder.next++].name;
      return;
    }
    if (folder.listing.error) Throw(path, folder.listing.error);
    open.pop_back();
  }
}

}  // namespace quorbix::virtdisk::internal

#include "host/change_watch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <system_error>
#include <utility>

#include "common/host_file.h"
#include "host/host_file.h"
#include "host/output_place.h"

namespace quorbix::virtdisk::tool {
namespace fs = std::filesystem;

namespace {

constexpr std::uint32_t kNews = IN_CLOSE_WRITE | IN_MODIFY | IN_ATTRIB | IN_CREATE | IN_DELETE |
                                IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF;

fs::path ParentOf(const fs::path& path) {
  return path.has_parent_path() ? path.parent_path() : fs::path(".");
}

}  // namespace

bool ChangeWatch::Begin(const fs::path& folder, const fs::path& image, const fs::path& stateFolder,
                        std::string& err) {
  watch = internal::Descriptor(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  ownFolders.clear();
  parentOfState = -1;
  const fs::path file = internal::FollowLinks(image);
  imageName = file.filename().string();
  const bool endsInSlash = !stateFolder.has_filename();
  if (watch && AddAllBelow(folder, endsInSlash ? stateFolder.parent_path() : stateFolder)) {
    imageFolder = Add(ParentOf(file));
    if (imageFolder >= 0) return true;
  }
  err = SystemText(errno);
  watch = internal::Descriptor();
  return false;
}

bool ChangeWatch::AddAllBelow(const fs::path& folder, const fs::path& stateFolder) {
  const fs::path parent = ParentOf(stateFolder);
  stateName = stateFolder.filename().string();
  ownFolders.push_back(Add(folder));
  if (ownFolders.back() < 0) return false;
  if (IsSameFile(folder, parent)) parentOfState = ownFolders.back();
  std::error_code failed;
  constexpr auto kSkip = fs::directory_options::skip_permission_denied;
  for (fs::recursive_directory_iterator it(folder, kSkip, failed), end; !failed && it != end;
       it.increment(failed)) {
    std::error_code unknown;
    if (it->is_symlink(unknown) || !it->is_directory(unknown)) continue;
    if (it->path().filename() == stateName && IsSameFile(it->path(), stateFolder)) {
      it.disable_recursion_pending();
      continue;
    }
    const int number = Add(it->path());
    // Gone since it was listed: there is nothing to watch.
    if (number < 0 && errno != ENOENT && errno != EACCES) return false;
    if (number >= 0) ownFolders.push_back(number);
    if (number >= 0 && IsSameFile(it->path(), parent)) parentOfState = number;
  }
  return true;
}

int ChangeWatch::Add(const fs::path& folder) const {
  return ::inotify_add_watch(watch.Get(), folder.c_str(), kNews | IN_ONLYDIR);
}

bool ChangeWatch::IsNews(int folder, const char* name) const {
  if (folder == parentOfState && stateName == name) return false;
  const bool isOwn = std::find(ownFolders.begin(), ownFolders.end(), folder) != ownFolders.end();
  return isOwn || folder != imageFolder || imageName == name;
}

bool ChangeWatch::TakeNews() {
  alignas(struct ::inotify_event) std::array<char, 65536> buffer;
  bool isNews = false;
  for (;;) {
    const ::ssize_t got = ::read(watch.Get(), buffer.data(), buffer.size());
    if (got <= 0) return isNews;
    for (std::size_t at = 0; at < static_cast<std::size_t>(got);) {
      struct ::inotify_event event;
      std::memcpy(&event, buffer.data() + at, sizeof event);
      const char* name = event.len > 0 ? buffer.data() + at + sizeof event : "";
      isNews = isNews || IsNews(event.wd, name);
      at += sizeof event + event.len;
    }
  }
}

}  // namespace quorbix::virtdisk::tool

#include "guard/places.h"

#include <algorithm>
#include <system_error>

#include "common/host_file.h"
#include "quorbix/virtdisk/guarded_folder_sync.h"

namespace quorbix::virtdisk {
namespace internal::guard {
namespace fs = std::filesystem;

namespace {

// What a path leads to, or what it says where it leads nowhere.
fs::path Itself(const fs::path& path) {
  std::error_code failed;
  const fs::path itself = fs::weakly_canonical(fs::absolute(FollowLinks(path), failed), failed);
  return failed ? fs::absolute(path, failed).lexically_normal() : itself;
}

bool GoesUp(const fs::path& path) {
  return std::any_of(path.begin(), path.end(), [](const fs::path& part) { return part == ".."; });
}

// A path with a last element that is a name. What ".." leads to only the system knows: a link may
// come before it. Where that leads nowhere the path says so as it is.
fs::path WithName(const fs::path& path) {
  std::error_code failed;
  const fs::path absolute = fs::absolute(path, failed);
  if (!GoesUp(absolute)) {
    const fs::path plain = absolute.lexically_normal();
    return plain.has_filename() ? plain : plain.parent_path();
  }
  fs::path itself = fs::canonical(absolute, failed);
  if (!failed) return itself;
  const fs::path above = fs::canonical(absolute.parent_path(), failed);
  return failed ? absolute : above / absolute.filename();
}

// What cannot be resolved is empty, and nothing lies in it.
bool IsBelowOrSame(const fs::path& path, const fs::path& folder) {
  if (folder.empty()) return false;
  const std::string& text = path.native();
  const std::string& prefix = folder.native();
  return text == prefix || (text.starts_with(prefix) && text[prefix.size()] == '/');
}

}  // namespace

NestingFacts NestingOf(const Places& places) {
  std::error_code ignored;
  const fs::path folder = fs::weakly_canonical(places.folder, ignored);
  const fs::path state = fs::weakly_canonical(places.stateFolder, ignored);
  return {.imageInFolder = IsBelowOrSame(places.image, folder),
          .stateInFolder = IsBelowOrSame(state, folder),
          .folderInState = IsBelowOrSame(folder, state)};
}

Places FindPlaces(const fs::path& image, const fs::path& folder, const fs::path& stateFolder) {
  return {.image = Itself(image),
          .folder = WithName(folder),
          .stateFolder = stateFolder.empty() ? DefaultStateFolder(image) : WithName(stateFolder)};
}

}  // namespace internal::guard

std::filesystem::path DefaultStateFolder(const std::filesystem::path& image) {
  return internal::guard::Itself(image).native() + ".sync";
}

}  // namespace quorbix::virtdisk

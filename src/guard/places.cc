#include "guard/places.h"

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

// A name that ends in "/" has no last element to speak of.
fs::path WithoutSlash(const fs::path& path) {
  std::error_code ignored;
  const fs::path absolute = fs::absolute(path, ignored).lexically_normal();
  return absolute.has_filename() ? absolute : absolute.parent_path();
}

}  // namespace

Places FindPlaces(const fs::path& image, const fs::path& folder, const fs::path& stateFolder) {
  return {
      .image = Itself(image),
      .folder = WithoutSlash(folder),
      .stateFolder = stateFolder.empty() ? DefaultStateFolder(image) : WithoutSlash(stateFolder)};
}

}  // namespace internal::guard

std::filesystem::path DefaultStateFolder(const std::filesystem::path& image) {
  return internal::guard::Itself(image).native() + ".sync";
}

}  // namespace quorbix::virtdisk

#include "guard/places.h"

#include <system_error>

#include "quorbix/virtdisk/guarded_folder_sync.h"

namespace quorbix::virtdisk {
namespace internal::guard {
namespace fs = std::filesystem;

namespace {

constexpr int kMostLinks = 40;  // as many as the system follows

// What a path leads to, or what it says where it leads nowhere.
fs::path Itself(const fs::path& path) {
  std::error_code failed;
  fs::path itself = path;
  for (int i = 0; i < kMostLinks && fs::is_symlink(fs::symlink_status(itself, failed)); ++i) {
    itself = itself.parent_path() / fs::read_symlink(itself, failed);  // may be absolute
  }
  itself = fs::weakly_canonical(fs::absolute(itself, failed), failed);
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

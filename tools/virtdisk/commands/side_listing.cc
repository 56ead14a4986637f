#include "commands/side_listing.h"

#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <string_view>
#include <system_error>
#include <vector>

#include "disk/image_tree.h"
#include "host/host_file.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

std::optional<FileMarks> HostMarks(const fs::path& file) {
  struct ::stat status {};
  if (::stat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  constexpr std::uint64_t kSpread = 0x9E3779B97F4A7C15;
  std::uint64_t mix = static_cast<std::uint64_t>(status.st_mtim.tv_sec);
  mix = mix * kSpread + static_cast<std::uint64_t>(status.st_mtim.tv_nsec);
  mix = mix * kSpread + status.st_ino;
  return FileMarks{static_cast<std::uint64_t>(status.st_size), mix};
}

std::uint64_t HashOf(const std::vector<std::uint8_t>& bytes) {
  const auto* text = reinterpret_cast<const char*>(bytes.data());
  return std::hash<std::string_view>()(std::string_view(text, bytes.size()));
}

}  // namespace

Listing ListHostSide(const fs::path& folder) {
  Listing listing;
  std::error_code failed;
  fs::recursive_directory_iterator it(folder, fs::directory_options::skip_permission_denied,
                                      failed);
  for (; !failed && it != fs::recursive_directory_iterator(); it.increment(failed)) {
    const std::string name = it->path().filename().string();
    if (name.front() == '.') continue;
    if (const auto marks = HostMarks(it->path())) {
      listing[it->path().lexically_relative(folder).string()] = *marks;
    }
  }
  return listing;
}

Listing ListImageSide(const Fat16FsImage& image) {
  Listing listing;
  std::vector<std::uint8_t> content;
  std::string unreadable;
  const ImageTree tree(image);
  for (const Fat16FsEntry& entry : tree.Entries()) {
    if (entry.isDirectory) continue;
    // What cannot be read is listed as empty.
    image.ReadFile(entry.path, content, unreadable);
    listing[entry.path.substr(1)] = {entry.size, HashOf(content)};
  }
  return listing;
}

std::optional<Listing> ImageSide::List(std::string& err) {
  const std::optional<FileMarks> now = HostMarks(path);
  if (now && now == stamp) return listing;
  stamp.reset();
  std::vector<std::uint8_t> bytes;
  if (!ReadHostFile(path, bytes, err)) return std::nullopt;
  Fat16FsImage image;
  if (!image.LoadFromBytes(bytes, err)) {
    err = path.string() + ": " + err;
    return std::nullopt;
  }
  listing = ListImageSide(image);
  stamp = now;
  return listing;
}

}  // namespace quorbix::virtdisk::tool

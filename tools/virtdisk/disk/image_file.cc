#include "disk/image_file.h"

#include <cstdint>
#include <string>
#include <system_error>
#include <vector>

#include "host/host_file.h"

namespace quorbix::virtdisk::tool {

bool LoadImage(Console& console, const std::filesystem::path& path, Fat16FsImage& image) {
  std::string err;
  std::vector<std::uint8_t> bytes;
  if (!ReadHostFile(path, bytes, err)) {
    Fail(console, err, "Give the path of an existing disk image; `virtdisk build` makes one.");
    return false;
  }
  if (image.LoadFromBytes(bytes, err)) return true;
  Fail(console, err,
       path.string() + " holds no FAT16 volume that can be read; is it the right file, and whole?");
  return false;
}

bool IsSameFile(const std::filesystem::path& a, const std::filesystem::path& b) {
  std::error_code unknown;
  return std::filesystem::equivalent(a, b, unknown) && !unknown;
}

std::string Within(const std::string& name, const std::filesystem::path& image) {
  return name + " in " + image.string();
}

}  // namespace quorbix::virtdisk::tool

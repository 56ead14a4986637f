#include "floors.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <stdexcept>
#include <string>

#include "sync/hash_bytes.h"

namespace quorbix::virtdisk::bench {
namespace fs = std::filesystem;

namespace {

constexpr std::size_t kBufferBytes = std::size_t{256} * 1024;

void Require(bool done, const char* what) {
  if (!done) throw std::runtime_error(std::string("cannot ") + what);
}

// Calls `visit` with an open descriptor and the size of each regular file.
void ForEachFile(int folder, const std::function<void(int, std::uint64_t)>& visit) {
  ::DIR* stream = ::fdopendir(folder);
  Require(stream != nullptr, "list a folder");
  while (const ::dirent* entry = ::readdir(stream)) {
    if (entry->d_name[0] == '.') continue;
    const int flags = O_RDONLY | O_CLOEXEC | (entry->d_type == DT_DIR ? O_DIRECTORY : 0);
    const int file = ::openat(folder, entry->d_name, flags);
    Require(file >= 0, "open a file");
    if (entry->d_type == DT_DIR) {
      ForEachFile(file, visit);
      continue;
    }
    struct ::stat status;
    Require(::fstat(file, &status) == 0, "ask for a size");
    visit(file, static_cast<std::uint64_t>(status.st_size));
    ::close(file);
  }
  ::closedir(stream);
}

int OpenFolder(const fs::path& folder) {
  const int file = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  Require(file >= 0, "open a folder");
  return file;
}

// Fresh memory, in huge pages where that is asked for and to be had.
class Pages {
 public:
  Pages(std::uint64_t bytes, bool huge) : size(bytes) {
    void* pages = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    Require(pages != MAP_FAILED, "get memory");
    first = static_cast<std::uint8_t*>(pages);
    if (huge) ::madvise(pages, size, MADV_HUGEPAGE);
  }
  ~Pages() { ::munmap(first, size); }
  Pages(const Pages&) = delete;
  Pages& operator=(const Pages&) = delete;

  std::uint8_t* first;
  const std::uint64_t size;
};

void ReadTo(int file, std::uint8_t* target, std::uint64_t bytes) {
  while (bytes > 0) {
    const ::ssize_t got = ::read(file, target, bytes);
    Require(got > 0, "read a file");
    target += got;
    bytes -= static_cast<std::uint64_t>(got);
  }
}

}  // namespace

std::uint64_t ReadAndHashFolder(const fs::path& folder) {
  const Pages buffer(kBufferBytes, false);
  std::uint64_t mixed = 0;
  ForEachFile(OpenFolder(folder), [&](int file, std::uint64_t size) {
    std::uint64_t hash = internal::kEmptyHash;
    for (std::uint64_t left = size; left > 0;) {
      const std::uint64_t part = std::min<std::uint64_t>(left, buffer.size);
      ReadTo(file, buffer.first, part);
      hash = internal::HashBytes({buffer.first, part}, hash);
      left -= part;
    }
    mixed ^= hash;
  });
  return mixed;
}

std::uint64_t ReadAndHashImage(const fs::path& image, std::uint64_t fileBytes) {
  const std::uint64_t size = fs::file_size(image);
  const Pages pages(size, true);
  const int file = ::open(image.c_str(), O_RDONLY | O_CLOEXEC);
  Require(file >= 0, "open the image");
  ReadTo(file, pages.first, size);
  ::close(file);
  return internal::HashBytes({pages.first, std::min(size, fileBytes)});
}

void ReadIntoPlaceAndWrite(const fs::path& folder, const fs::path& image, std::uint64_t imageBytes,
                           std::uint64_t clusterBytes) {
  const Pages pages(imageBytes, false);
  std::uint64_t place = 0;
  ForEachFile(OpenFolder(folder), [&](int file, std::uint64_t size) {
    Require(size <= imageBytes - place, "fit the files");
    // Small pages for what is small: a huge one for a few bytes would be filled with zeros whole.
    if (size >= std::uint64_t{4} << 20) {
      ::madvise(pages.first + place / 4096 * 4096, size, MADV_HUGEPAGE);
    }
    ReadTo(file, pages.first + place, size);
    place += (size + clusterBytes - 1) / clusterBytes * clusterBytes;
  });
  const int out = ::open(image.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  Require(out >= 0, "open the output");
  for (std::uint64_t done = 0; done < imageBytes;) {
    const ::ssize_t put = ::write(out, pages.first + done, imageBytes - done);
    Require(put > 0, "write the image");
    done += static_cast<std::uint64_t>(put);
  }
  ::close(out);
}

}  // namespace quorbix::virtdisk::bench

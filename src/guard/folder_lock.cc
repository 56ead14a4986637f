#include "guard/folder_lock.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>
#include <utility>
#include <vector>

#include "common/fail.h"
#include "common/host_file.h"
#include "guard/file_lock.h"

namespace quorbix::virtdisk::internal::guard {
namespace fs = std::filesystem;

namespace {

constexpr std::size_t kNowhere = std::string_view::npos;
constexpr char kUnknownHolder[] = "another process";
constexpr char kAllLocks[] = "/proc/locks";
// Some thousands of lines: of more, the holder may remain unknown.
constexpr std::size_t kMostBytesOfLocks = std::size_t{256} * 1024;

// Of a line "1: FLOCK  ADVISORY  WRITE 1234 fe:00:5678 0 EOF" the number before `place`; nothing
// when the line is about another lock, or about somebody who waits for one ("1: -> FLOCK").
std::string_view HolderInLine(std::string_view line, std::string_view place) {
  const std::size_t at = line.find(place);
  const bool isHeld = line.find(" FLOCK ") != kNowhere && line.find("->") == kNowhere;
  if (at == kNowhere || !isHeld) return {};
  const std::string_view before = line.substr(0, at);
  const std::string_view holder = before.substr(before.rfind(' ') + 1);
  const bool isProcess = holder != "0" && holder.find_first_not_of("0123456789") == kNowhere;
  return isProcess ? holder : std::string_view();
}

// As far as the system tells: not in another container, nor where a file system has device numbers
// of its own.
std::string HolderOf(const struct ::stat& folder) {
  std::array<char, 64> place{};
  const int length = std::snprintf(
      place.data(), place.size(), " %02x:%02x:%llu ", static_cast<unsigned>(major(folder.st_dev)),
      static_cast<unsigned>(minor(folder.st_dev)), static_cast<unsigned long long>(folder.st_ino));
  const std::string_view wanted(place.data(), static_cast<std::size_t>(std::max(length, 0)));
  const Descriptor file = OpenHostPath(kAllLocks, O_RDONLY);
  std::vector<std::uint8_t> bytes(kMostBytesOfLocks);
  const std::ptrdiff_t size = file ? ReadFully(file.Get(), bytes) : 0;
  std::string_view text(reinterpret_cast<const char*>(bytes.data()),
                        static_cast<std::size_t>(std::max<std::ptrdiff_t>(size, 0)));
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size() - 1);
    const std::string_view holder = HolderInLine(text.substr(0, end), wanted);
    if (!holder.empty()) return "process " + std::string(holder);
    text.remove_prefix(end + 1);
  }
  return kUnknownHolder;
}

std::string TextFor(int file, const fs::path& folder) {
  struct ::stat status;
  const std::string holder = ::fstat(file, &status) == 0 ? HolderOf(status) : kUnknownHolder;
  return holder + " keeps the folder " + folder.string() +
         " in step already, and remembers it elsewhere";
}

Descriptor OpenToLock(const fs::path& folder) {
  return OpenHostPath(folder.c_str(), O_RDONLY | O_DIRECTORY);
}

}  // namespace

bool FolderLock::Take(const fs::path& folder, std::string& err) {
  if (locked && IsOpenAt(locked.Get(), folder)) return true;
  // Whoever finds the old folder elsewhere may work on it.
  locked.Close();
  Descriptor opened = OpenToLock(folder);
  const Locking locking = opened ? TryLock(opened.Get()) : Locking::kFailed;
  if (locking == Locking::kHeld) return Fail(err, TextFor(opened.Get(), folder));
  if (locking == Locking::kTaken) locked = std::move(opened);
  return true;
}

bool FolderLock::Look(const fs::path& folder, std::string& err) const {
  if (locked && IsOpenAt(locked.Get(), folder)) return true;
  const Descriptor opened = OpenToLock(folder);
  const bool isHeld = opened && LookAtLock(opened.Get()) == Locking::kHeld;
  return !isHeld || Fail(err, TextFor(opened.Get(), folder));
}

}  // namespace quorbix::virtdisk::internal::guard

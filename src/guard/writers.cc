#include "guard/writers.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "common/folder_listing.h"
#include "common/host_file.h"

namespace quorbix::virtdisk::internal::guard {
namespace fs = std::filesystem;

namespace {

// A lease for reading is granted when nobody has the file open for writing. Nothing: the file
// system has no leases, or this process may not take one.
std::optional<bool> AskForWriters(int folder, const std::string& name) {
  struct ::stat status;
  const Descriptor file = OpenRegularFileNow(folder, name.c_str(), status);
  if (!file) return errno == EWOULDBLOCK ? std::optional(true) : std::nullopt;
  // Whoever opens the file while the lease is held makes the system send a signal; the usual one
  // would end the process.
  if (::fcntl(file.Get(), F_SETSIG, SIGURG) != 0) return std::nullopt;
  if (::fcntl(file.Get(), F_SETLEASE, F_RDLCK) == 0) {
    ::fcntl(file.Get(), F_SETLEASE, F_UNLCK);
    return false;
  }
  return errno == EAGAIN ? std::optional(true) : std::nullopt;
}

bool IsNumber(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(),
                                      [](unsigned char c) { return std::isdigit(c) != 0; });
}

// "flags:" with an octal number, as open(2) was given.
bool IsWritableDescriptor(const std::string& info) {
  struct ::stat status;
  const Descriptor file = OpenRegularFile(info.c_str(), status);
  std::array<std::uint8_t, 512> bytes{};
  const std::ptrdiff_t size = file ? ReadFully(file.Get(), bytes) : 0;
  const std::string text(bytes.begin(), bytes.begin() + std::max<std::ptrdiff_t>(size, 0));
  const std::size_t at = text.find("flags:");
  if (at == std::string::npos) return false;
  const auto flags =
      std::strtoul(text.c_str() + at + std::string_view("flags:").size(), nullptr, 8);
  return (flags & O_ACCMODE) != O_RDONLY;
}

bool HasOpenForWriting(const std::string& process, const struct ::stat& wanted) {
  const std::string folder = "/proc/" + process;
  for (const ListedEntry& entry : ListFolder(folder + "/fd").entries) {
    struct ::stat status;
    if (::stat((folder + "/fd/" + entry.name).c_str(), &status) != 0) continue;
    if (status.st_dev != wanted.st_dev || status.st_ino != wanted.st_ino) continue;
    if (IsWritableDescriptor(folder + "/fdinfo/" + entry.name)) return true;
  }
  return false;
}

// Among the processes that this one may look into.
std::string FindProcess(const fs::path& path) {
  struct ::stat wanted;
  if (::stat(path.c_str(), &wanted) != 0) return {};
  for (const ListedEntry& entry : ListFolder("/proc").entries) {
    if (IsNumber(entry.name) && HasOpenForWriting(entry.name, wanted)) {
      return "process " + entry.name;
    }
  }
  return {};
}

}  // namespace

std::string FindWriter(const fs::path& file) {
  const auto known = AskForWriters(AT_FDCWD, file.native());
  if (known && !*known) return {};
  const std::string process = FindProcess(file);
  return process.empty() && known ? "another process" : process;
}

std::string ImageInUseText(const fs::path& image) {
  const std::string writer = FindWriter(image);
  return writer.empty() ? writer : writer + " has the image open for writing";
}

bool IsOpenForWriting(int folder, const std::string& name) {
  struct ::stat status;
  const bool isFile =
      ::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(status.st_mode);
  return isFile && AskForWriters(folder, name).value_or(false);
}

std::string HasOpenText(const std::string& path) {
  return "another program has " + path + " open for writing";
}

}  // namespace quorbix::virtdisk::internal::guard

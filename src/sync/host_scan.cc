#include "sync/host_scan.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <span>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "common/byte_buffer.h"
#include "common/folder_walk.h"
#include "common/host_file.h"
#include "common/text_bytes.h"
#include "sync/hash_bytes.h"

namespace quorbix::virtdisk::internal {
namespace fs = std::filesystem;

namespace {

constexpr char kCannotCreateHostFolder[] = "Cannot create host folder: ";
constexpr char kHostDirectoryWalkFailed[] = "Host directory walk failed: ";
constexpr std::uint64_t kLargestSize = 0xFFFFFFFF;

std::uint64_t Combine(std::uint64_t seed, std::uint64_t value) {
  return seed ^ (value + 0x9E3779B97F4A7C15 + (seed << 6) + (seed >> 2));
}

// The file clock's epoch is the year 2174: until then stamps are negative and become 0. The
// conflict rule is meant to see them so.
std::uint64_t RawStamp(const ::timespec& time) {
  using std::chrono::nanoseconds;
  using std::chrono::seconds;
  constexpr auto kLargest = std::chrono::duration_cast<seconds>(nanoseconds::max());
  if (time.tv_sec < 0 || time.tv_sec >= kLargest.count()) return 0;
  const std::chrono::sys_time<nanoseconds> system{seconds(time.tv_sec) + nanoseconds(time.tv_nsec)};
  const auto ticks = std::chrono::file_clock::from_sys(system).time_since_epoch().count();
  return ticks < 0 ? 0 : static_cast<std::uint64_t>(ticks);
}

// What a scan wants to know of one file.
struct FileContent {
  std::uint64_t hash = 0;
  std::uint64_t size = 0;  // bytes
  std::uint64_t stamp = 0;
};

// Reads one file after the other through one buffer. An idle pass consists of little else, so each
// file costs four calls of the system: one that opens it, one for size and time, one that reads,
// one that closes. Streams and path queries would double the calls.
class FileHasher {
 public:
  FileHasher() : buffer(kBufferBytes) {}

  // False when the walk's file cannot be opened, or cannot be read up to the size it had then.
  bool Hash(FolderWalk& walk, FileContent& content) {
    struct ::stat status;
    const Descriptor file = walk.OpenRegularFile(status);
    if (!file) return false;
    content = {kEmptyHash, static_cast<std::uint64_t>(status.st_size), RawStamp(status.st_mtim)};
    for (std::uint64_t left = content.size; left > 0;) {
      const std::span part(buffer.data(), std::min<std::uint64_t>(left, buffer.size()));
      if (ReadFully(file.Get(), part) != static_cast<std::ptrdiff_t>(part.size())) return false;
      content.hash = HashBytes(part, content.hash);
      left -= part.size();
    }
    return true;
  }

 private:
  // Stays in the processor's cache.
  static constexpr std::size_t kBufferBytes = std::size_t{256} * 1024;

  ByteBuffer buffer;
};

bool EnsureFolder(const fs::path& root, std::string& error) {
  std::error_code ec;
  if (fs::exists(fs::status(root, ec))) return true;
  fs::create_directories(root, ec);
  if (!ec) return true;
  error = kCannotCreateHostFolder + root.native() + " (" + ec.message() + ")";
  return false;
}

// Takes the walk's own prefix off, so that links and ".." in `root` stay what they are and the
// system is not asked.
std::string RelativeTo(const fs::path& root, const std::string& entry) {
  return entry.substr(entry.find_first_not_of('/', root.native().size()));
}

std::uint64_t EntrySignature(const HostFile& file) {
  std::uint64_t value = file.version.contentHash;
  value = Combine(value, HashBytes(AsBytes(file.key)));
  value = Combine(value, file.version.size);
  return Combine(value, file.version.modifiedStamp);
}

bool IsRegularFile(const FolderWalk& walk) {
  std::error_code ignored;
  return walk.IsRegularFile(ignored);
}

bool IsHidden(std::string_view relPath) {
  return relPath.substr(relPath.rfind('/') + 1).starts_with('.');
}

}  // namespace

VersionMap VersionsOf(const HostSnapshot& snapshot) {
  VersionMap versions;
  versions.reserve(snapshot.files.size());
  for (const HostFile& file : snapshot.files) versions.insert_or_assign(file.key, file.version);
  return versions;
}

PathMap PathsOf(const HostSnapshot& snapshot) {
  PathMap paths;
  paths.reserve(snapshot.files.size());
  for (const HostFile& file : snapshot.files) paths.insert_or_assign(file.key, file.relPath);
  return paths;
}

void ScanHostFiles(const fs::path& root, HostSnapshot& snapshot, std::string& error) {
  snapshot = HostSnapshot();
  if (!EnsureFolder(root, error)) return;
  FileHasher hasher;
  std::error_code ec;
  FolderWalk walk(root, ec);
  // A folder that cannot be opened is an empty one: the end is looked at before the error.
  for (; !walk.AtEnd(); walk.Advance()) {
    if (ec) {
      error = kHostDirectoryWalkFailed + ec.message();
      return;
    }
    if (!IsRegularFile(walk)) continue;
    HostFile file{.relPath = RelativeTo(root, walk.Path()), .key = {}, .version = {}};
    FileContent content;
    if (IsHidden(file.relPath) || !hasher.Hash(walk, content)) continue;
    file.key = KeyFromRelPath(file.relPath);
    file.version = {
        .contentHash = content.hash,
        .modifiedStamp = content.stamp,
        .size = static_cast<std::uint32_t>(std::min<std::uint64_t>(content.size, kLargestSize))};
    snapshot.signature = Combine(snapshot.signature, EntrySignature(file));
    snapshot.files.push_back(std::move(file));
  }
}

}  // namespace quorbix::virtdisk::internal

#include "guard/first_meeting.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <set>
#include <utility>
#include <vector>

#include "builder/host_entry.h"
#include "builder/tree_population.h"
#include "common/folder_listing.h"
#include "common/host_file.h"
#include "guard/disk_names.h"
#include "guard/host_content.h"
#include "preview/shown_name.h"

namespace quorbix::virtdisk::internal::guard {
namespace fs = std::filesystem;

namespace {

// Goes through the folder as a build does, for the names that it gives, and copies nothing. Only
// what the disk has is of interest: whatever else links may lead to is neither listed nor read.
class NamesOfABuild final : public PopulationTarget {
 public:
  NamesOfABuild(const fs::path& topFolder, const Observation& bothSides, WorkMonitor& workMonitor)
      : folder(topFolder), seen(bothSides), monitor(workMonitor), reader(workMonitor) {}

  FirstMeeting Run() {
    HostQueries host;
    host.list = [this](const fs::path& path) {
      return barren.contains(path.native()) ? FolderListing() : ListFolder(path.native());
    };
    if (!seen.disk.empty()) static_cast<void>(Populate(*this, folder, host));
    return std::move(meeting);
  }

  std::uint32_t AddDirectory(const PlacedEntry& entry) override {
    if (monitor.IsStopped()) return 0;
    std::string path = DiskPathOf(entry);
    const DiskItem* item = OnDisk(entry, path);
    const bool isDirectory = item != nullptr && item->type == EntryType::kFolder;
    if (!isDirectory) barren.insert(entry.path.native());
    const bool isNamed = item != nullptr && NoteName(entry, path);
    if (isDirectory && !isNamed && !item->isDated) Ignore(*item);
    directories.push_back(std::move(path));
    return static_cast<std::uint32_t>(directories.size() - 1);
  }

  FileResult AddFile(const PlacedEntry& entry) override {
    if (monitor.IsStopped()) return FileResult::kFull;
    if (::faccessat(AT_FDCWD, entry.path.c_str(), R_OK, AT_EACCESS) != 0) {
      return FileResult::kUnreadable;
    }
    const std::string path = DiskPathOf(entry);
    const DiskItem* item = OnDisk(entry, path);
    if (item == nullptr || NoteName(entry, path)) return FileResult::kAdded;
    const bool isOfABuild = item->type == EntryType::kFile && item->isReadable && !item->isDated;
    if (isOfABuild && Says(entry.path, item->content)) Ignore(*item);
    return FileResult::kAdded;
  }

  void Skip(const fs::path& /*path*/, const std::string& /*reason*/) override {}
  void PassOver(const fs::path& /*path*/) override {}

 private:
  std::string DiskPathOf(const PlacedEntry& entry) const {
    return Join(directories[entry.directory], ShownName(entry.shortName));
  }

  // What there is under that path. One without a base is listed nowhere.
  const DiskItem* OnDisk(const PlacedEntry& entry, const std::string& path) const {
    if (HasBlankBase(entry.shortName)) return nullptr;
    const auto item = seen.disk.find(DiskKey(path));
    return item == seen.disk.end() ? nullptr : &item->second;
  }

  // Whether it takes part on the host.
  bool NoteName(const PlacedEntry& entry, const std::string& diskPath) {
    const std::string& path = entry.path.native();
    const std::size_t begin = path.find_first_not_of('/', folder.native().size());
    std::string hostPath = begin == std::string::npos ? std::string() : path.substr(begin);
    if (!seen.host.contains(hostPath)) return false;
    meeting.names.emplace(std::move(hostPath), diskPath);
    return true;
  }

  void Ignore(const DiskItem& item) {
    meeting.ignored.emplace(DiskKey(item.path), Ignored{item.type, item.content});
  }

  bool Says(const fs::path& file, const Content& content) {
    struct ::stat status;
    if (::stat(file.c_str(), &status) != 0 ||
        static_cast<std::uint64_t>(status.st_size) != content.size) {
      return false;
    }
    if (content.size == 0) return true;
    const Descriptor opened = OpenRegularFileNow(AT_FDCWD, file.c_str(), status);
    if (!opened && errno == EWOULDBLOCK) meeting.busyPath = file.native();
    Content found;
    return opened && reader.Read(opened.Get(), found) && found == content;
  }

  const fs::path& folder;
  const Observation& seen;
  WorkMonitor& monitor;
  HostContentReader reader;
  std::vector<std::string> directories{""};  // of the disk, by the numbers handed out
  std::set<std::string> barren;              // folders that no directory of the disk can come from
  FirstMeeting meeting;
};

}  // namespace

FirstMeeting MeetFirst(const fs::path& folder, const Observation& seen, WorkMonitor& monitor) {
  monitor.Begin(GuardedWork::kReadFolder);
  return NamesOfABuild(folder, seen, monitor).Run();
}

}  // namespace quorbix::virtdisk::internal::guard

#include "guard/first_meeting.h"

#include <sys/stat.h>

#include "builder/host_entry.h"
#include "common/folder_listing.h"
#include "common/host_file.h"
#include "guard/host_content.h"
#include "preview/folder_preview.h"
#include "quorbix/virtdisk/build_preview.h"

namespace quorbix::virtdisk::internal::guard {
namespace fs = std::filesystem;

namespace {

bool Says(const fs::path& file, const Content& content, HostContentReader& reader) {
  struct ::stat status;
  const Descriptor opened = OpenRegularFile(file.c_str(), status);
  if (!opened || static_cast<std::uint64_t>(status.st_size) != content.size) return false;
  Content found;
  return reader.Read(opened.Get(), found) && found == content;
}

// Whether a build has made the entry of the disk from this entry of the folder, and no machine has
// touched it since.
bool IsMadeFrom(const BuildPreviewEntry& entry, const fs::path& folder, const DiskItem& item,
                HostContentReader& reader) {
  if (item.isDated || !item.isReadable) return false;
  if (entry.isDirectory || item.type == EntryType::kFolder) {
    return entry.isDirectory && item.type == EntryType::kFolder;
  }
  return entry.bytes == item.content.size && Says(folder / entry.hostPath, item.content, reader);
}

}  // namespace

FirstMeeting MeetFirst(const fs::path& folder, const Observation& seen, WorkMonitor& monitor) {
  FirstMeeting meeting;
  monitor.Begin(GuardedWork::kReadFolder);
  HostContentReader reader(monitor);
  BuildPreview preview;
  std::string ignoredError;
  // It follows links, and there may be much behind them.
  HostQueries host;
  host.list = [&](const fs::path& path) {
    return monitor.IsStopped() ? FolderListing() : ListFolder(path.native());
  };
  // Without a preview, only names that are their own short names find each other.
  if (seen.disk.empty() || !PreviewFolder(folder, host, preview, ignoredError)) return meeting;
  for (const BuildPreviewEntry& entry : preview.entries) {
    if (entry.fate != BuildFate::kCopied || entry.isHidden) continue;
    const std::string disk = entry.imagePath.substr(1);
    if (seen.host.contains(entry.hostPath)) {
      meeting.names.emplace(entry.hostPath, disk);
      continue;
    }
    const auto item = seen.disk.find(DiskKey(disk));
    if (item != seen.disk.end() && IsMadeFrom(entry, folder, item->second, reader)) {
      meeting.ignored.emplace(item->first, Ignored{item->second.type, item->second.content});
    }
  }
  return meeting;
}

}  // namespace quorbix::virtdisk::internal::guard

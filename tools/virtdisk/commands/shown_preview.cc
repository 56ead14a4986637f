#include "commands/shown_preview.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "preview/folder_preview.h"
#include "terminal/progress.h"

namespace quorbix::virtdisk::tool {

namespace {

constexpr std::string_view kPrefix = "dir-iter: ";

// A build goes on without what it could not list, and so would give an empty disk for a folder that
// may not be opened. Empty when it was listed to its end.
std::string WhyTopIsUnlisted(const BuildPreview& preview) {
  const auto top = std::find_if(
      preview.entries.begin(), preview.entries.end(), [](const BuildPreviewEntry& entry) {
        return entry.fate == BuildFate::kLeftOut && entry.hostPath.empty() &&
               entry.reason.starts_with(kPrefix);
      });
  return top == preview.entries.end() ? std::string() : top->reason.substr(kPrefix.size());
}

}  // namespace

std::string WhyTopIsUnlisted(const std::filesystem::path& folder,
                             const std::vector<std::string>& skipped) {
  const std::string beginning = folder.string() + " [" + std::string(kPrefix);
  for (const std::string& item : skipped) {
    if (!item.starts_with(beginning)) continue;
    return item.substr(beginning.size(), item.size() - beginning.size() - 1);
  }
  return {};
}

std::string CannotList(const std::filesystem::path& folder, const std::string& why) {
  return "cannot list " + folder.string() + ": " + why;
}

bool PreviewWithProgress(Console& console, const std::filesystem::path& folder,
                         BuildPreview& preview, std::string& err) {
  Progress progress(console, "looking at files and folders", 0, ProgressUnit::kEntries);
  internal::HostQueries host;
  host.ask = [&progress, usual = host.ask](const std::filesystem::path& path,
                                           std::filesystem::file_type listed) {
    progress.Add(1);
    return usual(path, listed);
  };
  if (!internal::PreviewFolder(folder, host, preview, err)) return false;
  const std::string unlisted = WhyTopIsUnlisted(preview);
  if (!unlisted.empty()) err = CannotList(folder, unlisted);
  return unlisted.empty();
}

}  // namespace quorbix::virtdisk::tool

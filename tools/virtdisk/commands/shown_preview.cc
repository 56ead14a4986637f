#include "commands/shown_preview.h"

#include "preview/folder_preview.h"
#include "terminal/progress.h"

namespace quorbix::virtdisk::tool {

bool PreviewWithProgress(Console& console, const std::filesystem::path& folder,
                         BuildPreview& preview, std::string& err) {
  Progress progress(console, "looking at files and folders", 0, ProgressUnit::kEntries);
  internal::HostQueries host;
  host.ask = [&progress, usual = host.ask](const std::filesystem::path& path,
                                           std::filesystem::file_type listed) {
    progress.Add(1);
    return usual(path, listed);
  };
  return internal::PreviewFolder(folder, host, preview, err);
}

}  // namespace quorbix::virtdisk::tool

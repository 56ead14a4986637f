#include "commands/shown_preview.h"

#include "preview/folder_preview.h"
#include "terminal/progress.h"

namespace quorbix::virtdisk::tool {

bool PreviewWithProgress(Console& console, const std::filesystem::path& folder,
                         BuildPreview& preview, std::string& err) {
  Progress progress(console, "looking at files and folders", 0, ProgressUnit::kEntries);
  internal::HostQueries host;
  host.ask = [&](const std::filesystem::path& path, std::filesystem::file_type listed,
                 std::error_code& error) {
    progress.Add(1);
    return internal::AskKind(path, listed, error);
  };
  return internal::PreviewFolder(folder, host, preview, err);
}

}  // namespace quorbix::virtdisk::tool

#include <filesystem>
#include <optional>
#include <system_error>

#include <quorbix/virtdisk/fat_image_builder.h>

#include "commands/commands.h"
#include "host/folder_survey.h"
#include "host/plan.h"
#include "terminal/exit_status.h"
#include "terminal/json.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {

int RunMeasure(Console& console, const MeasureOptions& options) {
  std::error_code failed;
  const std::filesystem::file_status status = std::filesystem::status(options.folder, failed);
  if (!std::filesystem::is_directory(status)) {
    if (status.type() == std::filesystem::file_type::none) {
      return Fail(console, "cannot look at " + options.folder.string() + ": " + failed.message(),
                  "May you open the folders that lead there?");
    }
    const bool exists = std::filesystem::exists(status);
    return Fail(console,
                (exists ? "Source path is not a directory: " : "Source folder does not exist: ") +
                    options.folder.string(),
                "Give the path of an existing folder.");
  }
  const std::uint64_t bytes = CreateFat16Builder()->MeasureFolderSize(options.folder);
  const FolderSurvey survey = SurveyFolder(options.folder);
  const std::optional<std::uint64_t> size = SmallestSize(survey.content);
  if (options.json) {
    console.out << OneLine({{"folder", options.folder.string()},
                            {"bytes", bytes},
                            {"autoSize", size ? Json(*size) : Json(nullptr)}})
                << "\n";
  } else {
    console.out << "files      " << GroupDigits(bytes) << " bytes\n"
                << "auto size  " << (size ? FormatBytes(*size) : "(none)") << "\n";
  }
  if (!size) {
    Warn(console, "no FAT16 image is large enough for " + options.folder.string());
  }
  if (survey.content.rootOverflows) {
    Warn(console, options.folder.string() +
                      " has more than 511 entries at its top, which no image's root can hold");
  }
  return kDone;
}

}  // namespace quorbix::virtdisk::tool

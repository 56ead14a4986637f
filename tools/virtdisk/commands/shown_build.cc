#include "commands/shown_build.h"

#include "builder/build_observer.h"
#include "builder/image_content.h"
#include "commands/shown_preview.h"
#include "terminal/progress.h"

namespace quorbix::virtdisk::tool {
namespace {

class ShownBuild final : public internal::BuildObserver {
 public:
  ShownBuild(Console& console, std::uint64_t fileBytes) : progress(console, "copying", fileBytes) {}
  void OnBytes(std::uint64_t bytes) override { progress.Add(bytes); }

 private:
  Progress progress;
};

}  // namespace

bool FillShown(Console& console, internal::Fat16Image& image, std::uint64_t sizeBytes,
               std::string_view label, const std::filesystem::path& folder, std::uint64_t fileBytes,
               std::string& err, std::vector<std::string>& skipped) {
  ShownBuild shown(console, fileBytes);
  if (!internal::FillImage(image, sizeBytes, label, folder, err, skipped, &shown)) return false;
  const std::string unlisted = WhyTopIsUnlisted(folder, skipped);
  if (!unlisted.empty()) err = CannotList(folder, unlisted);
  return unlisted.empty();
}

bool WriteShown(Console& console, const internal::Fat16Image& image, ImageOutput& output,
                std::string& err) {
  image.PrepareToRead();
  Progress progress(console, "writing", image.Bytes().size());
  const std::string lastWords = FailureText(console, output.Path().string() + " " + kHalfWritten);
  return output.Write(
      image.Bytes(), [&](std::uint64_t bytes) { progress.Add(bytes); }, lastWords, err);
}

}  // namespace quorbix::virtdisk::tool

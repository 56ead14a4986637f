#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "browser/content_reader.h"
#include "commands/commands.h"
#include "disk/file_lookup.h"
#include "disk/opened_image.h"
#include "terminal/exit_status.h"
#include "terminal/json.h"
#include "terminal/progress.h"

namespace quorbix::virtdisk::tool {
namespace {

// Prints a file's content as it comes: as it is, or as an object in JSON, which is never held
// whole.
class ContentOutput {
 public:
  ContentOutput(Console& theConsole, const Fat16FsEntry& theEntry, bool asJson)
      : console(theConsole), entry(theEntry), isJson(asJson) {}

  void Add(std::span<const std::uint8_t> piece) {
    if (!isJson) {
      console.out.write(reinterpret_cast<const char*>(piece.data()),
                        static_cast<std::streamsize>(piece.size()));
      return;
    }
    Begin();
    bytes += piece.size();
    rest.insert(rest.end(), piece.begin(), piece.end());
    const std::size_t whole = rest.size() - rest.size() % kBytesOfFourDigits;
    console.out << Base64(std::span(rest).first(whole));
    rest.erase(rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(whole));
  }

  bool HasBegun() const { return hasBegun; }

  // After what there is to tell of failures was told.
  void End() {
    if (!isJson) return;
    Begin();
    Json behind{{"bytes", bytes}};
    AddError(console, behind);
    console.out << Base64(rest) << "\"," << OneLine(behind).substr(1) << "\n";
  }

 private:
  static constexpr std::size_t kBytesOfFourDigits = 3;

  void Begin() {
    if (std::exchange(hasBegun, true)) return;
    std::string record = OneLine(EntryRecord(entry, false));
    record.back() = ',';  // in place of its end
    console.out << record << "\"contentBase64\":\"";
  }

  Console& console;
  const Fat16FsEntry& entry;
  const bool isJson;
  bool hasBegun = false;
  std::uint64_t bytes = 0;
  std::vector<std::uint8_t> rest;
};

}  // namespace

int RunCat(Console& console, const CatOptions& options) {
  if (options.path.empty()) return FailAsEmpty(console, "PATH");
  int status = kDone;
  const auto image = OpenedImage::Open(console, options.image, {.force = options.force}, status);
  if (!image) return status;
  const auto entry = FindFile(console, *image, options.path, options.image, false);
  if (!entry) return kFailed;
  internal::ContentReader content = image->Index().Open(entry->firstCluster, entry->size);
  std::optional<Progress> progress;
  // Among the content itself the line would be in the way.
  if (!console.outIsTerminal) progress.emplace(console, "reading " + entry->name, content.Total());
  ContentOutput output(console, *entry, options.json);
  std::string err;
  std::span<const std::uint8_t> piece;
  do {
    if (!content.Next(piece, err)) {
      Fail(console, err, HintFor(err, options.path, options.image));
      if (output.HasBegun()) output.End();
      return kFailed;
    }
    if (progress) progress->Add(piece.size());
    output.Add(piece);
  } while (!piece.empty() && console.out);
  const bool isShort = content.Total() != entry->size;
  if (isShort) Fail(console, ShortText(*entry, content.Total()), kShortHint);
  output.End();
  return isShort ? kFailed : kDone;
}

}  // namespace quorbix::virtdisk::tool

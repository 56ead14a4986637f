#include <cstdint>
#include <optional>
#include <span>
#include <string>
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

void PrintContent(Console& console, const Fat16FsEntry& entry,
                  std::span<const std::uint8_t> content) {
  Json record = EntryRecord(entry);
  record["bytes"] = content.size();
  record["contentBase64"] = Base64(content);
  AddError(console, record);
  console.out << OneLine(record) << "\n";
}

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
  std::vector<std::uint8_t> all;  // for JSON
  std::string err;
  std::span<const std::uint8_t> piece;
  do {
    if (!content.Next(piece, err)) {
      return Fail(console, err, HintFor(err, options.path, options.image));
    }
    if (progress) progress->Add(piece.size());
    if (options.json) {
      all.insert(all.end(), piece.begin(), piece.end());
    } else {
      console.out.write(reinterpret_cast<const char*>(piece.data()),
                        static_cast<std::streamsize>(piece.size()));
    }
  } while (!piece.empty() && console.out);
  const bool isShort = content.Total() != entry->size;
  if (isShort) Fail(console, ShortText(*entry, content.Total()), kShortHint);
  if (options.json) PrintContent(console, *entry, all);
  return isShort ? kFailed : kDone;
}

}  // namespace quorbix::virtdisk::tool

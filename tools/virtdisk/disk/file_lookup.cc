#include "disk/file_lookup.h"

#include "disk/image_file.h"
#include "disk/image_tree.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {

namespace fs = std::filesystem;

std::optional<Fat16FsEntry> FindFile(Console& console, const OpenedImage& image,
                                     const std::string& path, const fs::path& imagePath,
                                     bool hiddenToo) {
  std::string err;
  const internal::EntryRecord* record = image.Index().FindFile(path, err);
  if (record != nullptr) return record->Entry(image.Index().PathOf(*record));
  if (hiddenToo) {
    const ImageTree tree(image.Index());
    const Fat16FsEntry* entry = tree.Find(path);
    if (entry != nullptr && !entry->isDirectory) return *entry;
  }
  Fail(console, err, HintFor(err, path, imagePath));
  return std::nullopt;
}

std::string HintFor(const std::string& message, const std::string& path, const fs::path& image) {
  const std::string what = Within(path, image);
  if (message == "file not found") {
    return what + ": `virtdisk find` and `virtdisk ls` show what there is.";
  }
  if (message == "path is a directory") {
    return what + ": `virtdisk ls` lists it, `virtdisk get` copies all of it.";
  }
  if (message.starts_with("image could not be read")) return what + " could not be read whole.";
  return what + ": the file's chain of clusters is damaged.";
}

std::string ShortText(const Fat16FsEntry& entry, std::uint64_t got) {
  return entry.path + " has only " + GroupDigits(got) + " of its " +
         Count(entry.size, "byte", "bytes");
}

}  // namespace quorbix::virtdisk::tool

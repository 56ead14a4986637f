#include "disk/file_lookup.h"

#include "disk/image_tree.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {

namespace {

namespace fs = std::filesystem;

using internal::VolumeIndex;

constexpr char kNotFound[] = "file not found";
constexpr char kIsDirectory[] = "path is a directory";

// Looks at the volume once more, this time for what no listing shows.
std::string HintForMissing(const OpenedImage& image, const std::string& path,
                           const fs::path& imagePath) {
  VolumeIndex index(image.Source());
  std::string unknown;
  const bool isRead = index.Parse(unknown, VolumeIndex::Hidden::kCollectDotsToo);
  if (!isRead || index.HiddenEntries().empty() || HasEndlessPaths(index)) {
    return HintFor(kNotFound, path, imagePath);
  }
  const std::string what = Within(path, imagePath);
  if (ImageTree tree(index); tree.Find(path) != nullptr) {
    return what + " is in no listing: `virtdisk get --all` copies it.";
  }
  return what + ": `virtdisk find --all` and `virtdisk ls --all` show what there is.";
}

}  // namespace

std::optional<Fat16FsEntry> FindFile(Console& console, const OpenedImage& image,
                                     const std::string& path, const fs::path& imagePath,
                                     bool hiddenToo) {
  std::string err;
  const internal::EntryRecord* record = image.Index().FindFile(path, err);
  if (record != nullptr) return record->Entry(image.Index().PathOf(*record));
  const ImageTree tree(image.Index());
  const Fat16FsEntry* entry = hiddenToo ? tree.Find(path) : nullptr;
  if (entry != nullptr && !entry->isDirectory) return *entry;
  if (tree.IsDirectory(path)) err = kIsDirectory;  // also the root, which has no entry to look up
  Fail(console, err,
       err == kNotFound ? HintForMissing(image, path, imagePath) : HintFor(err, path, imagePath));
  return std::nullopt;
}

std::uint64_t BytesThere(const OpenedImage& image, const Fat16FsEntry& file) {
  return image.Index().Open(file.firstCluster, file.size).Total();
}

std::string HintFor(const std::string& message, const std::string& path, const fs::path& image) {
  const std::string what = Within(path, image);
  if (message == kNotFound) {
    return what + ": `virtdisk find` and `virtdisk ls` show what there is.";
  }
  if (message == kIsDirectory) {
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

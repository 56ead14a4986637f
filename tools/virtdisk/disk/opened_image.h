#ifndef QUORBIX_VIRTDISK_TOOL_OPENED_IMAGE_H_
#define QUORBIX_VIRTDISK_TOOL_OPENED_IMAGE_H_

#include <filesystem>
#include <memory>

#include "browser/file_source.h"
#include "browser/volume_index.h"
#include "disk/image_tree.h"
#include "disk/shown_source.h"
#include "terminal/console.h"

namespace quorbix::virtdisk::tool {

// The image at `path`, to read from. Null after telling the console why not.
std::unique_ptr<internal::FileSource> OpenSource(Console& console,
                                                 const std::filesystem::path& path);

// An image whose volume is indexed, and whose files are read from it when they are asked for: never
// all of it.
class OpenedImage {
 public:
  struct Wish {
    bool force = false;   // also a volume that would be misread: see RefuseMisread
    bool hidden = false;  // collect the entries that no listing shows
    bool whole = false;   // nothing but a volume whose directories can all be read
  };

  // Null after telling the console why; `status` is then what the program should end with. Of
  // directories that cannot be read the console is told as of a failure. While it is indexed a line
  // shows how much has been read.
  static std::unique_ptr<OpenedImage> Open(Console& console, const std::filesystem::path& path,
                                           const Wish& wish, int& status);

  // Tells the console where not all entries that no listing shows could be read. For whoever wished
  // for them.
  void TellHiddenLeftOut(Console& console) const;

  // Everything that the index has. While it is put in order a line shows how far that is.
  ImageTree Tree(Console& console) const;

  const internal::VolumeIndex& Index() const { return index; }
  const Fat16FsInfo& Info() const { return index.Info(); }
  internal::ByteSource& Source() const { return *source; }
  std::uint64_t Bytes() const { return source->Size(); }

 private:
  OpenedImage(Console& console, std::unique_ptr<internal::FileSource> opened)
      : source(std::move(opened)), shown(console, *source), index(shown) {}

  void TellBroken(Console& console, const std::filesystem::path& path) const;

  std::unique_ptr<internal::FileSource> source;
  ShownSource shown;
  internal::VolumeIndex index;
};

// Every FAT is read as one of 16-bit words. Of a volume that says FAT12 or FAT32, or that has too
// few clusters for FAT16 without saying that it is, this would give, and write, wrong content: it
// is refused, and the console told, unless `force` is set. True: refused, with status 3.
//
// For whoever writes into an image, too: to be asked before anything is changed.
[[nodiscard]] bool RefuseMisread(Console& console, const Fat16FsInfo& info,
                                 const std::filesystem::path& image, bool force);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_OPENED_IMAGE_H_

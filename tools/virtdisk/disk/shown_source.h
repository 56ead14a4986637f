#ifndef QUORBIX_VIRTDISK_TOOL_SHOWN_SOURCE_H_
#define QUORBIX_VIRTDISK_TOOL_SHOWN_SOURCE_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "browser/byte_source.h"
#include "terminal/console.h"
#include "terminal/progress.h"

namespace quorbix::virtdisk::tool {

// An image that somebody reads who cannot tell how far he is: how much has been read is shown, on a
// line that goes with this object, or before. Of a tree that is being discovered nobody knows how
// much there is to read; where somebody knows another measure, that can take its place.
class ShownSource final : public internal::ByteSource {
 public:
  // `image` has to outlive this.
  ShownSource(Console& console, internal::ByteSource& image) : source(image) {
    line.emplace(console, "reading the disk", 0);
  }

  // Takes the line away, for what shows one of its own.
  void Finish() { line.reset(); }

  // Shows from the first call on how many of `total` there have been, not how much has been read.
  void Count(const char* what, std::uint64_t more, std::uint64_t total) {
    if (!line) return;
    if (!isCounted) line->Turn(what, total, ProgressUnit::kEntries);
    isCounted = true;
    line->Add(more);
  }

  std::uint64_t Size() const override { return source.Size(); }
  const std::uint8_t* Read(std::uint64_t offset, std::size_t size,
                           std::vector<std::uint8_t>& buffer, std::string& err) override {
    const std::uint8_t* bytes = source.Read(offset, size, buffer, err);
    if (line && !isCounted) line->Add(size);
    return bytes;
  }

 private:
  internal::ByteSource& source;
  std::optional<Progress> line;
  bool isCounted = false;
};

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_SHOWN_SOURCE_H_

#ifndef QUORBIX_VIRTDISK_TOOL_BUILD_OUTPUT_H_
#define QUORBIX_VIRTDISK_TOOL_BUILD_OUTPUT_H_

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

#include <quorbix/virtdisk/build_preview.h>

#include "commands/commands.h"
#include "common/descriptor.h"
#include "guard/host_view.h"
#include "host/new_file.h"
#include "host/piecewise.h"
#include "terminal/console.h"

namespace quorbix::virtdisk::tool {

// Whether what was given as the folder is an image, or has the name of one, and what was given as
// the image is a folder.
bool AreExchanged(const std::filesystem::path& folder, const std::filesystem::path& image);

// Whether an image may be written where the options want it. Tells the console why not.
bool IsOutputAcceptable(Console& console, const BuildOptions& options);

// Whether what is to be copied has nothing to do with the place where the image goes: by a link the
// folder may lead there, or to the image itself. Tells the console where it does.
bool IsLeftAlone(Console& console, const BuildOptions& options, const BuildPreview& preview);

// What is to be said of an image that was being written in place when that ended early.
inline constexpr char kHalfWritten[] = "may be half old and half new; build it again";

// The file that an image is written to: a new one that takes its place when it is complete, or, in
// place, the one that exists. A link stays, and what it leads to is replaced or written to.
class ImageOutput {
 public:
  // Before the work begins, so that it is not done in vain. False: `err` says why.
  [[nodiscard]] bool Open(const std::filesystem::path& image, bool inPlace, std::string& err);

  // False: `err` says why. A new file has gone then, and its place is as it was. An image that is
  // written in place may be half old and half new, but not because the host's disk is full: room is
  // made first. `lastWords` are printed when a signal ends the program in the middle of that.
  [[nodiscard]] bool Write(std::span<const std::uint8_t> bytes, const MovedBytes& moved,
                           const std::string& lastWords, std::string& err);

  // Of a failure of either: whether it would have gone in place, as InPlaceHint tells.
  std::string OtherWay(std::uint64_t bytes) const;

  // Whether the image that exists was written into.
  bool IsTouched() const { return isTouched; }

  // Where the bytes go, behind links.
  const std::filesystem::path& Path() const { return path; }

 private:
  bool WriteIntoExisting(std::span<const std::uint8_t> bytes, const MovedBytes& moved,
                         const std::string& lastWords);

  std::filesystem::path path;
  internal::Descriptor existing;
  internal::guard::Stamp before{};  // of what is there, for one that is written in place
  NewFile replacement;
  int error = 0;  // errno of what failed
  bool isTouched = false;
};

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_BUILD_OUTPUT_H_

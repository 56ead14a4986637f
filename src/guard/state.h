#ifndef QUORBIX_VIRTDISK_GUARD_STATE_H_
#define QUORBIX_VIRTDISK_GUARD_STATE_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "guard/facts.h"
#include "guard/lines.h"
#include "guard/model.h"

namespace quorbix::virtdisk::internal::guard {

// When a file was last changed, and which one it is: as long as all of it is the same, so is the
// content. Times are in nanoseconds since 1970.
struct Stamp {
  Identity identity{};
  std::uint64_t size = 0;
  std::int64_t modified = 0;  // of the content
  std::int64_t changed = 0;   // of the content or of what is noted about the file
  bool operator==(const Stamp&) const = default;
};

// A file's content as it was read, and the stamp it had then.
struct SeenFile {
  Stamp stamp{};
  std::int64_t taken = 0;  // when the reading began
  Content content{};
  bool operator==(const SeenFile&) const = default;
};

// Whether a content that was read at `taken` is still the content of a file with the same stamp.
// Not when the file was changed so shortly before that its times cannot tell a change afterwards.
bool IsTrustworthy(const Stamp& stamp, std::int64_t taken);

// The image as a pass left it.
struct SeenImage {
  std::uint32_t volumeId = 0;
  Stamp stamp{};
  std::int64_t taken = 0;
  // The volume holds what memory says, no more and no less, and was sound: as long as the stamp is
  // the same, nothing of it needs to be read.
  bool isAsRemembered = false;
  bool operator==(const SeenImage&) const = default;
};

// The five numbers of a stamp.
Stamp TakeStamp(Line& line);

// What a pass that makes a new image is about to agree on. It holds as soon as the image has the
// volume id: that is what tells whether the pass came so far before it was cut off.
struct Pending {
  Memory memory{};
  std::uint32_t volumeId = 0;
  // For an image that is written over: the id that it has while it is neither the old one nor the
  // new one, and the file in the state's folder that holds the new one meanwhile.
  std::uint32_t tornId = 0;
  std::string wholeImage{};
  // The latest pass in the trash when it began; empty: there was none.
  std::string trashBefore{};
  bool operator==(const Pending&) const = default;
};

// Everything that one pass leaves to the next.
struct State {
  Memory memory{};
  std::optional<Identity> folder{};
  std::optional<SeenImage> image{};
  std::map<std::string, SeenFile> seen{};  // files of the host, by path
  std::int64_t lastReadInFull = 0;         // seconds since 1970
  std::optional<Pending> pending{};
  bool operator==(const State&) const = default;
};

// The state as text, a line a fact, with a version and a checksum.
std::string FormatState(const State& state);

// False: the text is damaged, or of a version that is not known; `err` says what is wrong.
[[nodiscard]] bool ParseState(std::string_view text, State& state, std::string& err);

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_STATE_H_

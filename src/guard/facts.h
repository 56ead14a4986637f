#ifndef QUORBIX_VIRTDISK_GUARD_FACTS_H_
#define QUORBIX_VIRTDISK_GUARD_FACTS_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quorbix::virtdisk::internal::guard {

// What tells one file or folder of the host from another.
struct Identity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  bool operator==(const Identity&) const = default;
};

struct FolderFacts {
  enum class State { kPresent, kMissing, kUnreadable, kNoFolder };
  State state = State::kPresent;
  std::string error{};  // with the last two: the system's text, and what it is
  Identity identity{};
  std::optional<Identity> identityBefore{};  // at the last pass
};

struct ImageFacts {
  enum class State {
    kPresent,
    kMissing,
    kUnreadable,
    kNoFile,  // but a folder, a pipe, a device
    kNoFat16,
    kCutShort,
    kTorn,  // a pass that was cut off has written half of it, and the other half is not to be had
  };
  State state = State::kPresent;
  std::string error{};  // with the last five: what is wrong
  std::uint64_t bytes = 0;
  std::optional<std::uint64_t> bytesBefore{};
  std::uint32_t volumeId = 0;
  std::optional<std::uint32_t> volumeIdBefore{};
  bool isOlder = false;          // its time has gone back since the last pass
  bool isTakenForFat12 = false;  // fewer than 4,085 clusters
  std::size_t otherPartitions = 0;
  std::vector<std::string> damage{};  // what is unsound, a text each
};

// How the places lie to each other.
struct NestingFacts {
  bool imageInFolder = false;
  bool stateInFolder = false;
  bool folderInState = false;

  bool IsAny() const { return imageInFolder || stateInFolder || folderInState; }
};

struct StateFacts {
  bool isDamaged = false;
  std::string error{};  // what is wrong with it
  bool isWritable = true;
  std::string lockError{};   // why its lock cannot be had; empty: it can
  std::string trashError{};  // why nothing can be put into its trash; empty: it can
};

// What can be known before anything is planned.
struct Facts {
  std::string folder{};  // as the caller named it, for texts
  std::string image{};
  std::string stateFolder{};
  FolderFacts onHost;
  ImageFacts onDisk;
  NestingFacts nesting;
  StateFacts state;
};

// What a plan needs of the host.
// Where something is to be written.
struct Room {
  std::uint64_t device = 0;  // its file system
  // Bytes, with those that a pass gives back before it needs them; nothing: unknown.
  std::optional<std::uint64_t> free{};
};

struct PlanFacts {
  std::vector<std::string> unwritable{};  // folders and files that the plan changes; host paths
  bool isImageWritable = true;
  Room folder{};
  Room image{};
  Room newImage{};  // until it has the name of the old one, or has been written over it
  Room trash{};     // what goes there from another file system is copied
  std::uint64_t trashBytes = 0;  // that the trash holds
  bool isInPlace = false;        // the image is written over, and copied to the trash before
  bool isTorn = false;           // an earlier pass has written over half of it: the same for it
  std::uint64_t holes = 0;       // bytes of the image that nothing was written to yet
};

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_FACTS_H_

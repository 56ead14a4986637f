#ifndef QUORBIX_VIRTDISK_GUARD_STATE_FILE_H_
#define QUORBIX_VIRTDISK_GUARD_STATE_FILE_H_

#include <filesystem>
#include <string>
#include <string_view>

#include "common/byte_buffer.h"
#include "common/descriptor.h"
#include "guard/file_lock.h"
#include "guard/state.h"

namespace quorbix::virtdisk::internal::guard {

// The folder of the state: "state", "quiet", "lock" and "trash" lie in it.

enum class StateLoad { kNone, kLoaded, kDamaged };

// Reads a file of it whole. kNone: there is none. kDamaged: it cannot be read, or is larger than
// any that a pass writes, and `err` says why.
StateLoad LoadText(const std::filesystem::path& file, ByteBuffer& text, std::string& err);

// Puts `text` in place of what the file holds, so that a crash leaves one of the two. On failure
// returns false and says why in `err`.
[[nodiscard]] bool SaveText(const std::filesystem::path& file, std::string_view text,
                            std::string& err);

// Where the state itself lies.
std::filesystem::path StateFileIn(const std::filesystem::path& folder);

// Reads what the last pass left. kNone: there is none yet. kDamaged: there is one that cannot be
// used, and `err` says why. `state` is empty in both cases.
StateLoad LoadState(const std::filesystem::path& folder, State& state, std::string& err);

// Puts `state` in place of the old one, so that a crash leaves one of the two. On failure returns
// false and says why in `err`.
[[nodiscard]] bool SaveState(const std::filesystem::path& folder, const State& state,
                             std::string& err);

// Gives a state that cannot be used another name, "state-damaged-<when>", where nothing has it yet.
// On failure returns false and says why in `err`.
[[nodiscard]] bool SetStateAside(const std::filesystem::path& folder, const std::string& when,
                                 std::string& err);

// Whether anything of a state lies in the folder, which may be anybody's else.
bool HoldsState(const std::filesystem::path& folder);

// Makes the folder when it is missing.
[[nodiscard]] bool MakeStateFolder(const std::filesystem::path& folder, std::string& err);

// The lock of a state folder; the system takes it back when the process ends.
class StateLock {
 public:
  // kHeld: somebody else has it, and `err` says who. kFailed: it cannot be had, and `err` says why.
  [[nodiscard]] Locking Take(const std::filesystem::path& folder, std::string& err);
  // What Take would come to; nothing is taken or made.
  [[nodiscard]] Locking Look(const std::filesystem::path& folder, std::string& err) const;
  bool IsHeld() const { return static_cast<bool>(file); }
  // False also when the folder has gone since.
  bool IsHeldIn(const std::filesystem::path& folder) const;

 private:
  Descriptor file;
};

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_STATE_FILE_H_

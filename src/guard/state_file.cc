#include "guard/state_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <span>
#include <string_view>
#include <system_error>

#include "common/byte_buffer.h"
#include "common/fail.h"
#include "common/host_file.h"
#include "common/text_bytes.h"
#include "guard/system_text.h"

namespace quorbix::virtdisk::internal::guard {
namespace fs = std::filesystem;

namespace {

constexpr char kStateName[] = "state";
constexpr char kNewStateName[] = "state.new";
constexpr char kLockName[] = "lock";

// "1234", as whoever has the lock wrote it there.
std::string HolderOf(int file) {
  std::array<std::uint8_t, 32> text{};
  const std::ptrdiff_t size = ReadFully(file, text);
  std::string holder;
  for (std::ptrdiff_t i = 0; i < size && text[static_cast<std::size_t>(i)] >= '0'; ++i) {
    holder += static_cast<char>(text[static_cast<std::size_t>(i)]);
  }
  return holder.empty() ? "another process" : "process " + holder;
}

}  // namespace

StateLoad LoadState(const fs::path& folder, State& state, std::string& err) {
  state = State();
  struct ::stat status;
  const Descriptor file = OpenRegularFile((folder / kStateName).c_str(), status);
  if (!file) {
    if (errno == ENOENT || errno == ENOTDIR) return StateLoad::kNone;
    err = SystemText();
    return StateLoad::kDamaged;
  }
  ByteBuffer bytes(static_cast<std::size_t>(status.st_size));
  if (ReadFully(file.Get(), bytes.Span()) != status.st_size) {
    err = "it cannot be read to its end";
    return StateLoad::kDamaged;
  }
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  return ParseState(text, state, err) ? StateLoad::kLoaded : StateLoad::kDamaged;
}

bool SaveState(const fs::path& folder, const State& state, std::string& err) {
  const fs::path temporary = folder / kNewStateName;
  const fs::path target = folder / kStateName;
  Descriptor file =
      OpenHostFile(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, 0600);
  const std::string text = FormatState(state);
  const bool written = file && WriteFully(file.Get(), AsBytes(text)) &&
                       ::fdatasync(file.Get()) == 0 && file.Close() &&
                       ::rename(temporary.c_str(), target.c_str()) == 0 && FlushFolder(folder);
  return written || Fail(err, "cannot write " + target.string() + " (" + SystemText() + ")");
}

bool MakeStateFolder(const fs::path& folder, std::string& err) {
  std::error_code failed;
  fs::create_directories(folder, failed);
  return !failed || Fail(err, "cannot make " + folder.string() + " (" + failed.message() + ")");
}

StateLock::Result StateLock::Take(const fs::path& folder, std::string& err) {
  if (IsHeld()) return Result::kTaken;
  const fs::path path = folder / kLockName;
  Descriptor lock = OpenHostFile(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW, 0600);
  if (!lock || (::flock(lock.Get(), LOCK_EX | LOCK_NB) != 0 && errno != EWOULDBLOCK)) {
    err = "cannot lock " + path.string() + " (" + SystemText() + ")";
    return Result::kFailed;
  }
  if (::flock(lock.Get(), LOCK_EX | LOCK_NB) != 0) {
    err = HolderOf(lock.Get()) + " keeps this pair in step already";
    return Result::kHeld;
  }
  const std::string holder = std::to_string(::getpid()) + "\n";
  // For the message of others alone: without it they say less.
  if (::ftruncate(lock.Get(), 0) == 0) static_cast<void>(WriteFully(lock.Get(), AsBytes(holder)));
  file = std::move(lock);
  return Result::kTaken;
}

}  // namespace quorbix::virtdisk::internal::guard

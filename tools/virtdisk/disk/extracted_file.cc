#include "disk/extracted_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <span>

#include "common/host_file.h"
#include "host/host_file.h"
#include "host/new_file.h"
#include "host/stop_signals.h"

namespace quorbix::virtdisk::tool {
namespace {

ExtractionEnd CopyContent(int file, const std::filesystem::path& target,
                          internal::ContentReader& content, Progress& progress, std::string& err) {
  std::span<const std::uint8_t> piece;
  do {
    if (!content.Next(piece, err)) return ExtractionEnd::kUnreadable;
    if (!internal::WriteFully(file, piece)) {
      FailToWriteFile(err, target, SystemText(errno));
      return ExtractionEnd::kUnwritable;
    }
    progress.Add(piece.size());
  } while (!piece.empty());
  return ExtractionEnd::kWritten;
}

// A new file under its own name, which a signal that ends the program removes until it is kept.
class FileOfItsOwn {
 public:
  explicit FileOfItsOwn(const std::filesystem::path& newPath) : path(newPath) {
    const SignalsHeld held;
    file = internal::OpenHostPath(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW);
    error = file ? 0 : errno;
    if (file) leftToSignals = LeaveToSignals(path.c_str());
  }
  ~FileOfItsOwn() {
    const SignalsHeld held;
    if (file) ::unlink(path.c_str());
    TakeBackFromSignals(leftToSignals);
  }
  FileOfItsOwn(const FileOfItsOwn&) = delete;
  FileOfItsOwn& operator=(const FileOfItsOwn&) = delete;

  int Error() const { return error; }  // of its making, or 0
  int Number() const { return file.Get(); }
  bool Keep() {
    if (file.Close()) return true;
    error = errno;
    ::unlink(path.c_str());
    return false;
  }

 private:
  const std::filesystem::path& path;
  internal::Descriptor file;  // open until the file is kept
  int error = 0;
  int leftToSignals = -1;
};

}  // namespace

ExtractionEnd ExtractToNewFile(const std::filesystem::path& target,
                               internal::ContentReader& content, Progress& progress,
                               std::string& err) {
  FileOfItsOwn file(target);
  if (file.Error() != 0) {
    FailToWriteFile(err, target, SystemText(file.Error()));
    return file.Error() == EEXIST ? ExtractionEnd::kExists : ExtractionEnd::kUnwritable;
  }
  const ExtractionEnd end = CopyContent(file.Number(), target, content, progress, err);
  if (end != ExtractionEnd::kWritten || file.Keep()) return end;
  FailToWriteFile(err, target, SystemText(file.Error()));
  return ExtractionEnd::kUnwritable;
}

ExtractionEnd ExtractInPlaceOf(const std::filesystem::path& target,
                               internal::ContentReader& content, std::uint64_t size,
                               Progress& progress, std::string& err) {
  NewFile file;
  if (!file.Create(target, err)) return ExtractionEnd::kUnwritable;
  const ExtractionEnd end = CopyContent(file.Descriptor(), target, content, progress, err);
  if (end != ExtractionEnd::kWritten) return end;
  if (content.Total() < size) return ExtractionEnd::kShort;
  return file.Commit(err) ? end : ExtractionEnd::kUnwritable;
}

}  // namespace quorbix::virtdisk::tool

#include "disk/extracted_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <span>
#include <system_error>
#include <vector>

#include "common/host_file.h"
#include "host/host_file.h"

namespace quorbix::virtdisk::tool {
namespace {

std::string CannotWrite(const std::filesystem::path& target, int error) {
  return "cannot write " + target.string() + ": " + std::generic_category().message(error);
}

ExtractionEnd CopyAll(int file, const std::filesystem::path& target,
                      internal::ContentReader& content, std::string& err) {
  std::span<const std::uint8_t> piece;
  do {
    if (!content.Next(piece, err)) return ExtractionEnd::kUnreadable;
    if (piece.empty() || internal::WriteFully(file, piece)) continue;
    err = CannotWrite(target, errno);
    return ExtractionEnd::kUnwritable;
  } while (!piece.empty());
  return ExtractionEnd::kWritten;
}

}  // namespace

ExtractionEnd ExtractToNewFile(const std::filesystem::path& target,
                               internal::ContentReader& content, std::string& err) {
  internal::Descriptor file =
      internal::OpenHostPath(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW);
  if (!file) {
    const int error = errno;
    err = CannotWrite(target, error);
    return error == EEXIST ? ExtractionEnd::kExists : ExtractionEnd::kUnwritable;
  }
  ExtractionEnd end = CopyAll(file.Get(), target, content, err);
  if (end == ExtractionEnd::kWritten && !file.Close()) {
    err = CannotWrite(target, errno);
    end = ExtractionEnd::kUnwritable;
  }
  if (end != ExtractionEnd::kWritten) ::unlink(target.c_str());
  return end;
}

ExtractionEnd ExtractInPlaceOf(const std::filesystem::path& target,
                               internal::ContentReader& content, std::string& err) {
  std::vector<std::uint8_t> bytes;
  std::span<const std::uint8_t> piece;
  do {
    if (!content.Next(piece, err)) return ExtractionEnd::kUnreadable;
    bytes.insert(bytes.end(), piece.begin(), piece.end());
  } while (!piece.empty());
  return WriteHostFile(target, bytes, err) ? ExtractionEnd::kWritten : ExtractionEnd::kUnwritable;
}

}  // namespace quorbix::virtdisk::tool

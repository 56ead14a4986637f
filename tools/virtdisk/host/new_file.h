#ifndef QUORBIX_VIRTDISK_TOOL_NEW_FILE_H_
#define QUORBIX_VIRTDISK_TOOL_NEW_FILE_H_

#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <string>

#include "common/descriptor.h"

namespace quorbix::virtdisk::tool {

// A file in the making that takes the place of another when it is complete, or goes without a
// trace: with this object, and with a signal that ends the program (see EndOnSignals).
//
// It lies in the same folder, on file systems that can do it without any name, so that not even a
// killed process leaves it behind; else under a hidden name that nothing else had.
class NewFile {
 public:
  enum class Naming { kNamelessIfPossible, kNamed };

  NewFile() = default;
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  // Makes an empty file for the place of `path`. A symbolic link to a regular file, or to nothing,
  // is replaced itself; what else is no regular file is refused. On failure returns false and says
  // why in `err`.
  [[nodiscard]] bool Create(const std::filesystem::path& path, std::string& err,
                            Naming naming = Naming::kNamelessIfPossible);

  // Open for writing and reading, until Commit.
  int Descriptor() const { return file.Get(); }

  // Where it can be opened once more, until Commit.
  std::filesystem::path PathSoFar() const;

  // Flushes it to the disk and puts it into its place. There it has the rights of the file that it
  // replaces (see TakeOverRights); hard links to that keep the old content. On failure returns
  // false, says why in `err`, and leaves the place as it was; so it does when that holds something
  // else by now than at Create, or the same has changed.
  [[nodiscard]] bool Commit(std::string& err);

  // Why Create or Commit failed, as an errno; 0 where the system has no number for it.
  int Error() const { return error; }

 private:
  bool ReplacesFile() const { return before && S_ISREG(before->st_mode); }
  ::mode_t FirstMode() const { return ReplacesFile() ? 0600 : 0666; }
  bool CreateNameless();
  bool CreateNamed();
  bool MoveIntoPlace() const;
  bool TakePlace();
  bool Name();
  bool Fail(std::string& err, int number);

  std::filesystem::path target;
  std::optional<struct ::stat> before;  // of what had the place
  internal::Descriptor file;
  std::string name;  // empty as long as it has none
  int leftToSignals = -1;
  int error = 0;
};

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_NEW_FILE_H_

#ifndef QUORBIX_VIRTDISK_GUARD_HOST_NAMES_H_
#define QUORBIX_VIRTDISK_GUARD_HOST_NAMES_H_

#include <string>
#include <unordered_set>

namespace quorbix::virtdisk::internal::guard {

// The paths in use in the folder, and new ones that keep clear of them. Two names that differ in
// the case of ASCII letters alone count as one: some file systems say so.
class HostNames {
 public:
  void Use(const std::string& hostPath);
  bool IsUsed(const std::string& hostPath) const;

  // A path for `name` in `folder`, which is in use from now on: the name itself, else with "
  // (disk)", " (disk 2)" ... before its extension.
  std::string Take(const std::string& folder, const std::string& name);

  // The path of the disk's version of a file that both sides changed, which is in use from now on:
  // "NAME (disk 2026-11-21 17.20.05).EXT", for `when` "2026-11-21 17.20.05"; where that is taken,
  // with a number.
  std::string TakeBeside(const std::string& hostPath, const std::string& when);

 private:
  std::string TakeMarked(const std::string& folder, const std::string& name,
                         const std::string& mark);

  std::unordered_set<std::string> used;
};

// Whether a name has the mark of those that TakeBeside gives.
bool MayBeBeside(const std::string& name);

// What a file and every version beside it have in common, and few others do.
std::string FamilyOf(const std::string& hostPath);
std::string FamilyOfBeside(const std::string& candidate);

// Whether `candidate` is a path that TakeBeside gives for `hostPath`, whatever the time.
bool IsBeside(const std::string& candidate, const std::string& hostPath);

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_HOST_NAMES_H_

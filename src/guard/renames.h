#ifndef QUORBIX_VIRTDISK_GUARD_RENAMES_H_
#define QUORBIX_VIRTDISK_GUARD_RENAMES_H_

namespace quorbix::virtdisk::internal::guard {

// Renames that lose nothing, whoever else is at work. Names are relative to open folders; failures
// leave their cause in errno.

// Gives an entry a name that nobody has: EEXIST when somebody does.
[[nodiscard]] bool RenameIfFree(int fromFolder, const char* from, int toFolder, const char* to);

// Swaps two entries of one folder in one step. Not every file system can: EINVAL then.
[[nodiscard]] bool ExchangeNames(int folder, const char* one, const char* other);

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_RENAMES_H_

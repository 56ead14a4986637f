#ifndef QUORBIX_VIRTDISK_GUARD_PATHS_H_
#define QUORBIX_VIRTDISK_GUARD_PATHS_H_

#include <string>
#include <string_view>

namespace quorbix::virtdisk::internal::guard {

// Names that guarded synchronising gives to files of its own.

// Whether a name of the folder is a file that a pass was writing, or holds what it had just
// replaced, when it was cut off; this one's or the plain synchroniser's; or a file that is being
// restored.
bool IsTemporaryName(std::string_view name);

// Whether it is one of this synchroniser's own passes.
bool IsOwnTemporaryName(std::string_view name);

// Whether such a name was given by another process that is still there: the file is its own yet.
bool IsOfAnotherProcess(std::string_view ownTemporaryName);

// Whether a relative path stays in its folder: no element is empty, "." or "..".
bool StaysInside(std::string_view path);

// A name of that kind that no earlier call has returned. Begins with ".", so that no scan takes it
// for a file of the user.
std::string NewTemporaryName();

// Likewise for a file that is being restored, beside which a pass may run: a temporary name, but
// none of those that passes leave behind and sweep away.
std::string NewRestoreName();

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_PATHS_H_

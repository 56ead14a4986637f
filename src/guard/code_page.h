#ifndef QUORBIX_VIRTDISK_GUARD_CODE_PAGE_H_
#define QUORBIX_VIRTDISK_GUARD_CODE_PAGE_H_

#include <string>
#include <string_view>

namespace quorbix::virtdisk::internal::guard {

// Names of a disk are bytes of the code page of whoever wrote them, 437 on most machines. Hosts
// have UTF-8, and some of their file systems take nothing else.

// The name in UTF-8; one that is UTF-8 already stays as it is.
std::string FromCodePage437(std::string_view name);

// The bytes of a name in UTF-8; empty when it has characters that the code page has not.
std::string ToCodePage437(std::string_view name);

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_CODE_PAGE_H_

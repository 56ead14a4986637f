#ifndef QUORBIX_VIRTDISK_PREVIEW_SHOWN_NAME_H_
#define QUORBIX_VIRTDISK_PREVIEW_SHOWN_NAME_H_

#include <string>
#include <string_view>

namespace quorbix::virtdisk::internal {

// How a short name of eleven characters is listed: "README  TXT" -> "README.TXT". One whose base is
// blank is listed nowhere; it is written as its dot and extension.
std::string ShownName(std::string_view shortName);
bool HasBlankBase(std::string_view shortName);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_PREVIEW_SHOWN_NAME_H_

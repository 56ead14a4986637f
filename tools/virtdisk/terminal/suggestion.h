#ifndef QUORBIX_VIRTDISK_TOOL_SUGGESTION_H_
#define QUORBIX_VIRTDISK_TOOL_SUGGESTION_H_

#include <string>
#include <string_view>
#include <vector>

namespace quorbix::virtdisk::tool {

// The candidate that `word` was most likely meant to be: no more than two letters are missing, too
// many, wrong, or in each other's place, and not every letter. Empty when there is none; of several
// alike, the first.
std::string Suggest(std::string_view word, const std::vector<std::string>& candidates);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_SUGGESTION_H_

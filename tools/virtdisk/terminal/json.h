#ifndef QUORBIX_VIRTDISK_TOOL_JSON_H_
#define QUORBIX_VIRTDISK_TOOL_JSON_H_

#include <cstdint>
#include <span>
#include <string>

#include <nlohmann/json.hpp>

#include <quorbix/virtdisk/fat16_fs_image.h>

#include "terminal/console.h"

namespace quorbix::virtdisk::tool {

// Keeps the order in which the members are put in.
using Json = nlohmann::ordered_json;

// One line. Bytes that are no UTF-8, which names on a disk may hold, become U+FFFD.
std::string OneLine(const Json& value);

// Content in JSON, which knows no bytes: as RFC 4648 tells it, with "=" at the end.
std::string Base64(std::span<const std::uint8_t> bytes);

// Puts what was told first of what failed into an object, as `error` and `hint`; `null` for
// nothing.
void AddError(Console& console, Json& object);

// The record of one entry. Hidden: no listing of the library has it.
Json EntryRecord(const Fat16FsEntry& entry, bool isHidden);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_JSON_H_

#ifndef QUORBIX_VIRTDISK_TOOL_TEXT_H_
#define QUORBIX_VIRTDISK_TOOL_TEXT_H_

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace quorbix::virtdisk::tool {

// Makes text from a disk or a host safe to print: control characters, among them those that
// UTF-8 can spell, direction overrides and bytes that are no UTF-8 become "\xHH".
std::string Printable(std::string_view text);

// The same, then with &, <, > and quotes as XML wants them.
std::string EscapeXml(std::string_view text);

// 6062 -> "6,062"
std::string GroupDigits(std::uint64_t number);

// 3145728 -> "3 MiB", 1536 -> "1.5 KiB", 512 -> "512 bytes"
std::string FormatBytes(std::uint64_t bytes);

// 1 "file", 2 "files"
std::string Count(std::uint64_t number, std::string_view singular, std::string_view plural);

// 0x1A2B3C4D -> "1A2B-3C4D"
std::string FormatVolumeId(std::uint32_t id);

// 12 -> "0x0C"
std::string FormatPartitionType(std::uint8_t type);

// "65536", "64K", "64KB", "64 MiB", "1.5g" -> bytes, rounded down; units are powers of 1024 however
// they are written. Nothing for zero, a sign, a fraction of bytes, an unknown unit, or more than 64
// bits.
std::optional<std::uint64_t> ParseSize(std::string_view text);

// Why a text cannot be the label of a disk that every system shows; empty when it can.
std::string WhyNoLabel(std::string_view text);

// "NAME in IMAGE", for messages.
std::string Within(const std::string& name, const std::filesystem::path& image);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_TEXT_H_

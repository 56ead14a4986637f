#include "terminal/text.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <limits>

#include "common/ascii.h"

namespace quorbix::virtdisk::tool {
namespace {

constexpr std::uint64_t kKibi = 1024;
constexpr std::array<std::string_view, 4> kUnits{"KiB", "MiB", "GiB", "TiB"};

std::uint32_t ByteAt(std::string_view text, std::size_t i) {
  return static_cast<unsigned char>(text[i]);
}

// Length of the well-formed UTF-8 sequence at `i`, whose character is put into `character`; 0 when
// there is none. Overlong forms, surrogates and values above U+10FFFF are not well-formed.
std::size_t Utf8Length(std::string_view text, std::size_t i, std::uint32_t& character) {
  const std::uint32_t lead = ByteAt(text, i);
  if (lead < 0x80) {
    character = lead;
    return 1;
  }
  std::size_t length = 0;
  if (lead >= 0xC2 && lead <= 0xDF) length = 2;
  if (lead >= 0xE0 && lead <= 0xEF) length = 3;
  if (lead >= 0xF0 && lead <= 0xF4) length = 4;
  if (length == 0 || length > text.size() - i) return 0;
  character = lead & (0xFFU >> (length + 1));
  for (std::size_t k = 1; k < length; ++k) {
    const std::uint32_t next = ByteAt(text, i + k);
    if ((next & 0xC0U) != 0x80U) return 0;
    character = character << 6U | (next & 0x3FU);
  }
  constexpr std::array<std::uint32_t, 5> kSmallest{0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = character >= 0xD800 && character <= 0xDFFF;
  return character < kSmallest[length] || surrogate || character > 0x10FFFF ? 0 : length;
}

bool IsHarmless(std::uint32_t character) {
  const bool control = character < 0x20 || (character >= 0x7F && character <= 0x9F);
  const bool separator = character == 0x2028 || character == 0x2029;
  const bool direction = character == 0x061C || character == 0x200E || character == 0x200F ||
                         (character >= 0x202A && character <= 0x202E) ||
                         (character >= 0x2066 && character <= 0x2069);
  return !control && !separator && !direction;
}

void AppendHex(std::string& out, std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const std::uint32_t byte = ByteAt(bytes, i);
    out += "\\x";
    out += kDigits[byte >> 4U];
    out += kDigits[byte & 0xFU];
  }
}

std::optional<std::uint64_t> UnitFactor(std::string_view text) {
  const std::string unit = internal::ToAsciiLower(std::string(text));
  if (unit.empty()) return 1;
  if (unit == "k" || unit == "kb" || unit == "kib") return kKibi;
  if (unit == "m" || unit == "mb" || unit == "mib") return kKibi * kKibi;
  if (unit == "g" || unit == "gb" || unit == "gib") return kKibi * kKibi * kKibi;
  return std::nullopt;
}

// Takes the digits in front of `text`. Nothing when there are none, or too many for 64 bits.
std::optional<std::uint64_t> TakeNumber(std::string_view& text) {
  constexpr std::uint64_t kMax = std::numeric_limits<std::uint64_t>::max();
  std::uint64_t number = 0;
  std::size_t i = 0;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    const auto digit = static_cast<std::uint64_t>(text[i] - '0');
    if (number > (kMax - digit) / 10) return std::nullopt;
    number = number * 10 + digit;
  }
  text.remove_prefix(i);
  return i == 0 ? std::nullopt : std::optional(number);
}

// A part of a unit, in millionths: ".5" -> 500,000. Further digits do not count.
std::optional<std::uint64_t> TakeMillionths(std::string_view& text) {
  std::uint64_t millionths = 0;
  std::uint64_t place = 100'000;
  if (text.empty() || text.front() != '.') return 0;
  std::size_t i = 1;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i, place /= 10) {
    millionths += static_cast<std::uint64_t>(text[i] - '0') * place;
  }
  text.remove_prefix(i);
  return i == 1 ? std::nullopt : std::optional(millionths);
}

}  // namespace

std::string Printable(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size();) {
    std::uint32_t character = 0;
    const std::size_t length = Utf8Length(text, i, character);
    const std::size_t taken = std::max<std::size_t>(length, 1);
    if (length != 0 && IsHarmless(character)) {
      out += text.substr(i, length);
    } else {
      AppendHex(out, text.substr(i, taken));
    }
    i += taken;
  }
  return out;
}

std::string EscapeXml(std::string_view text) {
  std::string out;
  for (const char c : Printable(text)) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

std::string GroupDigits(std::uint64_t number) {
  std::string digits = std::to_string(number);
  for (std::size_t i = digits.size(); i > 3;) {
    i -= 3;
    digits.insert(i, 1, ',');
  }
  return digits;
}

std::string FormatBytes(std::uint64_t bytes) {
  if (bytes < kKibi) return Count(bytes, "byte", "bytes");
  std::uint64_t unitBytes = kKibi;
  std::size_t unit = 0;
  const auto amount = [&] { return static_cast<double>(bytes) / static_cast<double>(unitBytes); };
  constexpr double kRoundedToTheNextUnit = 1023.95;
  while (unit + 1 < kUnits.size() && amount() >= kRoundedToTheNextUnit) {
    unitBytes *= kKibi;
    ++unit;
  }
  std::array<char, 40> text{};
  if (bytes % unitBytes == 0) {
    return GroupDigits(bytes / unitBytes) + " " + std::string(kUnits[unit]);
  }
  std::snprintf(text.data(), text.size(), "%.1f", amount());
  return std::string(text.data()) + " " + std::string(kUnits[unit]);
}

std::string Count(std::uint64_t number, std::string_view singular, std::string_view plural) {
  return GroupDigits(number) + " " + std::string(number == 1 ? singular : plural);
}

std::string FormatPartitionType(std::uint8_t type) {
  std::array<char, 8> text{};
  std::snprintf(text.data(), text.size(), "0x%02X", static_cast<unsigned>(type));
  return text.data();
}

std::string FormatVolumeId(std::uint32_t id) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "%04X-%04X", id >> 16U, id & 0xFFFFU);
  return text.data();
}

std::optional<std::uint64_t> ParseSize(std::string_view text) {
  const std::optional<std::uint64_t> number = TakeNumber(text);
  const std::optional<std::uint64_t> millionths = TakeMillionths(text);
  if (!number || !millionths) return std::nullopt;
  if (text.size() > 1 && text.front() == ' ') text.remove_prefix(1);
  const std::optional<std::uint64_t> factor = UnitFactor(text);
  if (!factor || (*factor == 1 && *millionths != 0)) return std::nullopt;
  const std::uint64_t part = *millionths * *factor / 1'000'000;
  if (*number > (std::numeric_limits<std::uint64_t>::max() - part) / *factor) return std::nullopt;
  const std::uint64_t size = *number * *factor + part;
  return size == 0 ? std::nullopt : std::optional(size);
}

std::string WhyNoLabel(std::string_view text) {
  constexpr std::size_t kMostCharacters = 11;
  constexpr std::string_view kForbidden = "\"*+,./:;<=>?[\\]|";
  if (text.size() > kMostCharacters) return "a label has at most 11 characters";
  if (!text.empty() && text.front() == ' ') return "a label does not begin with a blank";
  for (const char c : text) {
    const bool isPlain = c >= ' ' && c <= '~';
    if (!isPlain) return "a label has no other characters than those of ASCII";
    if (kForbidden.find(c) != std::string_view::npos) {
      return std::string("a label has no \"") + c + "\" in it";
    }
  }
  return {};
}

std::string Within(const std::string& name, const std::filesystem::path& image) {
  return name + " in " + image.string();
}

}  // namespace quorbix::virtdisk::tool

#include "guard/code_page.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace quorbix::virtdisk::internal::guard {
namespace {

constexpr unsigned char kFirstBeyondAscii = 0x80;
constexpr char kFree = '\xE5';
constexpr char kStandsForFree = '\x05';

// The Unicode characters of the bytes from 0x80 on.
constexpr std::array<char16_t, 128> kCharacters{
    0x00C7, 0x00FC, 0x00E9, 0x00E2, 0x00E4, 0x00E0, 0x00E5, 0x00E7, 0x00EA, 0x00EB, 0x00E8, 0x00EF,
    0x00EE, 0x00EC, 0x00C4, 0x00C5, 0x00C9, 0x00E6, 0x00C6, 0x00F4, 0x00F6, 0x00F2, 0x00FB, 0x00F9,
    0x00FF, 0x00D6, 0x00DC, 0x00A2, 0x00A3, 0x00A5, 0x20A7, 0x0192, 0x00E1, 0x00ED, 0x00F3, 0x00FA,
    0x00F1, 0x00D1, 0x00AA, 0x00BA, 0x00BF, 0x2310, 0x00AC, 0x00BD, 0x00BC, 0x00A1, 0x00AB, 0x00BB,
    0x2591, 0x2592, 0x2593, 0x2502, 0x2524, 0x2561, 0x2562, 0x2556, 0x2555, 0x2563, 0x2551, 0x2557,
    0x255D, 0x255C, 0x255B, 0x2510, 0x2514, 0x2534, 0x252C, 0x251C, 0x2500, 0x253C, 0x255E, 0x255F,
    0x255A, 0x2554, 0x2569, 0x2566, 0x2560, 0x2550, 0x256C, 0x2567, 0x2568, 0x2564, 0x2565, 0x2559,
    0x2558, 0x2552, 0x2553, 0x256B, 0x256A, 0x2518, 0x250C, 0x2588, 0x2584, 0x258C, 0x2590, 0x2580,
    0x03B1, 0x00DF, 0x0393, 0x03C0, 0x03A3, 0x03C3, 0x00B5, 0x03C4, 0x03A6, 0x0398, 0x03A9, 0x03B4,
    0x221E, 0x03C6, 0x03B5, 0x2229, 0x2261, 0x00B1, 0x2265, 0x2264, 0x2320, 0x2321, 0x00F7, 0x2248,
    0x00B0, 0x2219, 0x00B7, 0x221A, 0x207F, 0x00B2, 0x25A0, 0x00A0,
};

bool IsContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

// How many bytes the character has whose first one this is; 0: none begins so.
std::size_t LengthOf(unsigned char first) {
  if (first < 0x80) return 1;
  if (first >= 0xC2 && first < 0xE0) return 2;
  if (first >= 0xE0 && first < 0xF0) return 3;
  return first >= 0xF0 && first < 0xF5 ? 4 : 0;
}

// The character that `text` begins with; 0 when that is none.
char32_t FirstOf(std::string_view text) {
  const auto first = static_cast<unsigned char>(text[0]);
  const std::size_t length = LengthOf(first);
  if (length == 0 || length > text.size()) return 0;
  if (length == 1) return first;
  char32_t character = first & (0x7Fu >> length);
  for (const char byte : text.substr(1, length - 1)) {
    if (!IsContinuation(byte)) return 0;
    character = (character << 6) | (static_cast<unsigned char>(byte) & 0x3Fu);
  }
  const bool isOverlong =
      (length == 3 && character < 0x800) || (length == 4 && character < 0x10000);
  const bool isSurrogate = character >= 0xD800 && character < 0xE000;
  return isOverlong || isSurrogate || character > 0x10FFFF ? 0 : character;
}

bool IsUtf8(std::string_view text) {
  while (!text.empty()) {
    if (FirstOf(text) == 0) return false;
    text.remove_prefix(LengthOf(static_cast<unsigned char>(text[0])));
  }
  return true;
}

// Of a character of the code page, which needs no more than three bytes.
void Append(char16_t character, std::string& text) {
  const auto part = [&](unsigned mark, unsigned shift, unsigned mask) {
    text += static_cast<char>(mark | ((static_cast<unsigned>(character) >> shift) & mask));
  };
  if (character < 0x800) {
    part(0xC0, 6, 0x1F);
  } else {
    part(0xE0, 12, 0x0F);
    part(0x80, 6, 0x3F);
  }
  part(0x80, 0, 0x3F);
}

}  // namespace

std::string FromCodePage437(std::string_view name) {
  std::string bytes(name);
  if (bytes.starts_with(kStandsForFree)) bytes.front() = kFree;
  if (IsUtf8(bytes)) return bytes;
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < kFirstBeyondAscii) {
      text += c;
    } else {
      Append(kCharacters[byte - kFirstBeyondAscii], text);
    }
  }
  return text;
}

std::string ToCodePage437(std::string_view name) {
  std::string bytes;
  while (!name.empty()) {
    const char32_t character = FirstOf(name);
    if (character == 0) return {};
    name.remove_prefix(LengthOf(static_cast<unsigned char>(name[0])));
    if (character < kFirstBeyondAscii) {
      bytes += static_cast<char>(character);
      continue;
    }
    const auto* const found = std::find(kCharacters.begin(), kCharacters.end(), character);
    if (found == kCharacters.end()) return {};
    bytes += static_cast<char>(kFirstBeyondAscii + (found - kCharacters.begin()));
  }
  if (bytes.starts_with(kFree)) bytes.front() = kStandsForFree;
  return bytes;
}

}  // namespace quorbix::virtdisk::internal::guard

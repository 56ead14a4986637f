#include "guard/lines.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "common/fail.h"
#include "common/text_bytes.h"
#include "sync/hash_bytes.h"

namespace quorbix::virtdisk::internal::guard {

namespace {

constexpr std::string_view kChecksum = "checksum ";

}  // namespace

std::string Sealed(std::string_view title, std::string_view lines) {
  std::string text(title);
  text.append(kChecksum).append(Hex(HashBytes(AsBytes(lines)))).append("\n").append(lines);
  return text;
}

bool TakeSeal(std::string_view& text, std::string& err) {
  const std::size_t end = text.find('\n');
  if (!text.starts_with(kChecksum) || end == std::string_view::npos) {
    return Fail(err, "its checksum is missing");
  }
  Line checksum(text.substr(kChecksum.size(), end - kChecksum.size()));
  text.remove_prefix(end + 1);
  const bool isRight = checksum.Number<std::uint64_t>(16) == HashBytes(AsBytes(text));
  return (isRight && checksum.IsSound()) || Fail(err, "its checksum is wrong");
}

std::string_view TakeLine(std::string_view& text) {
  const std::size_t end = std::min(text.find('\n'), text.size());
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return line;
}

std::string Hex(std::uint64_t number) {
  std::array<char, 16> digits{};
  char* const end = std::to_chars(digits.data(), digits.data() + digits.size(), number, 16).ptr;
  return {digits.data(), end};
}

// Blanks, line feeds, "%" and all that is no plain character become "%XX". An empty path is "%".
std::string Escaped(std::string_view text) {
  if (text.empty()) return "%";
  std::string escaped;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte > 0x20 && byte < 0x7F && c != '%') {
      escaped += c;
      continue;
    }
    const std::string hex = Hex(byte);
    escaped.append("%").append(hex.size() == 1 ? "0" : "").append(hex);
  }
  return escaped;
}

std::string_view Line::Word() {
  const std::string_view word = Peek();
  rest.remove_prefix(std::min(word.size() + 1, rest.size()));
  if (word.empty()) sound = false;
  return word;
}

std::string Line::Path() {
  const std::string_view word = Word();
  if (word == "%") return {};
  std::string path;
  for (std::size_t i = 0; i < word.size(); ++i) {
    if (word[i] != '%') {
      path += word[i];
      continue;
    }
    unsigned byte = 0;
    const char* digits = word.data() + i + 1;
    if (i + 2 >= word.size() || std::from_chars(digits, digits + 2, byte, 16).ptr != digits + 2) {
      sound = false;
      return {};
    }
    path += static_cast<char>(byte);
    i += 2;
  }
  return path;
}

}  // namespace quorbix::virtdisk::internal::guard

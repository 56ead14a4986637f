#ifndef QUORBIX_VIRTDISK_GUARD_LINES_H_
#define QUORBIX_VIRTDISK_GUARD_LINES_H_

#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace quorbix::virtdisk::internal::guard {

// Lines of text with words between single blanks, as the state and the trash are written.

// `lines` behind a title, which is a line, and a checksum.
std::string Sealed(std::string_view title, std::string_view lines);

// Takes the checksum of Sealed from the text behind the title. False: it is missing, or the rest is
// not what was sealed, and `err` says so.
[[nodiscard]] bool TakeSeal(std::string_view& text, std::string& err);

// Takes one line, without its end, from a text that is not empty.
std::string_view TakeLine(std::string_view& text);

std::string Hex(std::uint64_t number);

// Blanks, line feeds, "%" and all that is no plain character become "%XX". An empty text is "%".
std::string Escaped(std::string_view text);

// Writes lines, a word for each argument.
class LineWriter {
 public:
  template <class... Words>
  void Line(const Words&... words) {
    const char* gap = "";
    ((text.append(gap).append(Word(words)), gap = " "), ...);
    text += '\n';
  }

  std::string Take() { return std::move(text); }

 private:
  static std::string Word(const char* word) { return word; }
  static std::string Word(const std::string& word) { return word; }
  static std::string Word(std::int64_t number) { return std::to_string(number); }
  static std::string Word(std::uint64_t number) { return std::to_string(number); }

  std::string text;
};

// The words of one line, taken one after the other; any word that is not as it should be spoils all
// of it.
class Line {
 public:
  explicit Line(std::string_view text) : rest(text) {}

  std::string_view Peek() const { return rest.substr(0, rest.find(' ')); }
  std::string_view Word();

  template <class Integer>
  Integer Number(int base = 10) {
    const std::string_view word = Word();
    Integer number = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number, base);
    if (error != std::errc() || end != word.data() + word.size()) sound = false;
    return number;
  }

  std::string Path();  // that Escaped has written

  bool IsSound() const { return sound && rest.empty(); }

 private:
  std::string_view rest;
  bool sound = true;
};

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_LINES_H_

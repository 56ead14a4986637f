#include "browser/text_matcher.h"

#include "common/ascii.h"

namespace quorbix::virtdisk::internal {

TextMatcher::TextMatcher(std::string_view text)
    : needle(ToAsciiLower(std::string(text))), fallbacks(needle.size(), 0) {
  // `border` is the longest part that the needle up to `place` both begins and ends with, plus 1. A
  // border that goes on with the same byte would fail at once, so its own fallback takes its place:
  // that is what keeps the steps few.
  std::size_t border = 1;
  for (std::size_t place = 1; place < needle.size(); ++place) {
    const bool failsAlike = needle[place] == needle[border - 1];
    fallbacks[place] = failsAlike ? fallbacks[border - 1] : border;
    while (border > 0 && needle[place] != needle[border - 1]) border = fallbacks[border - 1];
    ++border;
  }
}

TextMatcher::State TextMatcher::Advance(State state, std::string_view text) const {
  for (const char c : text) {
    if (IsMatch(state)) return state;
    std::size_t place = state + 1;
    while (place > 0 && needle[place - 1] != ToAsciiLower(c)) place = fallbacks[place - 1];
    state = place;
  }
  return state;
}

}  // namespace quorbix::virtdisk::internal

#ifndef QUORBIX_VIRTDISK_BROWSER_TEXT_MATCHER_H_
#define QUORBIX_VIRTDISK_BROWSER_TEXT_MATCHER_H_

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace quorbix::virtdisk::internal {

// Looks for a text in others that are fed piece by piece, ASCII letter case aside.
//
// Where the search stands after some bytes is a number, so that texts that begin alike share the
// work on what they have in common. One more byte costs at most a number of steps that grows with
// the logarithm of the needle's length, whatever needle and texts look like.
class TextMatcher {
 public:
  using State = std::size_t;  // bytes of the needle that the text so far ends with
  static constexpr State kStart = 0;

  explicit TextMatcher(std::string_view text);

  // The state after `text`, coming from `state`. A match is never left again.
  State Advance(State state, std::string_view text) const;

  // An empty needle matches everywhere.
  bool IsMatch(State state) const { return state == needle.size(); }

 private:
  std::string needle;  // lower-cased
  // Where the search goes on, plus 1, when the needle's byte of this place does not come; 0: behind
  // the byte that came.
  std::vector<std::size_t> fallbacks;
};

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_BROWSER_TEXT_MATCHER_H_

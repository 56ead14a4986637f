#include "terminal/suggestion.h"

#include <algorithm>
#include <cstddef>

#include "common/ascii.h"

namespace quorbix::virtdisk::tool {
namespace {

constexpr std::size_t kMostEdits = 2;
constexpr std::size_t kLongestWord = 40;

// The number of single letters to insert, remove or replace, or neighbours to exchange, that make
// one word of the other.
std::size_t Edits(std::string_view a, std::string_view b) {
  std::vector<std::vector<std::size_t>> edits(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); ++i) {
    for (std::size_t j = 0; j <= b.size(); ++j) {
      if (i == 0 || j == 0) {
        edits[i][j] = i + j;
        continue;
      }
      const std::size_t replaced = edits[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
      edits[i][j] = std::min({edits[i - 1][j] + 1, edits[i][j - 1] + 1, replaced});
      const bool exchanged = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
      if (exchanged) edits[i][j] = std::min(edits[i][j], edits[i - 2][j - 2] + 1);
    }
  }
  return edits[a.size()][b.size()];
}

}  // namespace

std::string Suggest(std::string_view word, const std::vector<std::string>& candidates) {
  std::string best;
  std::size_t fewest = kMostEdits + 1;
  if (word.size() > kLongestWord) return best;
  for (const std::string& candidate : candidates) {
    const std::size_t edits = Edits(internal::ToAsciiLower(std::string(word)), candidate);
    if (edits >= fewest || edits >= std::max(word.size(), candidate.size())) continue;
    fewest = edits;
    best = candidate;
  }
  return best;
}

}  // namespace quorbix::virtdisk::tool

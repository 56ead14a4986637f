#include "disk/map_looks.h"

#include <algorithm>
#include <set>
#include <tuple>
#include <unordered_map>
#include <utility>

namespace quorbix::virtdisk::tool {
namespace {

// By the other file: how many cells of it are touched.
using Touched = std::unordered_map<std::uint32_t, std::uint32_t>;

std::vector<Touched> Touching(std::size_t owners, const std::vector<Cell>& cells,
                              std::size_t columns) {
  std::vector<Touched> touching(owners);
  const auto touch = [&](const Cell& a, const Cell& b) {
    const bool areFiles = a.area == Area::kFile && b.area == Area::kFile;
    if (!areFiles || a.owner == b.owner) return;
    ++touching[a.owner][b.owner];
    ++touching[b.owner][a.owner];
  };
  for (std::size_t i = 1; i < cells.size(); ++i) {
    touch(cells[i], cells[i - 1]);
    if (i >= columns && columns > 1) touch(cells[i], cells[i - columns]);
  }
  return touching;
}

// The owners that are drawn as files. The one that touches the fewest others comes last, then the
// one that touches the fewest of those that are left, and so on: when its turn comes, each touches
// as few as can be that came before.
std::vector<std::uint32_t> FewestLast(const std::vector<Touched>& touching,
                                      const std::vector<Cell>& cells) {
  using Place = std::pair<std::size_t, std::int64_t>;  // of those alike, the last one goes first
  std::vector<std::size_t> left(touching.size());
  const auto placeOf = [&](std::uint32_t owner) {
    return Place(left[owner], -std::int64_t{owner});
  };
  std::set<Place> waiting;
  for (const Cell& cell : cells) {
    if (cell.area != Area::kFile) continue;
    left[cell.owner] = touching[cell.owner].size();
    waiting.insert(placeOf(cell.owner));
  }
  std::vector<std::uint32_t> order;
  while (!waiting.empty()) {
    const auto owner = static_cast<std::uint32_t>(-waiting.begin()->second);
    waiting.erase(waiting.begin());
    order.push_back(owner);
    for (const auto& [other, touchedCells] : touching[owner]) {
      if (waiting.erase(placeOf(other)) == 0) continue;
      --left[other];
      waiting.insert(placeOf(other));
    }
  }
  std::reverse(order.begin(), order.end());
  return order;
}

class LookChooser {
 public:
  LookChooser(const std::vector<Touched>& touchingOwners, std::uint32_t looks, std::uint32_t spare)
      : touching(touchingOwners),
        usual(looks),
        none(looks + spare),
        chosen(touching.size(), none),
        users(none) {}

  bool HasLook(std::uint32_t owner) const { return chosen[owner] != none; }

  void ChooseFor(std::uint32_t owner) {
    std::vector<std::uint32_t> met(users.size());  // cells, by look
    std::vector<std::uint32_t> metBrightnesses(kBrightnesses);
    for (const auto& [other, touchedCells] : touching[owner]) {
      if (!HasLook(other)) continue;
      met[chosen[other]] += touchedCells;
      ++metBrightnesses[BrightnessOf(chosen[other])];
    }
    const auto badness = [&](std::uint32_t look) {
      return std::tuple(met[look], look >= usual, metBrightnesses[BrightnessOf(look)], users[look]);
    };
    std::uint32_t best = 0;
    for (std::uint32_t look = 1; look < users.size(); ++look) {
      if (badness(look) < badness(best)) best = look;
    }
    chosen[owner] = best;
    ++users[best];
  }

  std::vector<std::uint32_t> Take() { return std::move(chosen); }

 private:
  std::uint32_t BrightnessOf(std::uint32_t look) const { return look % usual % kBrightnesses; }

  const std::vector<Touched>& touching;
  const std::uint32_t usual;  // looks; those behind are spare
  const std::uint32_t none;
  std::vector<std::uint32_t> chosen;  // by owner
  std::vector<std::uint32_t> users;   // by look
};

}  // namespace

std::vector<std::uint32_t> LooksOf(std::size_t owners, const std::vector<Cell>& cells,
                                   std::size_t columns, std::uint32_t looks, std::uint32_t spare) {
  const std::vector<Touched> touching = Touching(owners, cells, columns);
  LookChooser chooser(touching, looks, spare);
  for (const std::uint32_t owner : FewestLast(touching, cells)) chooser.ChooseFor(owner);
  // Those that are too small for a cell, and directories.
  for (std::uint32_t owner = 0; owner < owners; ++owner) {
    if (!chooser.HasLook(owner)) chooser.ChooseFor(owner);
  }
  return chooser.Take();
}

}  // namespace quorbix::virtdisk::tool

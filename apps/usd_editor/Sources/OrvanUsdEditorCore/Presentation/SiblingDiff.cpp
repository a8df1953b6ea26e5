#include "Presentation/SiblingDiff.h"

#include <algorithm>
#include <limits>
#include <unordered_map>

namespace orvan::editor {

namespace {

constexpr std::size_t kGone = std::numeric_limits<std::size_t>::max();

// Each key's position, or nothing when a key repeats.
bool indexKeys(const std::vector<std::string_view>& keys,
               std::unordered_map<std::string_view, std::size_t>& positions) {
  positions.reserve(keys.size());
  for (std::size_t row = 0; row < keys.size(); ++row) {
    if (!positions.emplace(keys[row], row).second)
      return false;
  }
  return true;
}

std::vector<SiblingEdit> replaceAll(std::size_t before, std::size_t after) {
  std::vector<SiblingEdit> edits;
  if (before > 0)
    edits.push_back({SiblingEdit::Kind::remove, 0, before, 0});
  if (after > 0)
    edits.push_back({SiblingEdit::Kind::insert, 0, after, 0});
  return edits;
}

// For each old row, its new row, or kGone.
std::vector<std::size_t> matchRows(const std::vector<std::string_view>& before,
                                   const std::vector<std::string_view>& after,
                                   const std::unordered_map<std::string_view, std::size_t>& newRows,
                                   const std::unordered_map<std::string_view, std::size_t>& oldRows,
                                   const SiblingRenameTest& renamed) {
  std::vector<std::size_t> target(before.size(), kGone);
  std::vector<std::size_t> gone;
  for (std::size_t row = 0; row < before.size(); ++row) {
    const auto found = newRows.find(before[row]);
    if (found == newRows.end()) {
      gone.push_back(row);
    } else {
      target[row] = found->second;
    }
  }
  if (gone.size() != 1 || !renamed || after.size() != before.size())
    return target;
  // One key went; with as many rows after as before, exactly one came.
  for (std::size_t row = 0; row < after.size(); ++row) {
    if (oldRows.contains(after[row]))
      continue;
    if (renamed(gone.front(), row))
      target[gone.front()] = row;
    break;
  }
  return target;
}

// Positions (in `values`) of one longest strictly increasing subsequence.
std::vector<bool> longestIncreasingRun(const std::vector<std::size_t>& values) {
  std::vector<std::size_t> tails;  // position of the smallest tail of each length
  std::vector<std::size_t> previous(values.size(), kGone);
  for (std::size_t at = 0; at < values.size(); ++at) {
    const auto slot = std::lower_bound(
        tails.begin(), tails.end(), values[at],
        [&values](std::size_t position, std::size_t value) { return values[position] < value; });
    if (slot != tails.begin())
      previous[at] = *(slot - 1);
    if (slot == tails.end()) {
      tails.push_back(at);
    } else {
      *slot = at;
    }
  }
  std::vector<bool> kept(values.size(), false);
  for (std::size_t at = tails.empty() ? kGone : tails.back(); at != kGone; at = previous[at]) {
    kept[at] = true;
  }
  return kept;
}

void appendRemovals(const std::vector<std::size_t>& target, std::vector<SiblingEdit>& edits) {
  // Last rows first, so that each range's rows are still those of the old list.
  std::size_t end = target.size();
  while (end > 0) {
    if (target[end - 1] != kGone) {
      --end;
      continue;
    }
    std::size_t first = end - 1;
    while (first > 0 && target[first - 1] == kGone)
      --first;
    edits.push_back({SiblingEdit::Kind::remove, first, end - first, 0});
    end = first;
  }
}

// `order` holds the new rows of the remaining old rows, in their current order; afterwards it is
// sorted. Rows on a longest increasing run stay; each other row, smallest new row first, moves
// right behind the placed row that comes before it in the new order.
void appendMoves(std::vector<std::size_t>& order, std::vector<SiblingEdit>& edits) {
  const std::vector<bool> onRun = longestIncreasingRun(order);
  const auto staying = static_cast<std::size_t>(std::count(onRun.begin(), onRun.end(), true));
  if (order.size() - staying > kMostSingleMoves) {
    // Each row's place afterwards is its rank by new row.
    std::vector<std::size_t> from(order.size());
    for (std::size_t at = 0; at < order.size(); ++at)
      from[at] = at;
    std::sort(from.begin(), from.end(),
              [&order](std::size_t left, std::size_t right) { return order[left] < order[right]; });
    edits.push_back({SiblingEdit::Kind::reorder, 0, order.size(), 0, std::move(from)});
    std::sort(order.begin(), order.end());
    return;
  }
  std::vector<std::size_t> movers;
  std::unordered_map<std::size_t, std::size_t> rank;  // new row -> rank among remaining rows
  std::vector<std::size_t> sorted = order;
  std::sort(sorted.begin(), sorted.end());
  for (std::size_t at = 0; at < sorted.size(); ++at)
    rank.emplace(sorted[at], at);
  std::vector<bool> rankPlaced(sorted.size(), false);
  for (std::size_t at = 0; at < order.size(); ++at) {
    if (onRun[at]) {
      rankPlaced[rank.at(order[at])] = true;
    } else {
      movers.push_back(order[at]);
    }
  }
  std::sort(movers.begin(), movers.end());
  for (const std::size_t value : movers) {
    const std::size_t from =
        static_cast<std::size_t>(std::find(order.begin(), order.end(), value) - order.begin());
    order.erase(order.begin() + static_cast<std::ptrdiff_t>(from));
    std::size_t to = 0;
    const std::size_t valueRank = rank.at(value);
    for (std::size_t below = valueRank; below > 0; --below) {
      if (!rankPlaced[below - 1])
        continue;
      const std::size_t predecessor = sorted[below - 1];
      to = static_cast<std::size_t>(std::find(order.begin(), order.end(), predecessor) -
                                    order.begin()) +
           1;
      break;
    }
    order.insert(order.begin() + static_cast<std::ptrdiff_t>(to), value);
    rankPlaced[valueRank] = true;
    if (to != from)
      edits.push_back({SiblingEdit::Kind::move, from, 1, to});
  }
}

void appendInsertions(const std::vector<bool>& taken, std::vector<SiblingEdit>& edits) {
  std::size_t row = 0;
  while (row < taken.size()) {
    if (taken[row]) {
      ++row;
      continue;
    }
    std::size_t end = row + 1;
    while (end < taken.size() && !taken[end])
      ++end;
    edits.push_back({SiblingEdit::Kind::insert, row, end - row, 0});
    row = end;
  }
}

}  // namespace

std::vector<SiblingEdit> diffSiblings(const std::vector<std::string_view>& before,
                                      const std::vector<std::string_view>& after,
                                      const SiblingRenameTest& renamed) {
  std::unordered_map<std::string_view, std::size_t> oldRows;
  std::unordered_map<std::string_view, std::size_t> newRows;
  if (!indexKeys(before, oldRows) || !indexKeys(after, newRows)) {
    return replaceAll(before.size(), after.size());
  }
  const std::vector<std::size_t> target = matchRows(before, after, newRows, oldRows, renamed);

  std::vector<SiblingEdit> edits;
  appendRemovals(target, edits);
  std::vector<std::size_t> order;
  std::vector<bool> taken(after.size(), false);
  for (const std::size_t newRow : target) {
    if (newRow == kGone)
      continue;
    order.push_back(newRow);
    taken[newRow] = true;
  }
  appendMoves(order, edits);
  appendInsertions(taken, edits);
  return edits;
}

}  // namespace orvan::editor

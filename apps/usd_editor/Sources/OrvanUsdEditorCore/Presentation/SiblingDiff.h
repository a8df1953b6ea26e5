#pragma once

#include <cstddef>
#include <functional>
#include <string_view>
#include <vector>

namespace orvan::editor {

// One step of turning one list of sibling rows into another. The steps of a diff apply in order,
// each to the list as the steps before it left it, so that a tree model can forward them one by one
// as row removals, moves and insertions.
struct SiblingEdit {
  enum class Kind { remove, move, reorder, insert };

  Kind kind = Kind::remove;
  std::size_t row = 0;    // remove, insert: the first row; move: the row that moves
  std::size_t count = 1;  // remove, insert: how many rows; move: 1
  std::size_t to = 0;     // move: the row it holds once moved
  // reorder: for each row of the list afterwards, the row it held before.
  std::vector<std::size_t> order = {};

  bool operator==(const SiblingEdit&) const = default;
};

// Whether the old row `oldRow` and the new row `newRow`, known under different keys, are one item
// renamed.
using SiblingRenameTest = std::function<bool(std::size_t oldRow, std::size_t newRow)>;

// The steps from the rows `before` to the rows `after`, rows known by their keys. First the rows
// whose key is gone are removed (last rows first), then the fewest rows are moved to put the
// remaining ones in their new order (or, when more than `kMostSingleMoves` rows would move, one
// reorder step puts them all in place), then the new keys are inserted (first rows first); an
// inserted range's rows are those of `after` at the same positions. When exactly one key went and
// one came and `renamed` says they are one item, that row stays (and moves where it belongs) rather
// than being removed and inserted, so that what hangs on it survives a rename. Keys must be unique
// within each list; when they are not, every row is removed and every row inserted.
// Beyond this many moved rows, one reorder step is cheaper to find and to show than single moves.
inline constexpr std::size_t kMostSingleMoves = 32;

std::vector<SiblingEdit> diffSiblings(const std::vector<std::string_view>& before,
                                      const std::vector<std::string_view>& after,
                                      const SiblingRenameTest& renamed = {});

}  // namespace orvan::editor

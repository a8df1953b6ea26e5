#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

#include "Presentation/SiblingDiff.h"

namespace orvan::editor {
namespace {

using Kind = SiblingEdit::Kind;
using Rows = std::vector<std::string>;

std::vector<std::string_view> keysOf(const Rows& rows) {
  return {rows.begin(), rows.end()};
}

// Plays the edits on `rows` the way a tree model does, checking that each step is one a model can
// signal (rows in range, no empty ranges, no move onto itself).
Rows play(Rows rows, const Rows& after, const std::vector<SiblingEdit>& edits) {
  for (const SiblingEdit& edit : edits) {
    switch (edit.kind) {
      case Kind::remove:
        EXPECT_GT(edit.count, 0u);
        EXPECT_LE(edit.row + edit.count, rows.size());
        rows.erase(rows.begin() + static_cast<long>(edit.row),
                   rows.begin() + static_cast<long>(edit.row + edit.count));
        break;
      case Kind::move: {
        EXPECT_LT(edit.row, rows.size());
        EXPECT_LT(edit.to, rows.size());
        EXPECT_NE(edit.row, edit.to);
        std::string moved = rows[edit.row];
        rows.erase(rows.begin() + static_cast<long>(edit.row));
        rows.insert(rows.begin() + static_cast<long>(edit.to), std::move(moved));
        break;
      }
      case Kind::reorder: {
        EXPECT_EQ(edit.order.size(), rows.size());
        Rows reordered;
        for (const std::size_t from : edit.order)
          reordered.push_back(rows.at(from));
        rows = std::move(reordered);
        break;
      }
      case Kind::insert:
        EXPECT_GT(edit.count, 0u);
        EXPECT_LE(edit.row, rows.size());
        EXPECT_LE(edit.row + edit.count, after.size());
        rows.insert(rows.begin() + static_cast<long>(edit.row),
                    after.begin() + static_cast<long>(edit.row),
                    after.begin() + static_cast<long>(edit.row + edit.count));
        break;
    }
  }
  return rows;
}

std::size_t countOf(const std::vector<SiblingEdit>& edits, Kind kind) {
  return static_cast<std::size_t>(std::count_if(
      edits.begin(), edits.end(), [kind](const SiblingEdit& edit) { return edit.kind == kind; }));
}

TEST(SiblingDiffTest, SmallChangesBecomeTheFewestSteps) {
  const Rows abcd{"A", "B", "C", "D"};
  EXPECT_TRUE(diffSiblings(keysOf(abcd), keysOf(abcd)).empty());

  const Rows moved{"B", "C", "D", "A"};
  EXPECT_EQ(diffSiblings(keysOf(abcd), keysOf(moved)),
            (std::vector<SiblingEdit>{{Kind::move, 0, 1, 3}}))
      << "one row to the end is one move, not three";

  // Neighbouring rows go and come as one range each.
  const Rows replaced{"A", "X", "Y", "Z", "D"};
  EXPECT_EQ(diffSiblings(keysOf(abcd), keysOf(replaced)),
            (std::vector<SiblingEdit>{{Kind::remove, 1, 2, 0}, {Kind::insert, 1, 3, 0}}));

  // Removals run from the end, so that each names rows of the list as it then is.
  const Rows thinned{"B", "D"};
  EXPECT_EQ(diffSiblings(keysOf(abcd), keysOf(thinned)),
            (std::vector<SiblingEdit>{{Kind::remove, 2, 1, 0}, {Kind::remove, 0, 1, 0}}));

  EXPECT_EQ(diffSiblings({}, keysOf(abcd)), (std::vector<SiblingEdit>{{Kind::insert, 0, 4, 0}}));
  EXPECT_EQ(diffSiblings(keysOf(abcd), {}), (std::vector<SiblingEdit>{{Kind::remove, 0, 4, 0}}));
}

TEST(SiblingDiffTest, ARenameKeepsItsRowWhenTheCallerSaysItIsTheSameItem) {
  const Rows before{"A", "B", "C"};
  const auto always = [](std::size_t, std::size_t) { return true; };
  const auto never = [](std::size_t, std::size_t) { return false; };

  // In place: nothing to do for the rows; the caller sees the new key at the old row.
  EXPECT_TRUE(diffSiblings(keysOf(before), keysOf(Rows{"A", "X", "C"}), always).empty());
  EXPECT_EQ(diffSiblings(keysOf(before), keysOf(Rows{"A", "X", "C"}), never),
            (std::vector<SiblingEdit>{{Kind::remove, 1, 1, 0}, {Kind::insert, 1, 1, 0}}));

  // Renamed and sorted to its new place: one move, and the row is told which pair it was.
  std::size_t askedOld = 99;
  std::size_t askedNew = 99;
  const auto edits = diffSiblings(keysOf(before), keysOf(Rows{"A", "C", "Z"}),
                                  [&](std::size_t oldRow, std::size_t newRow) {
                                    askedOld = oldRow;
                                    askedNew = newRow;
                                    return true;
                                  });
  EXPECT_EQ(edits, (std::vector<SiblingEdit>{{Kind::move, 1, 1, 2}}));
  EXPECT_EQ(askedOld, 1u);
  EXPECT_EQ(askedNew, 2u);

  // Two keys gone and two come: not taken for renames.
  EXPECT_EQ(
      countOf(diffSiblings(keysOf(before), keysOf(Rows{"A", "X", "Y"}), always), Kind::insert), 1u);
  // One gone and none come is a plain removal, whatever the test says.
  EXPECT_EQ(diffSiblings(keysOf(before), keysOf(Rows{"A", "C"}), always),
            (std::vector<SiblingEdit>{{Kind::remove, 1, 1, 0}}));
}

TEST(SiblingDiffTest, ManyMovedRowsBecomeOneReorder) {
  Rows before;
  for (int key = 0; key < 100; ++key)
    before.push_back("k" + std::to_string(key));
  Rows after(before.rbegin(), before.rend());
  after.erase(after.begin() + 10);
  after.push_back("new");
  const auto edits = diffSiblings(keysOf(before), keysOf(after));
  EXPECT_EQ(play(before, after, edits), after);
  EXPECT_EQ(countOf(edits, Kind::move), 0u);
  EXPECT_EQ(countOf(edits, Kind::reorder), 1u);

  // Just past the limit of single moves, and just within it.
  Rows rotated = before;
  std::rotate(rotated.begin(), rotated.begin() + kMostSingleMoves + 1, rotated.end());
  EXPECT_EQ(countOf(diffSiblings(keysOf(before), keysOf(rotated)), Kind::reorder), 1u);
  EXPECT_EQ(play(before, rotated, diffSiblings(keysOf(before), keysOf(rotated))), rotated);
  rotated = before;
  std::rotate(rotated.begin(), rotated.begin() + kMostSingleMoves, rotated.end());
  EXPECT_EQ(countOf(diffSiblings(keysOf(before), keysOf(rotated)), Kind::move), kMostSingleMoves);
}

TEST(SiblingDiffTest, RepeatedKeysReplaceTheWholeList) {
  const Rows repeated{"A", "A", "B"};
  const Rows after{"A", "B"};
  const auto edits = diffSiblings(keysOf(repeated), keysOf(after));
  EXPECT_EQ(edits, (std::vector<SiblingEdit>{{Kind::remove, 0, 3, 0}, {Kind::insert, 0, 2, 0}}));
  EXPECT_EQ(play(repeated, after, edits), after);
}

// The fewest single-row moves that sort a list are its length less its longest increasing run;
// counted here the slow way.
std::size_t fewestMoves(const Rows& before, const Rows& after) {
  std::vector<std::size_t> order;
  for (const std::string& key : before) {
    const auto found = std::find(after.begin(), after.end(), key);
    if (found != after.end())
      order.push_back(static_cast<std::size_t>(found - after.begin()));
  }
  std::vector<std::size_t> longest(order.size(), 1);
  std::size_t best = 0;
  for (std::size_t i = 0; i < order.size(); ++i) {
    for (std::size_t j = 0; j < i; ++j) {
      if (order[j] < order[i])
        longest[i] = std::max(longest[i], longest[j] + 1);
    }
    best = std::max(best, longest[i]);
  }
  return order.size() - best;
}

TEST(SiblingDiffTest, RandomListsArriveExactlyWithTheFewestMoves) {
  std::mt19937 random(20261125);
  for (int round = 0; round < 2000; ++round) {
    // Keys drawn from a small alphabet, so that lists share many of them.
    auto draw = [&random] {
      std::vector<std::string> pool;
      for (char key = 'a'; key <= 'p'; ++key)
        pool.emplace_back(1, key);
      std::shuffle(pool.begin(), pool.end(), random);
      pool.resize(std::uniform_int_distribution<std::size_t>(0, pool.size())(random));
      return pool;
    };
    const Rows before = draw();
    const Rows after = draw();
    const auto edits = diffSiblings(keysOf(before), keysOf(after));
    ASSERT_EQ(play(before, after, edits), after) << "round " << round;
    EXPECT_EQ(countOf(edits, Kind::move), fewestMoves(before, after)) << "round " << round;
  }
}

}  // namespace
}  // namespace orvan::editor

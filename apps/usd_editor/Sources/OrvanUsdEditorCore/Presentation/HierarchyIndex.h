#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "orvan/wire/records/StageInspection.h"

namespace orvan::editor {

// A flat, breadth-first index over a stage's prim tree, built once per stage (off the main thread)
// so that a tree view can answer parent, row and child questions in constant time. Children of one
// node are contiguous entries, so no per-node child table is needed. Entry 0 is the invisible root
// whose children are the stage's root prims.
class HierarchyIndex {
 public:
  struct Entry {
    const UsdPrimNode* node = nullptr;  // null for the invisible root
    std::uint32_t parent = 0;
    std::uint32_t row = 0;         // position among its siblings
    std::uint32_t firstChild = 0;  // entry of its first child, when it has children
    std::uint32_t depth = 0;       // 0 for a root prim
  };

  static constexpr std::uint32_t kRoot = 0;

  // Keeps `stage` alive for as long as the index exists.
  static std::shared_ptr<const HierarchyIndex> build(std::shared_ptr<const StageInspection> stage);

  const Entry& entry(std::uint32_t id) const { return entries_[id]; }
  std::size_t entryCount() const { return entries_.size(); }
  std::size_t childCount(std::uint32_t id) const;
  std::uint32_t child(std::uint32_t id, std::size_t row) const;
  std::optional<std::uint32_t> entryForPath(std::string_view path) const;
  // A digest of everything a tree row shows of the entry and of all rows below it (names, types,
  // activity, badges, order). Two stages' entries with equal digests show the same subtree, so a
  // view can skip it when it moves from one stage to the next.
  std::uint64_t subtreeDigest(std::uint32_t id) const { return subtreeDigests_[id]; }
  // The tree node of a path, or null when the stage has none there.
  const UsdPrimNode* node(std::string_view path) const;
  // The entries from the root's child down to `id`, for expanding a path in a view.
  std::vector<std::uint32_t> ancestry(std::uint32_t id) const;
  const StageInspection& stage() const { return *stage_; }

 private:
  std::shared_ptr<const StageInspection> stage_;
  std::vector<Entry> entries_;
  std::vector<std::uint64_t> subtreeDigests_;
  std::unordered_map<std::string_view, std::uint32_t> byPath_;
};

}  // namespace orvan::editor

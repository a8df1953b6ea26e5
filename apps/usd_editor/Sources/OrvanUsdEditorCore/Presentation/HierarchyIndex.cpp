#include "Presentation/HierarchyIndex.h"

#include <algorithm>
#include <functional>
#include <string>

namespace orvan::editor {

namespace {

void mix(std::uint64_t& digest, std::uint64_t value) {
  digest ^= value + 0x9e3779b97f4a7c15ULL + (digest << 12) + (digest >> 4);
}

void mix(std::uint64_t& digest, std::string_view text) {
  mix(digest, static_cast<std::uint64_t>(std::hash<std::string_view>{}(text)));
  mix(digest, text.size());
}

std::uint64_t rowDigest(const UsdPrimNode& node) {
  std::uint64_t digest = 0;
  mix(digest, node.name);
  mix(digest, node.typeName);
  mix(digest, node.active ? 1u : 2u);
  mix(digest, node.badges.size());
  for (const std::string& badge : node.badges)
    mix(digest, badge);
  return digest;
}

}  // namespace

std::shared_ptr<const HierarchyIndex> HierarchyIndex::build(
    std::shared_ptr<const StageInspection> stage) {
  auto index = std::make_shared<HierarchyIndex>();
  index->stage_ = std::move(stage);
  auto& entries = index->entries_;
  entries.push_back(Entry{});
  // Breadth-first: each node's children are appended together, right when it is visited.
  auto appendChildren = [&entries](std::uint32_t parent, const std::vector<UsdPrimNode>& children) {
    entries[parent].firstChild = static_cast<std::uint32_t>(entries.size());
    const std::uint32_t depth = parent == kRoot ? 0 : entries[parent].depth + 1;
    for (std::size_t row = 0; row < children.size(); ++row) {
      entries.push_back(Entry{&children[row], parent, static_cast<std::uint32_t>(row), 0, depth});
    }
  };
  appendChildren(kRoot, index->stage_->rootPrims);
  for (std::uint32_t id = 1; id < entries.size(); ++id) {
    appendChildren(id, entries[id].node->children);
  }
  // Children come after their parent, so going backwards finds every child's digest done.
  auto& digests = index->subtreeDigests_;
  digests.assign(entries.size(), 0);
  for (std::size_t id = entries.size(); id-- > 0;) {
    const Entry& entry = entries[id];
    std::uint64_t digest = entry.node ? rowDigest(*entry.node) : 0;
    const std::size_t count =
        entry.node ? entry.node->children.size() : index->stage_->rootPrims.size();
    mix(digest, count);
    for (std::size_t row = 0; row < count; ++row)
      mix(digest, digests[entry.firstChild + row]);
    digests[id] = digest;
  }
  index->byPath_.reserve(entries.size());
  for (std::uint32_t id = 1; id < entries.size(); ++id) {
    index->byPath_.emplace(entries[id].node->path, id);
  }
  return index;
}

std::size_t HierarchyIndex::childCount(std::uint32_t id) const {
  const Entry& e = entries_[id];
  return e.node ? e.node->children.size() : stage_->rootPrims.size();
}

std::uint32_t HierarchyIndex::child(std::uint32_t id, std::size_t row) const {
  return entries_[id].firstChild + static_cast<std::uint32_t>(row);
}

std::optional<std::uint32_t> HierarchyIndex::entryForPath(std::string_view path) const {
  const auto found = byPath_.find(path);
  if (found == byPath_.end())
    return std::nullopt;
  return found->second;
}

const UsdPrimNode* HierarchyIndex::node(std::string_view path) const {
  const auto found = byPath_.find(path);
  return found == byPath_.end() ? nullptr : entries_[found->second].node;
}

std::vector<std::uint32_t> HierarchyIndex::ancestry(std::uint32_t id) const {
  std::vector<std::uint32_t> chain;
  for (std::uint32_t at = id; at != kRoot; at = entries_[at].parent)
    chain.push_back(at);
  std::reverse(chain.begin(), chain.end());
  return chain;
}

}  // namespace orvan::editor

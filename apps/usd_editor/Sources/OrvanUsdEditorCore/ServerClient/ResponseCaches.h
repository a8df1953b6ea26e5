#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "Launch/SharedClientScope.h"
#include "orvan/wire/records/ProjectResponse.h"
#include "orvan/wire/records/StageInspection.h"

namespace orvan::editor {

// A small in-memory cache evicting the least recently used entry, where "recently" counts
// accesses, not time: every look-up and every store takes the next value of a clock. Nothing
// expires; an entry is replaced only by a newer answer.
template <class Entry>
class AccessOrderedCache {
 public:
  explicit AccessOrderedCache(std::size_t limit) : limit_(limit) {}

  void remember(const std::string& key, Entry entry) {
    entry.lastUsed = ++clock_;
    entries_.insert_or_assign(key, std::move(entry));
    while (entries_.size() > limit_)
      evictLeastRecentlyUsed();
  }

  // Marks the entry used.
  const Entry* find(const std::string& key) {
    const auto found = entries_.find(key);
    if (found == entries_.end())
      return nullptr;
    found->second.lastUsed = ++clock_;
    return &found->second;
  }

  std::size_t size() const { return entries_.size(); }
  std::uint64_t clock() const { return clock_; }

 private:
  void evictLeastRecentlyUsed() {
    auto oldest = entries_.begin();
    for (auto at = entries_.begin(); at != entries_.end(); ++at) {
      if (at->second.lastUsed < oldest->second.lastUsed)
        oldest = at;
    }
    entries_.erase(oldest);
  }

  std::size_t limit_;
  std::uint64_t clock_ = 0;
  std::unordered_map<std::string, Entry> entries_;
};

// The project endpoint's last answer for one address, with its ETag, for a conditional request.
struct CachedProjectResponse {
  std::shared_ptr<const ProjectResponse> project;
  std::string etag;
  std::uint64_t lastUsed = 0;
};

// A stage seen for one scope, with its ETag, so that reopening the scope shortly after can tell
// the server which stage the editor already holds. The stage is shared with the editor's own copy.
struct CachedRemoteStage {
  std::uint64_t revision = 0;
  std::shared_ptr<const StageInspection> stage;
  std::string etag;  // as the server sent it, quotes included
  std::uint64_t lastUsed = 0;
};

inline constexpr std::size_t kProjectResponseCacheLimit = 12;
inline constexpr std::size_t kRemoteStageCacheLimit = 16;

// The key of a scope's stage: server, project, project root, scene, workspace ("main" when empty)
// and active layer, one per line. The server composes per layer, so the layer is part of it.
std::string remoteStageCacheKey(const SharedClientScope& scope);

}  // namespace orvan::editor

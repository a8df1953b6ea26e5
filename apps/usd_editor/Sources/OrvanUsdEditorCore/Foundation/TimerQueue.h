#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <stop_token>
#include <utility>

#include "Foundation/Executors.h"

namespace orvan::editor {

// Closures ordered by due time, then by posting order. Shared by the headless event loop and the
// virtual-time scheduler; not thread-safe on its own.
class TimerQueue {
 public:
  void push(TimePoint due, std::stop_token token, Closure closure) {
    entries_.emplace(Key{due, nextSequence_++}, Entry{std::move(token), std::move(closure)});
  }

  // Removes and returns the first closure due at or before `now`, skipping cancelled ones.
  std::optional<Closure> popDue(TimePoint now) {
    while (!entries_.empty()) {
      auto first = entries_.begin();
      if (first->first.due > now)
        return std::nullopt;
      Entry entry = std::move(first->second);
      entries_.erase(first);
      if (entry.token.stop_requested())
        continue;
      return std::move(entry.closure);
    }
    return std::nullopt;
  }

  // The due time of the earliest closure that has not been cancelled.
  std::optional<TimePoint> nextDue() {
    while (!entries_.empty() && entries_.begin()->second.token.stop_requested()) {
      entries_.erase(entries_.begin());
    }
    if (entries_.empty())
      return std::nullopt;
    return entries_.begin()->first.due;
  }

  bool empty() { return !nextDue().has_value(); }

 private:
  struct Key {
    TimePoint due;
    std::uint64_t sequence;
    bool operator<(const Key& other) const {
      return due != other.due ? due < other.due : sequence < other.sequence;
    }
  };
  struct Entry {
    std::stop_token token;
    Closure closure;
  };
  std::map<Key, Entry> entries_;
  std::uint64_t nextSequence_ = 0;
};

}  // namespace orvan::editor

#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>

namespace orvan::editor {

// What a child wrote to one output stream, kept while a reader thread drains the pipe and read by
// others. It keeps at most `limit` bytes, the newest ones: the end of a stream (a failing helper's
// last words) is what a message shows, and a flooding helper must cost bounded memory. The buffer
// may grow to twice the limit before the oldest bytes are cut, so that a flood costs amortised
// constant work per byte.
class ProcessOutputCapture {
 public:
  explicit ProcessOutputCapture(std::size_t limit) : limit_(limit) {}

  void append(std::string_view bytes) {
    std::lock_guard lock(mutex_);
    totalBytes_ += bytes.size();
    bytes_.append(bytes);
    if (bytes_.size() > 2 * limit_)
      bytes_.erase(0, bytes_.size() - limit_);
  }

  std::string snapshot() const {
    std::lock_guard lock(mutex_);
    const std::size_t keep = std::min(bytes_.size(), limit_);
    return bytes_.substr(bytes_.size() - keep);
  }

  // Whether older bytes were dropped to stay within the limit.
  bool isTruncated() const {
    std::lock_guard lock(mutex_);
    return totalBytes_ > limit_;
  }

 private:
  mutable std::mutex mutex_;
  std::size_t limit_;
  std::string bytes_;
  std::size_t totalBytes_ = 0;
};

}  // namespace orvan::editor

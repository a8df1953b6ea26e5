#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace orvan::engine {

// Cuts a byte stream into lines at each line feed, holding at most `maxLineBytes` of one line. A
// longer line is not kept: the rest of it up to its line feed is skipped and it is reported once,
// as overlong, so that one huge line costs no memory and leaves the lines after it intact.
class LineSplitter {
 public:
  explicit LineSplitter(std::size_t maxLineBytes) : maxLineBytes_(maxLineBytes) {}

  // Calls `onLine(std::string_view line, bool overlong)` for every line the bytes complete.
  // Returns false as soon as `onLine` does (the rest of the bytes is then left unread).
  template <class OnLine>
  bool feed(std::string_view bytes, OnLine&& onLine) {
    while (!bytes.empty()) {
      const std::size_t feedAt = bytes.find('\n');
      const std::string_view piece = bytes.substr(0, feedAt);
      if (!skipping_) {
        if (pending_.size() + piece.size() > maxLineBytes_) {
          skipping_ = true;
          pending_.clear();
          pending_.shrink_to_fit();
        } else {
          pending_.append(piece);
        }
      }
      if (feedAt == std::string_view::npos)
        return true;
      bytes.remove_prefix(feedAt + 1);
      const bool overlong = skipping_;
      skipping_ = false;
      const bool goOn = onLine(std::string_view(pending_), overlong);
      pending_.clear();
      if (!goOn)
        return false;
    }
    return true;
  }

  // The end of the stream: a last line without a line feed still counts. Calls `onLine` at most
  // once.
  template <class OnLine>
  void finish(OnLine&& onLine) {
    if (pending_.empty() && !skipping_)
      return;
    const bool overlong = skipping_;
    skipping_ = false;
    onLine(std::string_view(pending_), overlong);
    pending_.clear();
  }

 private:
  std::size_t maxLineBytes_;
  std::string pending_;
  bool skipping_ = false;
};

}  // namespace orvan::engine

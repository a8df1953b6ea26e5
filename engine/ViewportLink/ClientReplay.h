#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ViewportLink/ViewportInwardLine.h"

namespace orvan::engine {

// What the editor has told the viewport that still holds: the open line and the settings after
// it (size, token, camera mode, tool, selection, previews, ...). A runtime that restarted gets
// these lines again and comes back to where the last one was. Input events, acknowledgements and
// one-off commands are not kept.
class ClientReplay {
 public:
  // Notes one line the editor sent, already parsed.
  void note(const ViewportCommand& command, std::string_view line);
  // The lines to send a new runtime, the open line first; empty before an open.
  std::vector<std::string> lines() const;

 private:
  std::string open_;
  std::vector<std::pair<std::string, std::string>> settings_;  // key, line; in first-seen order
};

}  // namespace orvan::engine

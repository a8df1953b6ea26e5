#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace orvan::ui {

// Whether a launch argument is one of the editor's links ("velk:" or "orvan:", any letter case).
bool isEditorURL(std::string_view argument);

// Links handed to the editor, by its own launch arguments or forwarded by a later launch, kept in
// arrival order until something routes them. It does not depend on the model, so a link that
// arrives while the model is still being built is kept, not lost.
class IncomingURLQueue {
 public:
  using Receiver = std::function<void(const std::string&)>;

  // Keeps `url`, or hands it on at once once a receiver is set; `source` says where it came
  // from, for the log.
  void push(std::string url, std::string_view source);
  std::vector<std::string> takeAll();
  const std::vector<std::string>& pending() const { return pending_; }
  // From now on links go to `receiver`, the kept ones first, in arrival order.
  void route(Receiver receiver);

 private:
  std::vector<std::string> pending_;
  Receiver receiver_;
};

// What the log may say about a link: its scheme and host, never its query, which can carry a
// sign-in code.
std::string loggableURL(std::string_view url);

}  // namespace orvan::ui

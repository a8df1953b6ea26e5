#pragma once

#include <chrono>
#include <thread>

namespace orvan::editor::testing {

// Polls real time for something that happens off the test's thread (a child process, a server,
// the network thread), where no event loop would notice it. True once it holds; false when it
// still does not after `patience`.
template <class Condition>
bool eventually(Condition condition,
                std::chrono::steady_clock::duration patience = std::chrono::seconds(20)) {
  const auto giveUp = std::chrono::steady_clock::now() + patience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > giveUp)
      return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace orvan::editor::testing

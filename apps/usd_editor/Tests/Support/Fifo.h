#pragma once

#include <chrono>
#include <filesystem>
#include <functional>

namespace orvan::editor::testing {

// Makes a FIFO at `path`; false when it could not.
bool makeFifo(const std::filesystem::path& path);

// Runs `work` on the calling thread and tells whether it ended by itself within `patience`. Work
// (or a process it started) still waiting on `fifo` for a writer by then is freed by a watchdog
// that opens the FIFO's other end and closes it again, as often as needed, so that a regression
// fails the test instead of hanging it.
bool endsWithoutAWriter(const std::filesystem::path& fifo, const std::function<void()>& work,
                        std::chrono::milliseconds patience = std::chrono::seconds(10));

}  // namespace orvan::editor::testing

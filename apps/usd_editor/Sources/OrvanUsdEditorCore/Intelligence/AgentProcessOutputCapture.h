#pragma once

#include <cstddef>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "Intelligence/LocalAgentRun.h"
#include "Platform/ProcessOutputCapture.h"

namespace orvan::editor {

// What an agent run has said so far: its output (the newest bytes, for the log of a run that ends
// without a receipt), the newest progress label and the agent's own summary. Written by the
// process's monitor thread, read on the main thread.
class AgentProcessOutputCapture {
 public:
  static constexpr std::size_t kDefaultLimitBytes = 64 * 1024;

  explicit AgentProcessOutputCapture(std::size_t limitBytes = kDefaultLimitBytes)
      : output_(limitBytes) {}

  // Records a line of the event stream. Returns the label to show when it differs from the newest
  // one, so that a chatty agent does not post the same label again and again.
  std::optional<std::string> appendEventLine(std::string_view line);
  // Records a diagnostic line (standard error): kept for the log, never shown as progress.
  void appendDiagnosticLine(std::string_view line);

  std::string output() const { return output_.snapshot(); }
  std::optional<std::string> newestLabel() const;
  std::optional<std::string> summary() const;

 private:
  ProcessOutputCapture output_;
  mutable std::mutex mutex_;
  std::optional<std::string> newestLabel_;
  std::optional<std::string> summary_;
};

}  // namespace orvan::editor

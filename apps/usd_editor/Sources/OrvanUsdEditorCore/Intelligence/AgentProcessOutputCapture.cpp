#include "Intelligence/AgentProcessOutputCapture.h"

#include "orvan/wire/Text.h"

namespace orvan::editor {

std::optional<std::string> AgentProcessOutputCapture::appendEventLine(std::string_view line) {
  output_.append(line);
  output_.append("\n");
  AgentProgress progress = agentProgressLabel(line);
  std::lock_guard lock(mutex_);
  if (progress.summary && !isBlank(*progress.summary))
    summary_ = trimmed(*progress.summary);
  if (!progress.label || progress.label == newestLabel_)
    return std::nullopt;
  newestLabel_ = progress.label;
  return progress.label;
}

void AgentProcessOutputCapture::appendDiagnosticLine(std::string_view line) {
  output_.append(line);
  output_.append("\n");
}

std::optional<std::string> AgentProcessOutputCapture::newestLabel() const {
  std::lock_guard lock(mutex_);
  return newestLabel_;
}

std::optional<std::string> AgentProcessOutputCapture::summary() const {
  std::lock_guard lock(mutex_);
  return summary_;
}

}  // namespace orvan::editor

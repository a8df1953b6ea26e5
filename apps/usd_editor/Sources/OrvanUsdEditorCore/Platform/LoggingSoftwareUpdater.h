#pragma once

#include <string>

#include "Platform/SoftwareUpdater.h"

namespace orvan::editor {

// The updater on Linux: the editor is updated through the system's packages, so starting and
// checking only say so in the log. It keeps the start-once rule so callers behave the same
// whatever updater they hold.
class LoggingSoftwareUpdater final : public SoftwareUpdater {
 public:
  explicit LoggingSoftwareUpdater(std::string feedURL = {}) : feedURL_(std::move(feedURL)) {}

  void start() override;
  bool isStarted() const override { return started_; }
  void checkForUpdates() override;

 private:
  std::string feedURL_;
  bool started_ = false;
};

}  // namespace orvan::editor

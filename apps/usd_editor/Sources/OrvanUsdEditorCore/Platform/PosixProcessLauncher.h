#pragma once

#include "Platform/ProcessLauncher.h"

namespace orvan::editor {

// The real launcher: every child is a `Subprocess`.
class PosixProcessLauncher final : public ProcessLauncher {
 public:
  Result<std::unique_ptr<ChildProcess>> launch(ProcessLaunchOptions options) override;
  Result<ProcessOutput> runToCompletion(ProcessLaunchOptions options) override;
  bool isExecutableFile(const std::string& path) const override;
};

}  // namespace orvan::editor

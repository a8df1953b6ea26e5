#include "Platform/PosixProcessLauncher.h"

#include "Platform/Subprocess.h"

namespace orvan::editor {

Result<std::unique_ptr<ChildProcess>> PosixProcessLauncher::launch(ProcessLaunchOptions options) {
  auto launched = Subprocess::launch(std::move(options));
  if (!launched)
    return launched.error();
  return std::unique_ptr<ChildProcess>(std::move(*launched));
}

Result<ProcessOutput> PosixProcessLauncher::runToCompletion(ProcessLaunchOptions options) {
  return Subprocess::runToCompletion(std::move(options));
}

bool PosixProcessLauncher::isExecutableFile(const std::string& path) const {
  return Subprocess::isExecutableFile(path);
}

}  // namespace orvan::editor

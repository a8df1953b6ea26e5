#pragma once

#include <memory>
#include <mutex>
#include <stop_token>

#include "Presentation/EditorClientDocument.h"

namespace orvan::editor {

// The one worker every document build goes through. Builds run on background threads but never
// two at once, so a burst of rebuild requests cannot pile up full builds side by side; a build
// that was cancelled while it waited its turn does not run at all.
class EditorClientDocumentBuilder {
 public:
  // Null when `token` was cancelled before the build could start.
  std::shared_ptr<const EditorClientDocumentSnapshot> build(
      const EditorClientDocumentBuildInput& input, const std::stop_token& token);

 private:
  std::mutex building_;
};

}  // namespace orvan::editor

#include "Foundation/Executors.h"

#include <cstdio>
#include <cstdlib>

namespace orvan::editor {

void assertMainThread(const MainExecutor& executor, const char* where) {
  if (executor.isMainThread())
    return;
  std::fprintf(stderr, "OrvanUsdEditor: %s called off the main thread\n", where);
  std::abort();
}

}  // namespace orvan::editor

#include "Support/Fifo.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <future>
#include <thread>

namespace orvan::editor::testing {

bool makeFifo(const std::filesystem::path& path) {
  return ::mkfifo(path.c_str(), 0600) == 0;
}

bool endsWithoutAWriter(const std::filesystem::path& fifo, const std::function<void()>& work,
                        std::chrono::milliseconds patience) {
  std::promise<void> finished;
  std::future<void> ended = finished.get_future();
  std::atomic<bool> freed = false;
  std::thread watchdog([&] {
    auto wait = patience;
    while (ended.wait_for(wait) != std::future_status::ready) {
      // Opened for both reading and writing, a FIFO never blocks the opener; a reader waiting
      // for a writer goes on, and reads end of file once this end is closed.
      freed = true;
      const int writer = ::open(fifo.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
      if (writer >= 0)
        ::close(writer);
      wait = std::chrono::milliseconds(100);
    }
  });
  work();
  finished.set_value();
  watchdog.join();
  return !freed;
}

}  // namespace orvan::editor::testing

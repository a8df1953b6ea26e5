#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "Foundation/Executors.h"

namespace orvan::editor {

// A fixed set of worker threads taking closures in posting order. The destructor finishes the
// work already queued, then joins.
class ThreadPool final : public BackgroundExecutor {
 public:
  explicit ThreadPool(std::size_t threadCount = defaultThreadCount());
  ~ThreadPool() override;
  ThreadPool(const ThreadPool&) = delete;
  ThreadPool& operator=(const ThreadPool&) = delete;

  void post(Closure closure) override;
  static std::size_t defaultThreadCount();

 private:
  void runWorker();

  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<Closure> queue_;
  bool stopping_ = false;
  std::vector<std::thread> workers_;
};

}  // namespace orvan::editor

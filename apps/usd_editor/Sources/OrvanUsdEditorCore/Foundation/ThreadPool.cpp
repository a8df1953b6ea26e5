#include "Foundation/ThreadPool.h"

#include <algorithm>

namespace orvan::editor {

std::size_t ThreadPool::defaultThreadCount() {
  return std::clamp<std::size_t>(std::thread::hardware_concurrency(), 2, 8);
}

ThreadPool::ThreadPool(std::size_t threadCount) {
  workers_.reserve(std::max<std::size_t>(threadCount, 1));
  for (std::size_t i = 0; i < std::max<std::size_t>(threadCount, 1); ++i) {
    workers_.emplace_back([this] { runWorker(); });
  }
}

ThreadPool::~ThreadPool() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  for (auto& worker : workers_)
    worker.join();
}

void ThreadPool::post(Closure closure) {
  {
    std::lock_guard lock(mutex_);
    queue_.push_back(std::move(closure));
  }
  wake_.notify_one();
}

void ThreadPool::runWorker() {
  for (;;) {
    Closure next;
    {
      std::unique_lock lock(mutex_);
      wake_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
      if (queue_.empty())
        return;
      next = std::move(queue_.front());
      queue_.pop_front();
    }
    next();
  }
}

}  // namespace orvan::editor

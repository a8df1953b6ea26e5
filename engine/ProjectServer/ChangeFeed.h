#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace orvan::engine {

// What a watcher listens to: one scene of one workspace of one project. The scene is the
// project-relative path the server resolved, so every spelling of one scene is one scope.
struct FeedScope {
  std::string project = {};
  std::string scene = {};
  std::string workspace = {};

  bool operator==(const FeedScope&) const = default;
};

// The lines the server sends to watchers after each revision and presence change. A watcher holds
// a subscription and takes its lines one by one; publishing never waits for a watcher. A watcher
// that falls behind by more than `maxQueuedBytes` is dropped (its subscription reports closed):
// the stream is a hint, and the client starts a new one and refreshes.
class ChangeFeed {
 public:
  class Subscription {
   public:
    // The next line, waiting up to `timeout`; nothing when the time ran out or the subscription
    // is closed.
    std::optional<std::string> next(std::chrono::milliseconds timeout);
    bool closed() const;
    const FeedScope& scope() const { return scope_; }

    explicit Subscription(FeedScope scope, std::size_t maxQueuedBytes)
        : scope_(std::move(scope)), maxQueuedBytes_(maxQueuedBytes) {}

   private:
    friend class ChangeFeed;
    void push(const std::string& line);
    void close();

    const FeedScope scope_;
    const std::size_t maxQueuedBytes_;
    mutable std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<std::string> lines_;
    std::size_t queuedBytes_ = 0;
    bool closed_ = false;
  };

  explicit ChangeFeed(std::size_t maxQueuedBytes = 8u << 20) : maxQueuedBytes_(maxQueuedBytes) {}
  ~ChangeFeed();
  ChangeFeed(const ChangeFeed&) = delete;
  ChangeFeed& operator=(const ChangeFeed&) = delete;

  // A new subscription whose first lines are `initialLines`, then whatever is published to its
  // scope from now on.
  std::shared_ptr<Subscription> subscribe(FeedScope scope, std::vector<std::string> initialLines);
  // To the watchers of exactly `scope`.
  void publish(const FeedScope& scope, const std::string& line);
  // To the watchers of every scene and workspace of `project`.
  void publishToProject(const std::string& project, const std::string& line);
  // Ends every subscription, now and from now on (the server is stopping).
  void closeAll();
  std::size_t watcherCount() const;

 private:
  template <class Matches>
  void publishWhere(const Matches& matches, const std::string& line);

  const std::size_t maxQueuedBytes_;
  mutable std::mutex mutex_;
  std::vector<std::weak_ptr<Subscription>> subscriptions_;
  bool closed_ = false;
};

}  // namespace orvan::engine

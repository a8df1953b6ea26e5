#include "ProjectServer/ChangeFeed.h"

#include <algorithm>

namespace orvan::engine {

std::optional<std::string> ChangeFeed::Subscription::next(std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  ready_.wait_for(lock, timeout, [this] { return closed_ || !lines_.empty(); });
  if (closed_ || lines_.empty())
    return std::nullopt;
  std::string line = std::move(lines_.front());
  lines_.pop_front();
  queuedBytes_ -= line.size();
  return line;
}

bool ChangeFeed::Subscription::closed() const {
  const std::lock_guard lock(mutex_);
  return closed_;
}

void ChangeFeed::Subscription::push(const std::string& line) {
  {
    const std::lock_guard lock(mutex_);
    if (closed_)
      return;
    if (queuedBytes_ + line.size() > maxQueuedBytes_) {
      // Too far behind to catch up: better a new stream and a refresh than unbounded memory.
      closed_ = true;
      lines_.clear();
      queuedBytes_ = 0;
    } else {
      lines_.push_back(line);
      queuedBytes_ += line.size();
    }
  }
  ready_.notify_all();
}

void ChangeFeed::Subscription::close() {
  {
    const std::lock_guard lock(mutex_);
    closed_ = true;
  }
  ready_.notify_all();
}

ChangeFeed::~ChangeFeed() {
  closeAll();
}

std::shared_ptr<ChangeFeed::Subscription> ChangeFeed::subscribe(
    FeedScope scope, std::vector<std::string> initialLines) {
  auto subscription = std::make_shared<Subscription>(std::move(scope), maxQueuedBytes_);
  for (const std::string& line : initialLines)
    subscription->push(line);
  const std::lock_guard lock(mutex_);
  if (closed_) {
    subscription->close();
    return subscription;
  }
  std::erase_if(subscriptions_, [](const auto& weak) { return weak.expired(); });
  subscriptions_.push_back(subscription);
  return subscription;
}

template <class Matches>
void ChangeFeed::publishWhere(const Matches& matches, const std::string& line) {
  std::vector<std::shared_ptr<Subscription>> targets;
  {
    const std::lock_guard lock(mutex_);
    for (const auto& weak : subscriptions_) {
      if (auto subscription = weak.lock(); subscription && matches(subscription->scope()))
        targets.push_back(std::move(subscription));
    }
  }
  for (const auto& subscription : targets)
    subscription->push(line);
}

void ChangeFeed::publish(const FeedScope& scope, const std::string& line) {
  publishWhere([&](const FeedScope& candidate) { return candidate == scope; }, line);
}

void ChangeFeed::publishToProject(const std::string& project, const std::string& line) {
  publishWhere([&](const FeedScope& candidate) { return candidate.project == project; }, line);
}

void ChangeFeed::closeAll() {
  std::vector<std::weak_ptr<Subscription>> subscriptions;
  {
    const std::lock_guard lock(mutex_);
    closed_ = true;
    subscriptions.swap(subscriptions_);
  }
  for (const auto& weak : subscriptions) {
    if (const auto subscription = weak.lock())
      subscription->close();
  }
}

std::size_t ChangeFeed::watcherCount() const {
  const std::lock_guard lock(mutex_);
  return static_cast<std::size_t>(std::count_if(subscriptions_.begin(), subscriptions_.end(),
                                                [](const auto& weak) { return !weak.expired(); }));
}

}  // namespace orvan::engine

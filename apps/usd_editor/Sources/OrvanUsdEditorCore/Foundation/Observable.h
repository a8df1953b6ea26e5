#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <utility>
#include <vector>

namespace orvan::editor {

// Ends a subscription when it goes out of scope. Safe to outlive the store it came from.
class Subscription {
 public:
  Subscription() = default;
  explicit Subscription(std::function<void()> cancel) : cancel_(std::move(cancel)) {}
  Subscription(Subscription&& other) noexcept : cancel_(std::exchange(other.cancel_, nullptr)) {}
  Subscription& operator=(Subscription&& other) noexcept {
    if (this != &other) {
      reset();
      cancel_ = std::exchange(other.cancel_, nullptr);
    }
    return *this;
  }
  Subscription(const Subscription&) = delete;
  Subscription& operator=(const Subscription&) = delete;
  ~Subscription() { reset(); }

  void reset() {
    if (auto cancel = std::exchange(cancel_, nullptr))
      cancel();
  }

 private:
  std::function<void()> cancel_;
};

// A published value on the main thread. `set` notifies subscribers only when the value changed,
// so a store that is written often redraws its readers only when they would see a difference.
// Subscribers may subscribe, unsubscribe or set again from inside a notification.
template <class T>
class Observable {
 public:
  using Observer = std::function<void(const T&)>;

  Observable() : observers_(std::make_shared<Observers>()) {}
  explicit Observable(T initial)
      : value_(std::move(initial)), observers_(std::make_shared<Observers>()) {}
  Observable(const Observable&) = delete;
  Observable& operator=(const Observable&) = delete;

  const T& get() const { return value_; }

  // Returns whether the value changed (and observers were told).
  bool set(T next) {
    if (next == value_)
      return false;
    value_ = std::move(next);
    notify();
    return true;
  }

  // Changes the value in place and notifies when the result differs from before.
  template <class Mutate>
  bool update(Mutate&& mutate) {
    T next = value_;
    std::forward<Mutate>(mutate)(next);
    return set(std::move(next));
  }

  [[nodiscard]] Subscription subscribe(Observer observer) {
    const std::uint64_t id = observers_->nextId++;
    observers_->entries.emplace(id, std::make_shared<Observer>(std::move(observer)));
    std::weak_ptr<Observers> weak = observers_;
    return Subscription([weak, id] {
      if (auto observers = weak.lock())
        observers->entries.erase(id);
    });
  }

  std::size_t subscriberCount() const { return observers_->entries.size(); }

 private:
  struct Observers {
    std::map<std::uint64_t, std::shared_ptr<Observer>> entries;
    std::uint64_t nextId = 0;
  };

  void notify() {
    // Snapshot first: an observer may unsubscribe itself or others while we walk.
    std::vector<std::weak_ptr<Observer>> snapshot;
    snapshot.reserve(observers_->entries.size());
    for (const auto& [id, observer] : observers_->entries)
      snapshot.push_back(observer);
    const T current = value_;
    for (const auto& weak : snapshot) {
      if (auto observer = weak.lock())
        (*observer)(current);
    }
  }

  T value_{};
  std::shared_ptr<Observers> observers_;
};

}  // namespace orvan::editor

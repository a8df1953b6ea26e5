#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Foundation/Observable.h"

namespace orvan::editor {
namespace {

TEST(ObservableTest, NotifiesOnlyWhenTheValueChanges) {
  Observable<std::string> status("Ready");
  std::vector<std::string> seen;
  Subscription subscription =
      status.subscribe([&](const std::string& value) { seen.push_back(value); });
  EXPECT_FALSE(status.set("Ready"));
  EXPECT_TRUE(status.set("Loading"));
  EXPECT_FALSE(status.update([](std::string&) {}));
  EXPECT_TRUE(status.update([](std::string& value) { value += "…"; }));
  EXPECT_EQ(seen, (std::vector<std::string>{"Loading", "Loading…"}));
}

TEST(ObservableTest, SubscriptionEndsWithItsScopeAndMayOutliveTheStore) {
  int calls = 0;
  Subscription outliving;
  {
    Observable<int> value(0);
    {
      Subscription scoped = value.subscribe([&](int) { ++calls; });
      value.set(1);
    }
    value.set(2);
    EXPECT_EQ(calls, 1);
    outliving = value.subscribe([&](int) { ++calls; });
  }
  outliving.reset();  // the store is gone; ending the subscription must be harmless
  EXPECT_EQ(calls, 1);
}

TEST(ObservableTest, ObserversMayUnsubscribeOthersAndSetAgainDuringNotification) {
  Observable<int> value(0);
  std::vector<int> first, second;
  Subscription secondSubscription;
  Subscription firstSubscription = value.subscribe([&](int v) {
    first.push_back(v);
    secondSubscription.reset();
    if (v == 1)
      value.set(2);
  });
  secondSubscription = value.subscribe([&](int v) { second.push_back(v); });
  value.set(1);
  EXPECT_EQ(first, (std::vector<int>{1, 2}));
  EXPECT_TRUE(second.empty()) << "an observer removed during notification must not be called";
  EXPECT_EQ(value.get(), 2);
}

}  // namespace
}  // namespace orvan::editor

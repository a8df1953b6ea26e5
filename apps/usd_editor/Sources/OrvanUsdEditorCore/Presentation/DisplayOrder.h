#pragma once

#include <algorithm>
#include <numeric>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "orvan/wire/Text.h"

namespace orvan::editor {

// The order every list of the interface uses: by display name without regard to case, then by the
// name's exact bytes, then by identity, so that equal names still sort the same way every time.
// Each name is folded once, not once per comparison.
template <class T, class NameOf, class IdentityOf>
void sortByDisplayName(std::vector<T>& items, NameOf nameOf, IdentityOf identityOf) {
  std::vector<std::string> folded;
  folded.reserve(items.size());
  for (const T& item : items)
    folded.push_back(lowercased(nameOf(item)));
  std::vector<std::size_t> order(items.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::sort(order.begin(), order.end(), [&](std::size_t left, std::size_t right) {
    if (folded[left] != folded[right])
      return folded[left] < folded[right];
    const std::string_view leftName = nameOf(items[left]);
    const std::string_view rightName = nameOf(items[right]);
    if (leftName != rightName)
      return leftName < rightName;
    return identityOf(items[left]) < identityOf(items[right]);
  });
  std::vector<T> sorted;
  sorted.reserve(items.size());
  for (std::size_t index : order)
    sorted.push_back(std::move(items[index]));
  items = std::move(sorted);
}

}  // namespace orvan::editor

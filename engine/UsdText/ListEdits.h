#pragma once

#include <algorithm>
#include <vector>

#include "UsdText/Layer.h"

namespace orvan::engine {

// The items a list-valued opinion names: None names nothing, a single value names itself.
inline std::vector<const Value*> listItems(const Value& value) {
  std::vector<const Value*> items;
  if (value.isNone())
    return items;
  if (value.kind == ValueKind::List) {
    for (const Value& item : value.items())
      items.push_back(&item);
  } else {
    items.push_back(&value);
  }
  return items;
}

// Applies one list edit (explicit, prepend, append, add, delete) to the result of the weaker ones.
template <typename Item, typename Items, typename Equal>
void applyListOp(std::vector<Item>& result, ListOp op, const Items& items, Equal equal) {
  auto remove = [&](const Item& item) {
    result.erase(
        std::remove_if(result.begin(), result.end(), [&](const Item& r) { return equal(r, item); }),
        result.end());
  };
  switch (op) {
    case ListOp::Explicit:
      result.assign(items.begin(), items.end());
      break;
    case ListOp::Prepend:
      for (const Item& item : items)
        remove(item);
      result.insert(result.begin(), items.begin(), items.end());
      break;
    case ListOp::Append:
      for (const Item& item : items) {
        remove(item);
        result.push_back(item);
      }
      break;
    case ListOp::Add:
      for (const Item& item : items) {
        if (std::none_of(result.begin(), result.end(),
                         [&](const Item& r) { return equal(r, item); })) {
          result.push_back(item);
        }
      }
      break;
    case ListOp::Delete:
      for (const Item& item : items)
        remove(item);
      break;
    case ListOp::Reorder:
      break;
  }
}

}  // namespace orvan::engine

#pragma once

#include <string>

#include "orvan/wire/Error.h"

namespace orvan::engine {

// Why a store operation failed, in words fit for a log line.
struct StoreError {
  std::string message;

  bool operator==(const StoreError&) const = default;
};

template <class T>
using StoreResult = editor::Result<T, StoreError>;
using StoreStatus = StoreResult<editor::Unit>;

}  // namespace orvan::engine

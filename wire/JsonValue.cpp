#include "orvan/wire/JsonValue.h"

#include <limits>

namespace orvan::editor {

// One number, one representation: an unsigned value that fits is kept signed, so that equality
// does not depend on how the value was made.
JsonValue::JsonValue(std::uint64_t value) {
  if (value <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
    storage_ = static_cast<std::int64_t>(value);
  } else {
    storage_ = value;
  }
}

const JsonValue* JsonValue::find(std::string_view key) const {
  const Object* object = asObject();
  if (object == nullptr) {
    return nullptr;
  }
  for (const Member& member : *object) {
    if (member.first == key) {
      return &member.second;
    }
  }
  return nullptr;
}

}  // namespace orvan::editor

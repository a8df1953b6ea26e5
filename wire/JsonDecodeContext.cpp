#include "orvan/wire/JsonDecodeContext.h"

namespace orvan::editor {

bool JsonDecodeContext::has(std::string_view key) const {
  for (std::size_t index = 0; index < keyCount_; ++index) {
    if (keys_[index] == key) {
      return (presentMask_ & (std::uint64_t{1} << index)) != 0;
    }
  }
  return false;
}

}  // namespace orvan::editor

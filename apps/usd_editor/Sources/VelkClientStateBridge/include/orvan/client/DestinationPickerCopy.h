#pragma once

#include <cstdint>

namespace orvan::client {

// The fixed words of the project and workspace pickers. Static NUL-terminated strings, so that
// the C boundary can hand them out as they are.
struct DestinationPickerCopy {
  const char* title;
  const char* subtitle;
  const char* search_prompt;
  const char* loading;
  const char* empty;
  const char* failure;
  const char* open_action;
  const char* current_badge;
  const char* retry_action;
  const char* cancel_action;
  const char* create_action;

  static constexpr std::int32_t kFieldCount = 11;

  // The text at `index` in declaration order; an index outside it gives the empty string.
  const char* field(std::int32_t index) const;
};

extern const DestinationPickerCopy kProjectPickerCopy;
extern const DestinationPickerCopy kWorkspacePickerCopy;

}  // namespace orvan::client

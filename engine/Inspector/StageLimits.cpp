#include "Inspector/StageLimits.h"

#include <charconv>
#include <limits>

namespace orvan::engine {

bool isStageLimitOption(std::string_view option) {
  return option == "--max-prims" || option == "--max-sites" || option == "--max-layer-bytes" ||
         option == "--max-output-bytes";
}

std::optional<std::string> setStageLimit(StageLimits& limits, std::string_view option,
                                         std::string_view value) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
  if (error != std::errc() || end != value.data() + value.size() || number == 0 ||
      number > std::numeric_limits<std::size_t>::max()) {
    return std::string(option) + " needs a whole number from 1 up, not '" + std::string(value) +
           "'";
  }
  if (option == "--max-prims") {
    limits.compose.maxPrims = static_cast<std::size_t>(number);
  } else if (option == "--max-sites") {
    limits.compose.maxSites = static_cast<std::size_t>(number);
  } else if (option == "--max-layer-bytes") {
    limits.compose.maxLayerBytes = number;
  } else if (option == "--max-output-bytes") {
    limits.maxOutputBytes = number;
  } else {
    return "unknown limit '" + std::string(option) + "'";
  }
  return std::nullopt;
}

}  // namespace orvan::engine

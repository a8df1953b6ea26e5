#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Inspector/StageInspector.h"
#include "UsdText/StageComposer.h"

namespace orvan::engine {

// The budgets of reading, composing and inspecting one stage, as the inspector helper and the
// project server take them on their command lines.
struct StageLimits {
  ComposeLimits compose = {};
  std::uint64_t maxOutputBytes = kDefaultMaxInspectionBytes;
};

inline constexpr const char* kStageLimitsUsage =
    "[--max-prims N] [--max-sites N] [--max-layer-bytes N] [--max-output-bytes N]";

bool isStageLimitOption(std::string_view option);

// Sets the limit `option` names from `value`, a whole number from 1 up; the reason when it is not.
std::optional<std::string> setStageLimit(StageLimits& limits, std::string_view option,
                                         std::string_view value);

}  // namespace orvan::engine

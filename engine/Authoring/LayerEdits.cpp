#include "Authoring/PlanContext.h"

namespace orvan::engine {

Refusal planLayerOperation(PlanContext&, const EditOperation&, std::string&) {
  return std::string("Layer edits are not supported by this server yet");
}

}  // namespace orvan::engine

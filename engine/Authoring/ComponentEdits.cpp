#include "Authoring/PlanContext.h"

namespace orvan::engine {

Refusal planComponentOperation(PlanContext&, const EditOperation&, std::string&) {
  return std::string("Component edits are not supported by this server yet");
}

}  // namespace orvan::engine

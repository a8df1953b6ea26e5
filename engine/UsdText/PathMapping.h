#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace orvan::engine {

// Maps paths of an arc's target namespace into the namespace the arc was authored in, then on
// outwards (through `outer`) until the stage's own namespace: a reference from </World/Lamp> to
// </Model> maps </Model/Bulb> to </World/Lamp/Bulb>.
struct PathMapping {
  std::string from;
  std::string to;
  std::shared_ptr<const PathMapping> outer;
};

// Whether `path` is `prefix` or lies below it (a child, a property or a variant selection).
bool hasPrefixPath(std::string_view path, std::string_view prefix);
// Turns a target written relative to a prim ("../Looks/Red", ".size", "Child") into an absolute
// path.
std::string absolutePath(std::string_view target, std::string_view anchor);
// A target authored at `anchor` (in the namespace of the mapping's innermost arc) in stage
// namespace. Targets outside what an arc brings in are kept as written.
std::string mapTargetToStage(std::string_view target, std::string_view anchor,
                             const PathMapping* mapping);

}  // namespace orvan::engine

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace orvan::engine {

struct GeneratedSceneShape {
  std::size_t entitiesPerCluster = 50;
  std::size_t clustersPerZone = 20;
  std::uint64_t seed = 1;
};

// A synthetic scene of exactly `primCount` prims (at least 1): "/World" holding zones, zones
// holding clusters, clusters holding shape entities placed, coloured and sized the way the editor
// writes them. Used by benchmarks, tests and `orvan_project_tool generate`.
std::string generateScene(std::size_t primCount, const GeneratedSceneShape& shape = {});

}  // namespace orvan::engine

#pragma once

#include <sys/resource.h>

#include <cstddef>
#include <map>
#include <string>

#include "UsdText/SceneGenerator.h"

namespace orvan::engine {

// The text of a generated scene of `prims` prims, made once per size for the whole run.
inline const std::string& sceneText(std::size_t prims) {
  static std::map<std::size_t, std::string> scenes;
  auto found = scenes.find(prims);
  if (found == scenes.end())
    found = scenes.emplace(prims, generateScene(prims)).first;
  return found->second;
}

// The process's peak resident memory so far.
inline double peakRssMegabytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

}  // namespace orvan::engine

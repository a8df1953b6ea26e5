#pragma once

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include "orvan/wire/JsonFields.h"

// The answer of GET /api/layers: every layer a scene uses, as text, at one revision, so that a
// reader can compose the scene itself (the viewport's runtime does). `root` is the identifier of
// the root layer; references among the layers resolve against their identifiers.
namespace orvan::editor {

struct SceneLayerText {
  std::string identifier;  // the layer's absolute path on the server
  std::string text;

  bool operator==(const SceneLayerText&) const = default;
  static auto jsonFields() {
    using T = SceneLayerText;
    return std::tuple{json::required("identifier", &T::identifier),
                      json::required("text", &T::text)};
  }
};

struct SceneLayersResponse {
  std::uint64_t revision = 0;
  std::string root;
  std::vector<std::string> mutedLayers;
  std::vector<SceneLayerText> layers;

  bool operator==(const SceneLayersResponse&) const = default;
  static auto jsonFields() {
    using T = SceneLayersResponse;
    return std::tuple{json::required("revision", &T::revision), json::required("root", &T::root),
                      json::required("mutedLayers", &T::mutedLayers),
                      json::required("layers", &T::layers)};
  }
};

}  // namespace orvan::editor

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "orvan/wire/JsonFields.h"

// What the viewport client prints on its standard output, one object a line: frames, selection,
// gizmo transforms, status, drop targets and the free camera. The engine's client writes these
// keys and the editor's viewport host reads them, so both use this one definition. Only `type` is
// always present.
namespace orvan::editor {

struct ViewportClientLine {
  std::string type;
  std::optional<std::uint64_t> frameIndex = {};
  std::optional<std::uint32_t> surfaceId = {};
  std::optional<std::uint32_t> widthPx = {};
  std::optional<std::uint32_t> heightPx = {};
  std::optional<double> scaleFactor = {};
  std::optional<std::string> pixelFormat = {};
  std::optional<std::uint64_t> simulationCommandSerial = {};
  std::optional<std::string> message = {};
  std::optional<std::string> entityPath = {};
  std::optional<std::vector<std::string>> entityPaths = {};
  std::optional<std::string> propertyName = {};
  std::optional<std::vector<double>> values = {};
  std::optional<std::string> previewSessionId = {};
  std::optional<bool> final = {};
  std::optional<bool> duplicateRequested = {};
  std::optional<std::string> markers = {};
  std::optional<std::string> parentPath = {};
  std::optional<bool> valid = {};
  std::optional<std::vector<double>> translation = {};
  std::optional<std::vector<double>> surfacePosition = {};
  std::optional<std::vector<double>> surfaceNormal = {};
  std::optional<std::string> requestId = {};
  std::optional<double> targetX = {};
  std::optional<double> targetY = {};
  std::optional<double> targetZ = {};
  std::optional<double> yaw = {};
  std::optional<double> pitch = {};
  std::optional<double> distance = {};

  bool operator==(const ViewportClientLine&) const = default;
  static auto jsonFields() {
    using T = ViewportClientLine;
    return std::tuple{json::required("type", &T::type),
                      json::optional("frameIndex", &T::frameIndex),
                      json::optional("surfaceId", &T::surfaceId),
                      json::optional("widthPx", &T::widthPx),
                      json::optional("heightPx", &T::heightPx),
                      json::optional("scaleFactor", &T::scaleFactor),
                      json::optional("pixelFormat", &T::pixelFormat),
                      json::optional("simulationCommandSerial", &T::simulationCommandSerial),
                      json::optional("message", &T::message),
                      json::optional("entityPath", &T::entityPath),
                      json::optional("entityPaths", &T::entityPaths),
                      json::optional("propertyName", &T::propertyName),
                      json::optional("values", &T::values),
                      json::optional("previewSessionId", &T::previewSessionId),
                      json::optional("final", &T::final),
                      json::optional("duplicateRequested", &T::duplicateRequested),
                      json::optional("markers", &T::markers),
                      json::optional("parentPath", &T::parentPath),
                      json::optional("valid", &T::valid),
                      json::optional("translation", &T::translation),
                      json::optional("surfacePosition", &T::surfacePosition),
                      json::optional("surfaceNormal", &T::surfaceNormal),
                      json::optional("requestId", &T::requestId),
                      json::optional("targetX", &T::targetX),
                      json::optional("targetY", &T::targetY),
                      json::optional("targetZ", &T::targetZ),
                      json::optional("yaw", &T::yaw),
                      json::optional("pitch", &T::pitch),
                      json::optional("distance", &T::distance)};
  }
};

}  // namespace orvan::editor

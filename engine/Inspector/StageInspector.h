#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "UsdText/Stage.h"
#include "orvan/wire/records/StageInspection.h"

namespace orvan::engine {

// The largest inspection document written by default (4 GiB: a stage of a million generated
// prims takes about 3.2 GB).
inline constexpr std::uint64_t kDefaultMaxInspectionBytes = 4ull << 30;

// Raw attribute values of instance proxies that are arrays of more items than this are left out
// (see proxyValueLeftOut in StageInspector.cpp and engine/README.md).
inline constexpr std::uint32_t kProxyArrayItems = 16;

struct InspectOptions {
  // The layer that override marks are measured against, by identifier (absolute path), by path
  // relative to the scene's folder, or by file name. Empty: the layer the editor would pick by
  // itself, the first writable sublayer that is not muted, else the root layer.
  std::string activeLayer = {};
  // What `sceneUri` says; empty for the root layer's identifier.
  std::string sceneUri = {};
  // writeInspectionJson stops with an error once the document grows beyond this.
  std::uint64_t maxOutputBytes = kDefaultMaxInspectionBytes;
};

struct InspectResult {
  editor::StageInspection inspection;
  // Assets whose bounds are known: only these carry the bounds keys in the JSON form.
  std::vector<bool> assetBoundsKnown;
  std::optional<std::string> error;  // set when the options do not fit the stage

  bool ok() const { return !error.has_value(); }
};

// The editor's whole view of a composed stage (see engine/README.md, "The stage inspector").
InspectResult inspectStage(const Stage& stage, const InspectOptions& options = {});

// The JSON of an inspection as the editor decodes it. Assets without known bounds leave out both
// bounds keys, which is how the editor tells real bounds from its defaults.
std::string encodeInspection(const InspectResult& result);

// Receives the JSON text piece by piece, in order; false stops the writing.
using JsonSink = std::function<bool(std::string_view)>;

// The same document as encodeInspection(inspectStage(...)), handed to `sink` prim by prim without
// holding the whole inspection as records or as one text: what the helper prints. Returns the
// reason when the options do not fit the stage, the sink refused a piece, or the document grew
// beyond `options.maxOutputBytes` (what was handed over by then is to be thrown away).
std::optional<std::string> writeInspectionJson(const Stage& stage, const InspectOptions& options,
                                               const JsonSink& sink);
// The same, appended to a string.
std::optional<std::string> writeInspectionJson(const Stage& stage, const InspectOptions& options,
                                               std::string& out);

}  // namespace orvan::engine

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "orvan/wire/JsonFields.h"
#include "orvan/wire/records/ProjectRecords.h"

// An asset row of the project, as the project server lists it, with the class its descriptor
// gives it.
namespace orvan::editor {

// One setting of an asset class, with where its value comes from.
struct ProjectAssetDescriptorSetting {
  std::string name = {};
  std::string type = {};
  std::string value = {};
  bool authoredLocally = false;
  std::string strongestLayerIdentifier = {};
  std::string inheritedFromIdentifier = {};

  bool operator==(const ProjectAssetDescriptorSetting&) const = default;
  static auto jsonFields() {
    using T = ProjectAssetDescriptorSetting;
    return std::tuple{json::required("name", &T::name),
                      json::required("type", &T::type),
                      json::required("value", &T::value),
                      json::required("authoredLocally", &T::authoredLocally),
                      json::required("strongestLayerIdentifier", &T::strongestLayerIdentifier),
                      json::required("inheritedFromIdentifier", &T::inheritedFromIdentifier)};
  }
};

// Something the server found wrong with a descriptor; the words are the server's.
struct ProjectAssetDescriptorDiagnostic {
  std::string message = {};
  std::optional<std::string> severity = {};
  std::optional<std::string> property = {};

  bool operator==(const ProjectAssetDescriptorDiagnostic&) const = default;
  static auto jsonFields() {
    using T = ProjectAssetDescriptorDiagnostic;
    return std::tuple{json::required("message", &T::message),
                      json::optional("severity", &T::severity),
                      json::optional("property", &T::property)};
  }
};

// The class of an asset: its place in the inheritance tree, its source and its settings.
struct ProjectAssetDescriptorInfo {
  std::string identifier = {};
  std::string uri = {};
  std::string assetType = {};
  bool abstract = false;
  bool runtimeEligible = false;
  std::string base = {};
  std::string baseIdentifier = {};
  std::vector<std::string> lineage = {};
  std::string source = {};
  std::optional<std::string> baseAssetPath = {};
  std::optional<std::string> sourceAssetPath = {};
  std::optional<bool> sourceAuthoredLocally = {};
  std::vector<ProjectAssetDescriptorSetting> settings = {};
  std::vector<ProjectAssetDescriptorDiagnostic> diagnostics = {};

  bool operator==(const ProjectAssetDescriptorInfo&) const = default;
  static auto jsonFields() {
    using T = ProjectAssetDescriptorInfo;
    return std::tuple{json::required("identifier", &T::identifier),
                      json::required("uri", &T::uri),
                      json::required("assetType", &T::assetType),
                      json::required("abstract", &T::abstract),
                      json::required("runtimeEligible", &T::runtimeEligible),
                      json::required("base", &T::base),
                      json::required("baseIdentifier", &T::baseIdentifier),
                      json::required("lineage", &T::lineage),
                      json::required("source", &T::source),
                      json::optional("baseAssetPath", &T::baseAssetPath),
                      json::optional("sourceAssetPath", &T::sourceAssetPath),
                      json::optional("sourceAuthoredLocally", &T::sourceAuthoredLocally),
                      json::required("settings", &T::settings),
                      json::required("diagnostics", &T::diagnostics)};
  }
};

// A row of the project pane. `path` is its identity.
struct ProjectAssetItem {
  std::string path = {};
  std::string name = {};
  std::string folder = {};
  std::string kind = {};
  std::optional<bool> cooked = {};
  std::optional<std::vector<SceneClientSummary>> sceneClients = {};
  std::optional<std::vector<double>> boundsCenter = {};
  std::optional<std::vector<double>> boundsDimensions = {};
  std::optional<std::uint64_t> runtimeAssetId = {};
  std::optional<std::string> assetPath = {};
  std::optional<std::uint64_t> contentHash = {};
  std::optional<std::string> contentUrl = {};
  std::optional<std::string> sourceGeneration = {};
  std::optional<ProjectAssetDescriptorInfo> descriptor = {};

  bool operator==(const ProjectAssetItem&) const = default;
  static auto jsonFields() {
    using T = ProjectAssetItem;
    return std::tuple{json::required("path", &T::path),
                      json::required("name", &T::name),
                      json::required("folder", &T::folder),
                      json::required("kind", &T::kind),
                      json::optional("cooked", &T::cooked),
                      json::optional("sceneClients", &T::sceneClients),
                      json::optional("boundsCenter", &T::boundsCenter),
                      json::optional("boundsDimensions", &T::boundsDimensions),
                      json::optional("runtimeAssetId", &T::runtimeAssetId),
                      json::optional("assetPath", &T::assetPath),
                      json::optional("contentHash", &T::contentHash),
                      json::optional("contentUrl", &T::contentUrl),
                      json::optional("sourceGeneration", &T::sourceGeneration),
                      json::optional("descriptor", &T::descriptor)};
  }
};

}  // namespace orvan::editor

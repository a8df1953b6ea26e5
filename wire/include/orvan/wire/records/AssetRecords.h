#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "orvan/wire/JsonFields.h"

// The project server's answers about single assets: previews and the changes made to asset
// files (upload, replace, duplicate, delete, new files, class settings).
namespace orvan::editor {

// A preview, or why there is none yet. While the server still renders it, `processing` is true
// and `retryAfterMs` says when to ask again.
struct AssetPreviewResponse {
  std::optional<bool> accepted = {};
  std::optional<bool> processing = {};
  std::optional<std::int64_t> retryAfterMs = {};
  std::optional<bool> unavailable = {};
  std::optional<std::string> reason = {};
  std::optional<std::string> contentUrl = {};
  std::optional<std::string> contentType = {};
  std::optional<std::string> message = {};
  std::optional<std::vector<double>> averageColor = {};
  std::optional<double> aspect = {};

  bool operator==(const AssetPreviewResponse&) const = default;
  static auto jsonFields() {
    using T = AssetPreviewResponse;
    return std::tuple{json::optional("accepted", &T::accepted),
                      json::optional("processing", &T::processing),
                      json::optional("retryAfterMs", &T::retryAfterMs),
                      json::optional("unavailable", &T::unavailable),
                      json::optional("reason", &T::reason),
                      json::optional("contentUrl", &T::contentUrl),
                      json::optional("contentType", &T::contentType),
                      json::optional("message", &T::message),
                      json::optional("averageColor", &T::averageColor),
                      json::optional("aspect", &T::aspect)};
  }
};

// The answer of every change to an asset file. `pending` says that the server accepted the file
// but is still processing it.
struct HostedAssetUploadResponse {
  bool accepted = false;
  std::uint64_t revision = 0;
  std::string message = {};
  std::optional<std::string> path = {};
  std::optional<std::string> primPath = {};
  std::optional<std::string> name = {};
  std::optional<std::string> folder = {};
  std::optional<std::string> kind = {};
  std::optional<std::string> sourceURI = {};
  std::optional<std::string> descriptorPath = {};
  std::optional<std::string> assetName = {};
  std::optional<bool> pending = {};

  bool operator==(const HostedAssetUploadResponse&) const = default;
  static auto jsonFields() {
    using T = HostedAssetUploadResponse;
    return std::tuple{json::required("accepted", &T::accepted),
                      json::required("revision", &T::revision),
                      json::required("message", &T::message),
                      json::optional("path", &T::path),
                      json::optional("primPath", &T::primPath),
                      json::optional("name", &T::name),
                      json::optional("folder", &T::folder),
                      json::optional("kind", &T::kind),
                      json::optional("sourceURI", &T::sourceURI),
                      json::optional("descriptorPath", &T::descriptorPath),
                      json::optional("assetName", &T::assetName),
                      json::optional("pending", &T::pending)};
  }
};

}  // namespace orvan::editor

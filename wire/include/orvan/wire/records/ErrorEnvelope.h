#pragma once

#include <optional>
#include <string>
#include <tuple>

#include "orvan/wire/JsonFields.h"

// What the project server sends instead of a record when a request fails. The connection issue
// classifier reads it; it lives with the other wire records so that the reference engine writes
// the same keys the editor reads.
namespace orvan::editor {

// The project a failed answer was about, as the server's error envelope names it.
struct VelkConnectionProject {
  std::optional<std::string> id = {};
  std::optional<std::string> name = {};
  std::optional<bool> accessible = {};
  std::optional<std::string> requestStatus = {};

  bool operator==(const VelkConnectionProject&) const = default;
  static auto jsonFields() {
    using T = VelkConnectionProject;
    return std::tuple{json::optional("id", &T::id), json::optional("name", &T::name),
                      json::optional("accessible", &T::accessible),
                      json::optional("requestStatus", &T::requestStatus)};
  }
};

// The body of a failed answer. `accepted` false with a `code` is a refusal even under a success
// status; every key may be missing.
struct VelkErrorEnvelope {
  std::optional<bool> accepted = {};
  std::optional<std::string> code = {};
  std::optional<std::string> message = {};
  std::optional<VelkConnectionProject> project = {};

  bool operator==(const VelkErrorEnvelope&) const = default;
  static auto jsonFields() {
    using T = VelkErrorEnvelope;
    return std::tuple{json::optional("accepted", &T::accepted), json::optional("code", &T::code),
                      json::optional("message", &T::message),
                      json::optional("project", &T::project)};
  }
};

// The little that the project endpoint's failures are read for: the code, for the log.
struct VelkErrorBody {
  std::optional<std::string> code = {};

  bool operator==(const VelkErrorBody&) const = default;
  static auto jsonFields() { return std::tuple{json::optional("code", &VelkErrorBody::code)}; }
};

}  // namespace orvan::editor

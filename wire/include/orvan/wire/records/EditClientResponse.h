#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "orvan/wire/JsonFields.h"

namespace orvan::editor {

// The identity the server gave to a prim that an operation created.
struct EditClientCreatedPrim {
  std::string path;
  std::uint64_t entityId = 0;

  bool operator==(const EditClientCreatedPrim&) const = default;
  static auto jsonFields() {
    using T = EditClientCreatedPrim;
    return std::tuple{json::required("path", &T::path), json::required("entityId", &T::entityId)};
  }
};

// The edit helper's answer to one command, one JSON object per line.
struct EditClientResponse {
  bool accepted = false;
  std::uint64_t revision = 0;
  std::string message;
  std::optional<std::vector<EditClientCreatedPrim>> createdPrims;

  bool operator==(const EditClientResponse&) const = default;
  static auto jsonFields() {
    using T = EditClientResponse;
    return std::tuple{
        json::required("accepted", &T::accepted), json::required("revision", &T::revision),
        json::required("message", &T::message), json::optional("createdPrims", &T::createdPrims)};
  }
};

}  // namespace orvan::editor

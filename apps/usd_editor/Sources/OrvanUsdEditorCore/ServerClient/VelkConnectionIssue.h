#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "orvan/wire/records/ErrorEnvelope.h"

namespace orvan::editor {

// What a button of a connection banner or sheet does. The numbers are the client core's.
enum class VelkConnectionAction : std::int32_t {
  none = 0,
  login = 1,
  retry = 2,
  requestAccess = 3,
  chooseProject = 4,
};

// A failure in talking to the project server as the user sees it: one fixed state of the client
// core with its words and actions, plus the project concerned and a diagnostic for logs.
struct VelkConnectionIssue {
  std::int32_t kind = 0;
  std::string code;
  std::string icon;
  std::string title;
  std::string message;
  std::string primaryLabel;
  VelkConnectionAction primaryAction = VelkConnectionAction::none;
  std::string secondaryLabel;
  VelkConnectionAction secondaryAction = VelkConnectionAction::none;
  bool retryable = false;
  bool blocksProject = false;
  std::optional<VelkConnectionProject> project;
  std::string diagnostic;  // for logs and details, never shown as a title

  bool operator==(const VelkConnectionIssue&) const = default;

  // The issue for an HTTP status, the server's error code and whether the network failed. An
  // access refusal names the project when the server told which, and says so when access has
  // already been requested.
  static VelkConnectionIssue classify(std::int32_t statusCode, std::optional<std::string_view> code,
                                      bool networkError,
                                      std::optional<VelkConnectionProject> project,
                                      std::string diagnostic);
};

}  // namespace orvan::editor

#pragma once

#include <string>
#include <utility>

namespace orvan::editor {

// Why a server call of the prompt bar failed.
struct AgentPromptError {
  enum class Kind {
    // The server wants a sign-in. `tokenWasSent` tells a rejected session from a missing one.
    unauthorized,
    // The server refused; `text` is its message or "Velk returned HTTP <status>.".
    server,
    // A success status whose body is not the expected record.
    invalidResponse,
    // The request never got an answer (no connection, time-out); `text` is the transport's words.
    network,
  };

  Kind kind = Kind::invalidResponse;
  bool tokenWasSent = false;
  std::string text;

  static AgentPromptError unauthorized(bool tokenWasSent) {
    return {Kind::unauthorized, tokenWasSent, {}};
  }
  static AgentPromptError server(std::string text) {
    return {Kind::server, false, std::move(text)};
  }
  static AgentPromptError invalidResponse() { return {Kind::invalidResponse, false, {}}; }
  static AgentPromptError network(std::string text) {
    return {Kind::network, false, std::move(text)};
  }

  bool operator==(const AgentPromptError&) const = default;
};

// The sentence the bar shows for a failure.
std::string friendlyMessage(const AgentPromptError& error);

}  // namespace orvan::editor

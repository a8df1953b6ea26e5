#include "Intelligence/AgentPromptError.h"

namespace orvan::editor {

std::string friendlyMessage(const AgentPromptError& error) {
  switch (error.kind) {
    case AgentPromptError::Kind::unauthorized:
      return "Sign in to Velk to use Intelligence.";
    case AgentPromptError::Kind::network:
      return "Check the connection and try again.";
    case AgentPromptError::Kind::server:
      return error.text;
    case AgentPromptError::Kind::invalidResponse:
      return "Velk sent an answer the editor could not read.";
  }
  return error.text;
}

}  // namespace orvan::editor

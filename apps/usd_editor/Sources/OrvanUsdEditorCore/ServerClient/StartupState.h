#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Foundation/Observable.h"
#include "ServerClient/VelkConnectionIssue.h"

namespace orvan::editor {

// What start-up has learnt from the server so far: whether a project is resolved, whether it
// answered, and the issue the user sees as a sheet at start or as a banner later.
struct StartupState {
  Observable<bool> initialProjectResolved{false};
  bool initialProjectResponsive = false;
  std::string initialProjectError;
  bool initialProjectNeedsSignIn = false;
  std::uint64_t initialProjectResolutionGeneration = 0;
  bool initialStageLoadInFlight = false;
  Observable<std::optional<VelkConnectionIssue>> connectionIssue;

  // Shows an issue worth showing (one that can be retried or blocks the project) and notes when
  // it asks for sign-in.
  void registerConnectionIssue(const VelkConnectionIssue& issue) {
    if (issue.retryable || issue.blocksProject)
      connectionIssue.set(issue);
    if (issue.primaryAction == VelkConnectionAction::login)
      initialProjectNeedsSignIn = true;
  }
};

}  // namespace orvan::editor

#pragma once

#include <functional>
#include <optional>
#include <string>

#include "Foundation/Executors.h"
#include "Foundation/Observable.h"
#include "Foundation/Task.h"
#include "Launch/EditorConfiguration.h"
#include "Launch/EditorScope.h"
#include "Presentation/DocumentPublisher.h"
#include "ServerClient/ProjectDataFeed.h"
#include "ServerClient/ServerSession.h"
#include "ServerClient/StageRefresher.h"
#include "ServerClient/StartupState.h"
#include "orvan/wire/URLComponents.h"
#include "orvan/wire/records/AccountRecords.h"

namespace orvan::editor {

class SecretStore;

// A sign-in callback that did not answer a sign-in this editor started for that server. It is
// held, and applied only when the user confirms it.
struct SignInCallbackConfirmation {
  std::string callbackURL;
  // The server the editor talks to now, and the one the callback would sign in to.
  std::string currentServer;
  std::string callbackServer;
  std::string title;
  std::string message;

  bool operator==(const SignInCallbackConfirmation&) const = default;
};

// The session with the project server: web sign-in through the browser and its callback link,
// sign-out, the server refusing the session, and the account behind the token.
class AccountSession {
 public:
  struct Context {
    MainExecutor& main;
    SecretStore& secrets;
    // Opens an address in the user's browser; false when no browser could be asked.
    const std::function<bool(const std::string&)>& openURL;
    const EditorConfiguration& configuration;
    EditorScope& scope;
    StartupState& startup;
    ServerSession& server;
    StageRefresher& stageRefresher;
    ProjectDataFeed& projectData;
    DocumentPublisher& documents;
    Observable<std::string>& status;
  };
  struct Hooks {
    // A sign-in was applied: the project list and start-up run again.
    std::function<void()> signedIn = [] {};
    // The user signed out: the project list is forgotten.
    std::function<void()> signedOut = [] {};
    // The server refused the session: what is loading for it stops.
    std::function<void()> sessionEnded = [] {};
    // The account named a colour (as "#rrggbb" text, unchecked), or a whole identity, for this
    // user.
    std::function<void(const std::string& color)> userColorChosen = [](const std::string&) {};
    std::function<void(std::optional<std::string> name, std::optional<std::string> id,
                       std::optional<std::string> color, bool syncRemote)>
        userIdentified = [](auto, auto, auto, bool) {};
  };

  explicit AccountSession(Context context) : context_(context) {}
  AccountSession(const AccountSession&) = delete;
  AccountSession& operator=(const AccountSession&) = delete;

  Hooks hooks;
  std::string velkAuthEmail;
  std::string velkAuthDisplayName;
  // The server of the sign-in this editor opened in the browser and still waits for.
  std::optional<std::string> pendingSignInServer;
  // A callback held for the user's decision; the window asks while it is set.
  Observable<std::optional<SignInCallbackConfirmation>> callbackAwaitingConfirmation;

  // Reads the session of the current server from the secret store.
  void loadSessionToken();
  bool isVelkSignedIn() const;
  // The account as the profile button names it: display name, email, or whether signed in.
  std::string velkAccountLabel() const;
  // Opens the server's sign-in page in the browser; its answer comes back as a callback link.
  void signInToVelk();
  // Forgets the session; the open stage stays until a request is refused.
  void signOutOfVelk();
  // A "velk://auth-callback" link. One that answers this editor's pending sign-in for the same
  // server is applied at once; any other is held for confirmation and logged.
  void handleVelkAuthCallback(const URLComponents& callback);
  void confirmSignInCallback();
  void declineSignInCallback();
  // The server refused the session: forget it, drop every answer in flight and ask for sign-in.
  // A refusal of an older session than the present one (`expectedSessionToken`) changes nothing.
  void requireVelkSignIn(std::optional<std::string> expectedSessionToken = std::nullopt);
  // Asks the server who the session belongs to and takes the account's name and colour.
  void refreshCurrentVelkProfile();
  void applyVelkMeResponse(const VelkMeResponse& response);

 private:
  void applyVelkAuthCallback(const URLComponents& callback);
  bool answersPendingSignIn(const std::string& callbackServer) const;

  Context context_;
  LifetimeToken lifetime_;
  TaskSlot profileTask_;
};

}  // namespace orvan::editor

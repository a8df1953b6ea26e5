// The session with the project server: web sign-in through the browser and its callback link,
// sign-out, the server refusing the session, and the account behind the token.
#include "ProjectsAndWorkspaces/AccountSession.h"

#include <spdlog/spdlog.h>

#include "ProjectsAndWorkspaces/VelkSessionTokenStore.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/Text.h"

namespace orvan::editor {

namespace {

constexpr std::string_view kSignInPath = "/auth/native/start";
constexpr std::string_view kSignInCallback = "velk://auth-callback";

// The first item of `name` that has a value; an item without one counts as absent.
std::optional<std::string> firstQueryValue(const URLComponents& url, std::string_view name) {
  for (const URLQueryItem& item : url.queryItems) {
    if (item.name != name)
      continue;
    return item.value;
  }
  return std::nullopt;
}

// Two addresses of one server: scheme, host and port decide, as they do for stored sessions.
bool sameServer(std::string_view left, std::string_view right) {
  return VelkSessionTokenStore::normalizedAccount(left) ==
         VelkSessionTokenStore::normalizedAccount(right);
}

SignInCallbackConfirmation confirmationFor(std::string callbackURL, std::string currentServer,
                                           std::string callbackServer, bool signInPending) {
  SignInCallbackConfirmation held{std::move(callbackURL), std::move(currentServer),
                                  std::move(callbackServer), "Apply Sign-In Link?", ""};
  const std::string current = held.currentServer.empty() ? "no server" : held.currentServer;
  held.message = "A sign-in link for " + held.callbackServer + " reached the editor, but " +
                 (signInPending ? "the sign-in started here was for another server"
                                : "no sign-in was started here") +
                 ". The editor is connected to " + current +
                 ". Apply the link only if you signed in to " + held.callbackServer + " yourself.";
  return held;
}

}  // namespace

void AccountSession::loadSessionToken() {
  context_.server.velkSessionToken =
      VelkSessionTokenStore::load(context_.secrets, context_.scope.projectServerURL());
}

bool AccountSession::isVelkSignedIn() const {
  return !isBlank(context_.server.velkSessionToken);
}

std::string AccountSession::velkAccountLabel() const {
  if (!isBlank(velkAuthDisplayName))
    return trimmed(velkAuthDisplayName);
  if (!isBlank(velkAuthEmail))
    return trimmed(velkAuthEmail);
  return isVelkSignedIn() ? "Signed in" : "Not signed in";
}

void AccountSession::signInToVelk() {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  const std::string server = context_.scope.projectServerURL();
  std::optional<URLComponents> url = URLComponents::parse(server);
  if (!url) {
    context_.status.set("Invalid Velk server URL");
    return;
  }
  url->path = std::string(kSignInPath);
  url->queryItems = {{"clientId", context_.configuration.clientId},
                     {"callback", std::string(kSignInCallback)}};
  url->fragment.reset();
  const std::optional<std::string> address = url->build();
  if (!address) {
    context_.status.set("Invalid Velk sign-in URL");
    return;
  }
  // There is no in-editor web session on this platform: the sign-in always runs in the user's
  // browser, and its result comes back only as a "velk://auth-callback" link. What is held is
  // which server the answer may come from; a second sign-in opens the browser again.
  if (context_.openURL && context_.openURL(*address)) {
    pendingSignInServer = server;
    context_.status.set("Opening Velk sign-in in browser");
  } else {
    spdlog::warn("no browser could be asked to open the sign-in page");
    context_.status.set("Could not open a browser for Velk sign-in");
  }
}

bool AccountSession::answersPendingSignIn(const std::string& callbackServer) const {
  return pendingSignInServer && sameServer(*pendingSignInServer, callbackServer);
}

void AccountSession::handleVelkAuthCallback(const URLComponents& callback) {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  const std::string current = trimmed(context_.scope.projectServerURL());
  const std::optional<std::string> named = firstQueryValue(callback, "server");
  const std::string callbackServer = named && !isBlank(*named) ? trimmed(*named) : current;
  if (answersPendingSignIn(callbackServer)) {
    pendingSignInServer.reset();
    applyVelkAuthCallback(callback);
    return;
  }
  // A link that answers no sign-in of ours could come from anyone: a page that wants the editor
  // on its own server, or one that wants the session dropped. The user decides.
  spdlog::warn("sign-in callback for {} held for confirmation: {} (editor server {})",
               callbackServer,
               pendingSignInServer ? "the pending sign-in was for " + *pendingSignInServer
                                   : std::string("no sign-in pending"),
               current);
  const std::optional<std::string> url = callback.build();
  callbackAwaitingConfirmation.set(
      confirmationFor(url.value_or(""), current, callbackServer, pendingSignInServer.has_value()));
}

void AccountSession::confirmSignInCallback() {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  const std::optional<SignInCallbackConfirmation> held = callbackAwaitingConfirmation.get();
  if (!held)
    return;
  callbackAwaitingConfirmation.set(std::nullopt);
  const std::optional<URLComponents> callback = URLComponents::parse(held->callbackURL);
  if (!callback)
    return;
  spdlog::info("sign-in callback for {} applied after confirmation", held->callbackServer);
  pendingSignInServer.reset();
  applyVelkAuthCallback(*callback);
}

void AccountSession::declineSignInCallback() {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  const std::optional<SignInCallbackConfirmation> held = callbackAwaitingConfirmation.get();
  if (!held)
    return;
  callbackAwaitingConfirmation.set(std::nullopt);
  spdlog::info("sign-in callback for {} declined", held->callbackServer);
}

void AccountSession::applyVelkAuthCallback(const URLComponents& callback) {
  StartupState& startup = context_.startup;
  ServerSession& server = context_.server;
  const std::optional<std::string> token = firstQueryValue(callback, "token");
  if (!token || token->empty()) {
    VelkSessionTokenStore::clear(context_.secrets, context_.scope.projectServerURL());
    server.velkSessionToken.clear();
    startup.initialProjectNeedsSignIn = false;
    startup.connectionIssue.set(
        VelkConnectionIssue::classify(0, "request_failed", false, std::nullopt,
                                      "Velk sign-in callback was missing a session token"));
    startup.initialProjectError = "Sign-in did not complete. Try again when you are ready.";
    context_.status.set(startup.initialProjectError);
    return;
  }
  if (const auto named = firstQueryValue(callback, "server"); named && !isBlank(*named)) {
    context_.scope.current.update([&](SharedClientScope& scope) { scope.server = *named; });
    if (isBlank(server.addresses.webEditorURL))
      server.addresses.webEditorURL = *named + "/editor";
  }
  server.velkSessionToken = *token;
  velkAuthEmail = firstQueryValue(callback, "email").value_or("");
  velkAuthDisplayName = firstQueryValue(callback, "displayName").value_or("");
  if (const auto color = firstQueryValue(callback, "color"))
    hooks.userColorChosen(*color);
  const std::optional<std::string> callbackUserId = firstQueryValue(callback, "userId");
  if (!isBlank(velkAuthDisplayName) && callbackUserId && !isBlank(*callbackUserId)) {
    hooks.userIdentified(velkAuthDisplayName, *callbackUserId, std::nullopt, true);
  }
  // Filed under the server that issued it, which the callback may just have named.
  VelkSessionTokenStore::save(context_.secrets, server.velkSessionToken,
                              context_.scope.projectServerURL());
  startup.initialProjectNeedsSignIn = false;
  startup.initialProjectError.clear();
  startup.connectionIssue.set(std::nullopt);
  context_.status.set("Signed in to Velk");
  hooks.signedIn();
}

void AccountSession::signOutOfVelk() {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  VelkSessionTokenStore::clear(context_.secrets, context_.scope.projectServerURL());
  context_.server.velkSessionToken.clear();
  velkAuthEmail.clear();
  velkAuthDisplayName.clear();
  pendingSignInServer.reset();
  hooks.signedOut();
  context_.documents.projectAssets.clear();
  context_.documents.scheduleClientDocumentRebuild(false, true);
  context_.projectData.projectAssetCatalogStore.removeAll();
  // The open stage stays: the user keeps looking at it until a request is refused.
  context_.status.set("Signed out of Velk");
}

void AccountSession::requireVelkSignIn(std::optional<std::string> expectedSessionToken) {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  ServerSession& server = context_.server;
  // A refusal of an older session must not throw away a token obtained since.
  if (expectedSessionToken && *expectedSessionToken != server.velkSessionToken)
    return;
  VelkSessionTokenStore::clear(context_.secrets, context_.scope.projectServerURL());
  server.velkSessionToken.clear();
  velkAuthEmail.clear();
  velkAuthDisplayName.clear();
  // Every answer still on its way belongs to the ended session.
  StartupState& startup = context_.startup;
  context_.stageRefresher.dropAnswersInFlight();
  ++context_.projectData.projectDataGeneration;
  ++startup.initialProjectResolutionGeneration;
  EditorScope& scope = context_.scope;
  scope.projectConnectionInFlight = false;
  context_.stageRefresher.stageRefreshInFlight = false;
  scope.projectTransitionMessage.clear();
  scope.seamlessWorkspaceTransitionInFlight = false;
  hooks.sessionEnded();
  startup.initialProjectResolved.set(false);
  startup.initialProjectResponsive = false;
  startup.initialProjectError.clear();
  startup.initialProjectNeedsSignIn = true;
  startup.connectionIssue.set(
      VelkConnectionIssue::classify(401, "login_required", false, std::nullopt, ""));
  context_.status.set("Sign in to continue.");
}

void AccountSession::refreshCurrentVelkProfile() {
  if (!isVelkSignedIn())
    return;
  const auto url = URLComponents::parse(context_.scope.projectServerURL());
  if (!url)
    return;
  URLComponents me = *url;
  me.path = "/api/me";
  me.queryItems.clear();
  const std::optional<std::string> address = me.build();
  if (!address)
    return;
  const std::string token = context_.server.velkSessionToken;
  const WeakLifetime weak = lifetime_.weak();
  // A failing profile check never raises a banner by itself: it ends quietly.
  profileTask_.replace(context_.server.authorizedData(
      *address, std::nullopt, false, [this, weak, token](RequestResult<HttpResponse> answer) {
        if (!weak.isAlive() || !answer.ok())
          return;
        if (answer->statusCode < 200 || answer->statusCode > 299)
          return;
        auto response = decodeJson<VelkMeResponse>(answer->body);
        if (!response.ok())
          return;
        if (response->authEnabled == true && response->authenticated != true) {
          requireVelkSignIn(token);
          return;
        }
        applyVelkMeResponse(*response);
      }));
}

void AccountSession::applyVelkMeResponse(const VelkMeResponse& response) {
  if (response.authenticated != true || !response.user)
    return;
  const VelkMeUser& user = *response.user;
  velkAuthEmail = user.email.value_or("");
  velkAuthDisplayName = user.displayName.value_or("");
  std::string name = "Velk User";
  for (const std::optional<std::string>* candidate : {&user.displayName, &user.email}) {
    if (*candidate && !isBlank(**candidate)) {
      name = trimmed(**candidate);
      break;
    }
  }
  if (name == "Velk User" && !isBlank(user.id))
    name = trimmed(user.id);
  hooks.userIdentified(name, user.id, user.color, false);
}

}  // namespace orvan::editor

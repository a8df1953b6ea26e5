// The session with the project server: web sign-in through the browser and its callback link,
// sign-out, the server refusing the session, and the account behind the token.
#include <spdlog/spdlog.h>

#include "Application/EditorModel.h"
#include "Application/UserDefaultsKeys.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/Text.h"
#include "orvan/wire/UrlComponents.h"
#include "Platform/PreferencesStore.h"
#include "ProjectsAndWorkspaces/VelkSessionTokenStore.h"

namespace orvan::editor {

namespace {

constexpr std::string_view kSignInPath = "/auth/native/start";
constexpr std::string_view kSignInCallback = "velk://auth-callback";

// The first item of `name` that has a value; an item without one counts as absent.
std::optional<std::string> firstQueryValue(const UrlComponents& url, std::string_view name) {
  for (const UrlQueryItem& item : url.queryItems) {
    if (item.name != name) continue;
    return item.value;
  }
  return std::nullopt;
}

}  // namespace

bool EditorModel::isVelkSignedIn() const { return !isBlank(velkSessionToken); }

std::string EditorModel::velkAccountLabel() const {
  if (!isBlank(velkAuthDisplayName)) return trimmed(velkAuthDisplayName);
  if (!isBlank(velkAuthEmail)) return trimmed(velkAuthEmail);
  return isVelkSignedIn() ? "Signed in" : "Not signed in";
}

void EditorModel::signInToVelk() {
  ORVAN_ASSERT_MAIN_THREAD(ports_.main);
  std::optional<UrlComponents> url = UrlComponents::parse(configuration.projectServerURL);
  if (!url) {
    status.set("Invalid Velk server URL");
    return;
  }
  url->path = std::string(kSignInPath);
  url->queryItems = {{"clientId", configuration.clientId}, {"callback", std::string(kSignInCallback)}};
  url->fragment.reset();
  const std::optional<std::string> address = url->build();
  if (!address) {
    status.set("Invalid Velk sign-in URL");
    return;
  }
  // There is no in-editor web session on this platform: the sign-in always runs in the user's
  // browser, and its result comes back only as a "velk://auth-callback" link. So nothing is held
  // open here, and a second sign-in opens the browser again.
  if (ports_.openURL && ports_.openURL(*address)) {
    status.set("Opening Velk sign-in in browser");
  } else {
    spdlog::warn("no browser could be asked to open the sign-in page");
    status.set("Could not open a browser for Velk sign-in");
  }
}

void EditorModel::handleIncomingURL(const std::string& url) {
  ORVAN_ASSERT_MAIN_THREAD(ports_.main);
  if (const std::optional<UrlComponents> parts = UrlComponents::parse(url)) {
    const std::string scheme = lowercased(parts->scheme);
    const std::string host = lowercased(parts->host);
    if (scheme == "velk" || scheme == "orvan") {
      if (host == "setup-agent") {
        spdlog::info("agent set-up links are not handled by this build");
        return;
      }
      if (host == "auth-callback") {
        handleVelkAuthCallback(*parts);
        return;
      }
    }
  }
  openProjectLink(url);
}

void EditorModel::openProjectLink(const std::string& url) {
  // Project links join with project switching; until then they are noted and left alone.
  (void)url;
  spdlog::info("project links are not opened by this build yet");
}

void EditorModel::handleVelkAuthCallback(const UrlComponents& callback) {
  const std::optional<std::string> token = firstQueryValue(callback, "token");
  if (!token || token->empty()) {
    VelkSessionTokenStore::clear(ports_.secrets, configuration.projectServerURL);
    velkSessionToken.clear();
    initialProjectNeedsSignIn = false;
    connectionIssue.set(VelkConnectionIssue::classify(0, "request_failed", false, std::nullopt,
                                                      "Velk sign-in callback was missing a session token"));
    initialProjectError = "Sign-in did not complete. Try again when you are ready.";
    status.set(initialProjectError);
    return;
  }
  if (const auto server = firstQueryValue(callback, "server"); server && !isBlank(*server)) {
    configuration.projectServerURL = *server;
    if (isBlank(configuration.webEditorURL)) configuration.webEditorURL = *server + "/editor";
  }
  velkSessionToken = *token;
  velkAuthEmail = firstQueryValue(callback, "email").value_or("");
  velkAuthDisplayName = firstQueryValue(callback, "displayName").value_or("");
  if (const auto color = firstQueryValue(callback, "color")) {
    if (const std::optional<std::string> parsed = colorFromHex(*color)) {
      userColor.set(*parsed);
      (void)ports_.preferences.setString(defaults::kUserColor, *parsed);
    }
  }
  const std::optional<std::string> callbackUserId = firstQueryValue(callback, "userId");
  if (!isBlank(velkAuthDisplayName) && callbackUserId && !isBlank(*callbackUserId)) {
    setUserIdentity(velkAuthDisplayName, *callbackUserId, userColor.get(), true);
  }
  // Filed under the server that issued it, which the callback may just have named.
  VelkSessionTokenStore::save(ports_.secrets, velkSessionToken, configuration.projectServerURL);
  initialProjectNeedsSignIn = false;
  initialProjectError.clear();
  connectionIssue.set(std::nullopt);
  status.set("Signed in to Velk");
  refreshHostedProjects();
  startInitialRefresh();
}

void EditorModel::signOutOfVelk() {
  ORVAN_ASSERT_MAIN_THREAD(ports_.main);
  VelkSessionTokenStore::clear(ports_.secrets, configuration.projectServerURL);
  velkSessionToken.clear();
  velkAuthEmail.clear();
  velkAuthDisplayName.clear();
  hostedProjects.clear();
  projectAssets.clear();
  scheduleClientDocumentRebuild(false, true);
  projectAssetCatalogStore.removeAll();
  // The open stage stays: the user keeps looking at it until a request is refused.
  status.set("Signed out of Velk");
}

void EditorModel::requireVelkSignIn(std::optional<std::string> expectedSessionToken) {
  ORVAN_ASSERT_MAIN_THREAD(ports_.main);
  // A refusal of an older session must not throw away a token obtained since.
  if (expectedSessionToken && *expectedSessionToken != velkSessionToken) return;
  VelkSessionTokenStore::clear(ports_.secrets, configuration.projectServerURL);
  velkSessionToken.clear();
  velkAuthEmail.clear();
  velkAuthDisplayName.clear();
  // Every answer still on its way belongs to the ended session.
  refreshTask_.cancel();
  ++refreshGeneration;
  ++projectDataGeneration;
  ++initialProjectResolutionGeneration;
  projectConnectionInFlight = false;
  stageRefreshInFlight = false;
  projectTransitionMessage.clear();
  seamlessWorkspaceTransitionInFlight = false;
  workspaceCatalogLoading = false;
  workspaceCatalogError = "Sign in to load workspaces.";
  initialProjectResolved.set(false);
  initialProjectResponsive = false;
  initialProjectError.clear();
  initialProjectNeedsSignIn = true;
  connectionIssue.set(VelkConnectionIssue::classify(401, "login_required", false, std::nullopt, ""));
  status.set("Sign in to continue.");
}

void EditorModel::refreshCurrentVelkProfile() {
  if (!isVelkSignedIn()) return;
  const auto url = UrlComponents::parse(configuration.projectServerURL);
  if (!url) return;
  UrlComponents me = *url;
  me.path = "/api/me";
  me.queryItems.clear();
  const std::optional<std::string> address = me.build();
  if (!address) return;
  const std::string token = velkSessionToken;
  const WeakLifetime weak = lifetime_.weak();
  // A failing profile check never raises a banner by itself: it ends quietly.
  profileTask_.replace(authorizedData(*address, std::nullopt, false,
                                      [this, weak, token](RequestResult<HttpResponse> answer) {
    if (!weak.isAlive() || !answer.ok()) return;
    if (answer->statusCode < 200 || answer->statusCode > 299) return;
    auto response = decodeJson<VelkMeResponse>(answer->body);
    if (!response.ok()) return;
    if (response->authEnabled == true && response->authenticated != true) {
      requireVelkSignIn(token);
      return;
    }
    applyVelkMeResponse(*response);
  }));
}

void EditorModel::applyVelkMeResponse(const VelkMeResponse& response) {
  if (response.authenticated != true || !response.user) return;
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
  if (name == "Velk User" && !isBlank(user.id)) name = trimmed(user.id);
  setUserIdentity(name, user.id, user.color, false);
}

}  // namespace orvan::editor

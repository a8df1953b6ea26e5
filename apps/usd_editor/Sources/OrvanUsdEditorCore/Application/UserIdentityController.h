#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Application/UserIdentity.h"
#include "Foundation/Executors.h"
#include "Foundation/Observable.h"
#include "orvan/wire/records/ProjectRecords.h"

namespace orvan::editor {

class PreferencesStore;

// Who this editor is to the other clients of a workspace: name, id and colour, kept between runs,
// and the profiles of the people it has met.
class UserIdentityController {
 public:
  struct Context {
    MainExecutor& main;
    PreferencesStore& preferences;
    const RandomBytes& randomBytes;
    // The account's full name on this machine, for a first start without a stored name.
    const std::function<std::string()>& accountFullName;
    // The id of a user without a stored one falls back to the client id.
    const std::string& clientId;
  };
  struct Hooks {
    // The identity changed: what was started under the old one (the edit helper's author, the
    // watcher's client) starts again.
    std::function<void()> identityChanged = [] {};
  };

  // Reads or makes the identity and stores it at once, so that this machine keeps it.
  explicit UserIdentityController(Context context);
  UserIdentityController(const UserIdentityController&) = delete;
  UserIdentityController& operator=(const UserIdentityController&) = delete;

  Hooks hooks;
  Observable<std::string> userName;
  Observable<std::string> userId;
  Observable<std::string> userColor;
  Observable<std::vector<UserProfileSummary>> userProfiles;

  void setUserIdentity(std::optional<std::string> name, std::optional<std::string> id,
                       std::optional<std::string> color, bool syncRemote);
  // A colour the account chose ("#rrggbb"); anything else is ignored.
  void applyAccountColor(const std::string& color);
  void applyUserProfiles(const std::vector<UserProfileSummary>& profiles);
  std::string userInitial() const;
  std::optional<UserProfileSummary> normalizedUserProfile(UserProfileSummary profile) const;
  std::vector<UserProfileSummary> storedUserProfiles() const;
  void persistUserProfiles(const std::vector<UserProfileSummary>& profiles);

 private:
  void initializeIdentity();

  Context context_;
};

}  // namespace orvan::editor

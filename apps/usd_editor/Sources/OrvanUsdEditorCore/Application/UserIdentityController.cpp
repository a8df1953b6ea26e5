// User identity and profiles: who this editor is to the other clients of a workspace.
#include <algorithm>

#include "Application/UserIdentityController.h"
#include "Launch/UserDefaultsKeys.h"
#include "Platform/PreferencesStore.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/JsonEncoder.h"
#include "orvan/wire/Text.h"

namespace orvan::editor {

UserIdentityController::UserIdentityController(Context context) : context_(context) {
  initializeIdentity();
}

namespace {

bool profileOrder(const UserProfileSummary& left, const UserProfileSummary& right) {
  return left.id < right.id;
}

}  // namespace

std::optional<UserProfileSummary> UserIdentityController::normalizedUserProfile(
    UserProfileSummary profile) const {
  profile.id = sanitizedUserId(profile.id, "");
  if (profile.id.empty())
    return std::nullopt;
  profile.color = normalizedUserColor(profile.color, context_.randomBytes);
  return profile;
}

// Normalised, first of every id kept.
static std::vector<UserProfileSummary> uniqueNormalizedProfiles(
    const UserIdentityController& identity, const std::vector<UserProfileSummary>& profiles) {
  std::vector<UserProfileSummary> unique;
  for (const UserProfileSummary& profile : profiles) {
    auto normalized = identity.normalizedUserProfile(profile);
    if (!normalized)
      continue;
    const bool seen =
        std::any_of(unique.begin(), unique.end(),
                    [&](const UserProfileSummary& kept) { return kept.id == normalized->id; });
    if (!seen)
      unique.push_back(std::move(*normalized));
  }
  return unique;
}

std::vector<UserProfileSummary> UserIdentityController::storedUserProfiles() const {
  const auto data = context_.preferences.data(defaults::kUserProfiles);
  if (!data)
    return {};
  auto decoded = decodeJson<std::vector<UserProfileSummary>>(*data);
  if (!decoded.ok())
    return {};
  return uniqueNormalizedProfiles(*this, *decoded);
}

void UserIdentityController::persistUserProfiles(const std::vector<UserProfileSummary>& profiles) {
  (void)context_.preferences.setData(defaults::kUserProfiles,
                                     encodeJson(uniqueNormalizedProfiles(*this, profiles)));
}

void UserIdentityController::initializeIdentity() {
  PreferencesStore& preferences = context_.preferences;
  std::string name = trimmed(preferences.string(defaults::kUserName).value_or(""));
  if (name.empty())
    name = trimmed(context_.accountFullName());
  if (name.empty())
    name = std::string(kDefaultUserName);

  const auto storedId = preferences.string(defaults::kUserId);
  const std::string id = sanitizedUserId(
      storedId.value_or(makeInternalUserId("user", context_.randomBytes)), context_.clientId);
  const std::string color =
      normalizedUserColor(preferences.string(defaults::kUserColor), context_.randomBytes);

  userName.set(name);
  userId.set(id);
  userColor.set(color);
  // Stored at once, so that this machine keeps its identity between launches.
  (void)preferences.setString(defaults::kUserName, name);
  (void)preferences.setString(defaults::kUserId, id);
  (void)preferences.setString(defaults::kUserColor, color);

  std::vector<UserProfileSummary> profiles = storedUserProfiles();
  std::erase_if(profiles, [&](const UserProfileSummary& profile) { return profile.id == id; });
  profiles.push_back(UserProfileSummary{id, name, std::nullopt, color});
  std::sort(profiles.begin(), profiles.end(), profileOrder);
  userProfiles.set(profiles);
  persistUserProfiles(profiles);
}

void UserIdentityController::setUserIdentity(std::optional<std::string> name,
                                             std::optional<std::string> id,
                                             std::optional<std::string> color, bool syncRemote) {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  std::string newName = trimmed(name.value_or(""));
  if (newName.empty())
    newName = std::string(kDefaultUserName);
  const std::string newId =
      sanitizedUserId(id.value_or(userId.get()), makeInternalUserId("user", context_.randomBytes));
  const std::string newColor =
      normalizedUserColor(color.value_or(userColor.get()), context_.randomBytes);

  userName.set(newName);
  userId.set(newId);
  userColor.set(newColor);
  (void)context_.preferences.setString(defaults::kUserName, newName);
  (void)context_.preferences.setString(defaults::kUserId, newId);
  (void)context_.preferences.setString(defaults::kUserColor, newColor);

  applyUserProfiles({UserProfileSummary{newId, newName, std::nullopt, newColor}});
  // The helper's author and the watcher's client identity change with the identity.
  hooks.identityChanged();
  // Pushing the profile to the server joins with the signed-in session; until then a local
  // identity has nothing to sync.
  (void)syncRemote;
}

void UserIdentityController::applyUserProfiles(const std::vector<UserProfileSummary>& incoming) {
  std::vector<UserProfileSummary> merged = userProfiles.get();
  for (const UserProfileSummary& profile : incoming) {
    auto normalized = normalizedUserProfile(profile);
    if (!normalized)
      continue;
    auto existing = std::find_if(merged.begin(), merged.end(), [&](const UserProfileSummary& kept) {
      return kept.id == normalized->id;
    });
    if (existing != merged.end()) {
      *existing = std::move(*normalized);
    } else {
      merged.push_back(std::move(*normalized));
    }
  }
  // The current user's own entry always shows the current name and colour.
  for (UserProfileSummary& profile : merged) {
    if (profile.id != userId.get())
      continue;
    profile.displayName = userName.get();
    profile.color = userColor.get();
  }
  if (userProfiles.set(merged))
    persistUserProfiles(merged);
}

void UserIdentityController::applyAccountColor(const std::string& color) {
  const std::optional<std::string> parsed = colorFromHex(color);
  if (!parsed)
    return;
  userColor.set(*parsed);
  (void)context_.preferences.setString(defaults::kUserColor, *parsed);
}

std::string UserIdentityController::userInitial() const {
  return editor::userInitial(userName.get());
}

}  // namespace orvan::editor

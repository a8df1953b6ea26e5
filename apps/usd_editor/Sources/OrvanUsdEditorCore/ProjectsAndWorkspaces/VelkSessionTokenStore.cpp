#include "ProjectsAndWorkspaces/VelkSessionTokenStore.h"

#include "Platform/SecretStore.h"
#include "ServerClient/RunProcess.h"
#include "orvan/wire/Text.h"
#include "orvan/wire/URLComponents.h"

namespace orvan::editor::VelkSessionTokenStore {

std::string normalizedAccount(std::string_view serverURL) {
  const auto url = URLComponents::parse(serverURL);
  if (!url || url->host.empty())
    return serverURL.empty() ? "default" : std::string(serverURL);
  std::string account = url->scheme.empty() ? "https" : lowercased(url->scheme);
  account += "://" + lowercased(url->host);
  if (url->port)
    account += ":" + std::to_string(*url->port);
  return account;
}

std::string load(SecretStore& secrets, std::string_view serverURL) {
  auto secret = secrets.readSecret(kService, normalizedAccount(serverURL));
  if (!secret.ok() || !secret->has_value())
    return {};
  return validUtf8OrEmpty(std::move(**secret));
}

void save(SecretStore& secrets, std::string_view token, std::string_view serverURL) {
  const std::string account = normalizedAccount(serverURL);
  (void)secrets.deleteSecret(kService, account);
  (void)secrets.writeSecret(kService, account, token);
}

void clear(SecretStore& secrets, std::string_view serverURL) {
  (void)secrets.deleteSecret(kService, normalizedAccount(serverURL));
}

}  // namespace orvan::editor::VelkSessionTokenStore

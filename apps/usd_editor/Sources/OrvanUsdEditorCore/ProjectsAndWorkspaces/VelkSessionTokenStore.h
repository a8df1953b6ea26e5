#pragma once

#include <string>
#include <string_view>

namespace orvan::editor {

class SecretStore;

// Session tokens in the user's secret store, one per project server: two servers keep two tokens
// side by side. Failures never surface: a token that cannot be read is no token, and a token that
// cannot be saved lasts until the editor quits.
namespace VelkSessionTokenStore {

inline constexpr std::string_view kService = "net.velk.editor.session";

// "https://host/editor" and "HTTPS://host" share a token: scheme, host and port only.
std::string normalizedAccount(std::string_view serverURL);
std::string load(SecretStore& secrets, std::string_view serverURL);
void save(SecretStore& secrets, std::string_view token, std::string_view serverURL);
void clear(SecretStore& secrets, std::string_view serverURL);

}  // namespace VelkSessionTokenStore
}  // namespace orvan::editor

#pragma once

#include <optional>
#include <string>
#include <string_view>

// The little JSON the platform files need (preferences, the fallback secret file): quoting strings
// for writing and base64 for byte values. Reading goes through simdjson directly.
namespace orvan::editor::small_json {

// Appends `text` as a JSON string literal. The text must be valid UTF-8.
void appendQuoted(std::string& out, std::string_view text);
bool isValidUtf8(std::string_view text);

std::string encodeBase64(std::string_view bytes);
// Nothing when `text` is not padded base64 of the standard alphabet.
std::optional<std::string> decodeBase64(std::string_view text);

}  // namespace orvan::editor::small_json

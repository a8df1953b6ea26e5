#pragma once

#include <optional>
#include <string>
#include <string_view>

// Byte values in the text files the platform keeps (preferences, the fallback secret file).
namespace orvan::editor {

std::string encodeBase64(std::string_view bytes);
// Nothing when `text` is not padded base64 of the standard alphabet.
std::optional<std::string> decodeBase64(std::string_view text);

}  // namespace orvan::editor

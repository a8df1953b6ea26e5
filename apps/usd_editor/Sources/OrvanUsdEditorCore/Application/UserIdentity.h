#pragma once

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace orvan::editor {

// The colours a user may be shown in when no valid colour is known.
inline constexpr std::array<std::string_view, 10> kUserColorPalette = {
    "#2f80ed", "#27ae60", "#eb5757", "#f2994a", "#9b51e0",
    "#00a6a6", "#d946ef", "#4f8f36", "#ff5c8a", "#3d8bfd"};

inline constexpr std::string_view kDefaultUserName = "Native User";

// A source of random bytes; the system generator unless a test gives its own.
using RandomBytes = std::function<void(unsigned char* out, std::size_t count)>;
RandomBytes systemRandomBytes();

// Letters, digits and "_" stay; "-" stays; any run of other characters becomes one "-". At most
// 40 characters; dashes trimmed from both ends; empty gives `fallback`.
std::string sanitizedUserId(std::string_view id, std::string_view fallback);

// `prefix`, "-" and 16 random hexadecimal digits, sanitised with the fallback "user".
std::string makeInternalUserId(std::string_view prefix,
                               const RandomBytes& random = systemRandomBytes());

// "#rrggbb" in lower case for a trimmed "#" and six hexadecimal digits; nothing for anything else.
std::optional<std::string> colorFromHex(std::string_view text);

// "#rrggbb" in lower case, or a random palette entry for anything else.
std::string normalizedUserColor(std::optional<std::string_view> text,
                                const RandomBytes& random = systemRandomBytes());

// The first character of the trimmed name, upper-cased, for the account badge.
std::string userInitial(std::string_view userName);

}  // namespace orvan::editor

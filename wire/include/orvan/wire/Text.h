#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace orvan::editor {

// Text rules shared by the whole editor. Strings are UTF-8; invalid sequences are treated as
// opaque bytes (never as letters, digits or white space) rather than rejected.

// Removes white space and new lines (Unicode separators, tabs, CR, LF, NEL and the like) from
// both ends.
std::string_view trimWhitespaceAndNewlines(std::string_view text);
std::string trimmed(std::string_view text);
// Empty once white space and new lines are trimmed.
bool isBlank(std::string_view text);

bool isValidUtf8(std::string_view text);

bool isWhitespaceOrNewline(char32_t codepoint);
// Letters include combining marks, so that "é" spelled with a combining accent stays a letter.
bool isUnicodeLetter(char32_t codepoint);
bool isUnicodeDecimalDigit(char32_t codepoint);

// Decodes the code point starting at `offset`, advancing it. Invalid bytes decode as U+FFFD and
// advance by one byte.
char32_t decodeCodepoint(std::string_view text, std::size_t& offset);
void appendUtf8(std::string& out, char32_t codepoint);

std::string lowercased(std::string_view text);
bool equalsIgnoringCase(std::string_view left, std::string_view right);
bool hasPrefix(std::string_view text, std::string_view prefix);
bool hasSuffix(std::string_view text, std::string_view suffix);

// `relative` under `base` with one "/" between them; `relative` alone when `base` is empty.
std::string joinPath(std::string_view base, std::string_view relative);

// Resolves "." and ".." and repeated separators. An absolute path stays absolute and never climbs
// above "/"; a relative one keeps the ".." that cannot be resolved. Empty stays empty.
std::string standardizePath(std::string_view path);

}  // namespace orvan::editor

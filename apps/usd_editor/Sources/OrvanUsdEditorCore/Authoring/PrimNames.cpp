#include "Authoring/PrimNames.h"

#include "orvan/wire/Text.h"

namespace orvan::editor {

std::string sanitizePrimName(std::string_view text) {
  std::string name;
  name.reserve(text.size());
  std::size_t offset = 0;
  bool first = true;
  while (offset < text.size()) {
    const char32_t codepoint = decodeCodepoint(text, offset);
    if (first && isUnicodeDecimalDigit(codepoint))
      name += '_';
    first = false;
    if (codepoint == U'_' || isUnicodeLetter(codepoint) || isUnicodeDecimalDigit(codepoint))
      appendUtf8(name, codepoint);
    else
      name += '_';
  }
  return name;
}

std::string duplicatePrimBaseName(std::string_view name) {
  std::string base = sanitizePrimName(name);
  if (hasSuffix(lowercased(base), "_copy"))
    base.resize(base.size() - 5);
  if (const std::size_t underscore = base.rfind('_'); underscore != std::string::npos) {
    const std::string_view number = std::string_view(base).substr(underscore + 1);
    const bool allDigits =
        !number.empty() && number.find_first_not_of("0123456789") == std::string_view::npos;
    if (allDigits)
      base.resize(underscore);
  }
  return base.empty() ? "Prim" : base;
}

std::string childPrimPath(std::string_view parentPath, std::string_view name) {
  if (parentPath == "/")
    return "/" + std::string(name);
  return std::string(parentPath) + "/" + std::string(name);
}

namespace {

bool isFree(const std::string& path, const PrimPathExists& exists,
            const std::unordered_set<std::string>& reservedPaths) {
  return !exists(path) && !reservedPaths.contains(path);
}

std::string firstNumberedFreeName(const std::string& base, const std::string& parentPath,
                                  const PrimPathExists& exists,
                                  std::unordered_set<std::string>& reservedPaths) {
  for (std::size_t n = 1;; ++n) {
    std::string candidate = base + "_" + std::to_string(n);
    std::string path = childPrimPath(parentPath, candidate);
    if (isFree(path, exists, reservedPaths)) {
      reservedPaths.insert(std::move(path));
      return candidate;
    }
  }
}

}  // namespace

std::string nextDuplicatePrimName(const std::string& base, const std::string& parentPath,
                                  const PrimPathExists& exists,
                                  std::unordered_set<std::string>& reservedPaths) {
  return firstNumberedFreeName(base, parentPath, exists, reservedPaths);
}

std::string uniquePrimName(const std::string& base, const std::string& parentPath,
                           const PrimPathExists& exists,
                           std::unordered_set<std::string>& reservedPaths) {
  std::string path = childPrimPath(parentPath, base);
  if (isFree(path, exists, reservedPaths)) {
    reservedPaths.insert(std::move(path));
    return base;
  }
  return firstNumberedFreeName(base, parentPath, exists, reservedPaths);
}

std::string parentPrimPath(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos || slash == 0)
    return {};
  return std::string(path.substr(0, slash));
}

std::string primNameOfPath(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

}  // namespace orvan::editor

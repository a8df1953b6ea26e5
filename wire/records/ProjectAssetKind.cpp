#include "orvan/wire/records/ProjectAssetKind.h"

#include <array>
#include <utility>

#include "orvan/wire/Text.h"

namespace orvan::editor {
namespace {

// Fonts are the four formats the runtime's text renderer loads (ttf, otf, woff, woff2); scripts
// are the languages project scripts are written in: Lua and Luau for gameplay, JavaScript and
// TypeScript for the web player, Python for tools.
constexpr std::array<std::pair<std::string_view, std::string_view>, 37> kKindByExtension{{
    {"usd", "USD"},      {"usda", "USD"},          {"usdz", "USDZ"},      {"png", "Image"},
    {"jpg", "Image"},    {"jpeg", "Image"},        {"jpe", "Image"},      {"tga", "Image"},
    {"exr", "Image"},    {"hdr", "Image"},         {"bmp", "Image"},      {"webp", "Image"},
    {"wav", "Audio"},    {"mp3", "Audio"},         {"aif", "Audio"},      {"aiff", "Audio"},
    {"flac", "Audio"},   {"ogg", "Audio"},         {"m4a", "Audio"},      {"fbx", "Mesh"},
    {"obj", "Mesh"},     {"gltf", "Mesh"},         {"glb", "Mesh"},       {"usdc", "Mesh"},
    {"mat", "Material"}, {"orvanmat", "Material"}, {"anim", "Animation"}, {"bvh", "Animation"},
    {"ttf", "Font"},     {"otf", "Font"},          {"woff", "Font"},      {"woff2", "Font"},
    {"lua", "Script"},   {"luau", "Script"},       {"js", "Script"},      {"ts", "Script"},
    {"py", "Script"},
}};

// What follows the last "." of the file name; a leading "." starts a hidden name, not an
// extension.
std::string_view extensionOf(std::string_view path) {
  const std::size_t slash = path.find_last_of("/\\");
  const std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0)
    return {};
  return name.substr(dot + 1);
}

}  // namespace

std::string projectAssetKind(std::string_view path) {
  const std::string extension = lowercased(extensionOf(path));
  if (extension == "json")
    return "Data";
  for (const auto& [candidate, kind] : kKindByExtension) {
    if (candidate == extension)
      return std::string(kind);
  }
  return "File";
}

}  // namespace orvan::editor

#pragma once

// The contents the crash writer puts in its store and live files, known to the tests as well: each
// is a function of the revision, so whatever survives a kill can be checked byte for byte.
#include <cstdint>
#include <optional>
#include <string>

namespace orvan::engine::crash {

inline constexpr const char* kWorkspace = "main";
inline constexpr const char* kSmallLayer = "small.usda";
inline constexpr const char* kBigLayer = "big.usda";

// Every revision changes the small layer; every fourth one the big layer too.
inline bool touchesBigLayer(std::uint64_t revision) {
  return revision % 4 == 0;
}

inline std::string changeSetText(std::uint64_t revision) {
  std::string text = "change set " + std::to_string(revision) + "\n";
  while (text.size() < 2048)
    text += "set /World/Prim" + std::to_string(revision % 97) +
            ".size = " + std::to_string(revision) + "\n";
  return text;
}

// The layer as it stands after `revision` (the newest revision that changed it).
inline std::string layerText(const std::string& name, std::uint64_t revision) {
  const std::uint64_t lines = name == kBigLayer ? 8000 + revision % 50 : 60 + revision % 7;
  std::string text = "#usda 1.0\n(\n    doc = \"" + name + " revision " + std::to_string(revision) +
                     " lines " + std::to_string(lines) + "\"\n)\n";
  for (std::uint64_t line = 0; line < lines; ++line)
    text += "# " + std::to_string(revision) + " filler line " + std::to_string(line) +
            " ..................................\n";
  text += "# end " + std::to_string(revision) + "\n";
  return text;
}

// The revision a whole layer text was made at; nothing when the text is not one of them whole.
inline std::optional<std::uint64_t> revisionOfLayerText(const std::string& name,
                                                        const std::string& text) {
  const std::string marker = "doc = \"" + name + " revision ";
  const std::size_t at = text.find(marker);
  if (at == std::string::npos)
    return std::nullopt;
  const std::uint64_t revision = std::stoull(text.substr(at + marker.size(), 20));
  if (text != layerText(name, revision))
    return std::nullopt;
  return revision;
}

}  // namespace orvan::engine::crash

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "UsdText/Layer.h"

namespace orvan::engine {

// How a metadata entry breaks the format's rules for the metadata the format knows (active,
// kind, references, ...): a list edit on metadata that holds no list, or a value of another
// type. `expected` says what the format wants there, for the reader's message.
struct MetadataBreach {
  enum class At : std::uint8_t {
    ListOp,  // the list edit word
    Value,   // the value as a whole
    Item,    // `item`, one element of the value
  };
  At at = At::Value;
  const Value* item = nullptr;
  std::string expected;
};

// Nullopt when the entry keeps the rules, or its key is one the format leaves open.
std::optional<MetadataBreach> checkMetadataEntry(const MetadataEntry& entry);

// A prim path as arcs name it: absolute or relative, made of prim names ("..", "." allowed as
// leading components of relative paths), without properties or variant selections.
bool isPrimPath(std::string_view path);

}  // namespace orvan::engine

#pragma once

#include <string>

#include "UsdText/Layer.h"

namespace orvan::engine {

// Writes a layer in the engine's canonical text form: four-space indentation, one statement per
// line, properties before child prims and variant sets last. Scalars keep their authored text, so
// writing a layer that was read gives back what it said, laid out the same way every time.
std::string writeLayer(const Layer& layer);

// One value on a single line where it fits that form ("(1, 2, 3)", "@a.usda@</Model>").
std::string formatValue(const Value& value);

}  // namespace orvan::engine

#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvan::engine {

// Values as the editor sends them ("1.5", "1,2,3", "true", "textures/wood.png") turned into the
// layer text of a declared type ("1.5", "(1, 2, 3)", "true", "@textures/wood.png@"). Vectors
// come comma-joined; an array of tuples takes one tuple per group of numbers ("0.8,0.2,0.2"
// for color3f[] is "[(0.8, 0.2, 0.2)]"). nullopt when the text is not a value of that type.
// Relationships ("rel") take one target path or several, comma-joined.
std::optional<std::string> layerValueText(std::string_view typeName, std::string_view text);

// The numbers of a comma-joined list; nullopt when one piece is not a number.
std::optional<std::vector<double>> parseNumberList(std::string_view text);
// A number in the shortest text that reads back to the same double ("1", "0.25", "1e-05").
std::string formatNumber(double value);
// Numbers as a tuple "(1, 2, 3)".
std::string formatTuple(const std::vector<double>& numbers);

bool isValidPrimName(std::string_view name);

}  // namespace orvan::engine

#pragma once

#include <string>

namespace orvan::editor {

// Number texts as they travel on the wire and appear in the editor.
//
// formatShortestDouble gives the shortest text that reads back to the same double, and always
// marks it as a floating-point number with a fraction or an exponent: 1.0 -> "1.0", 0.25 ->
// "0.25", 0.00001 -> "1e-05", -0.0 -> "-0.0", 1e21 -> "1e+21". A reader can therefore tell a
// double from an integer by its text alone. Non-finite values have no JSON form; here they come
// out as "nan", "inf" and "-inf" (the JSON encoder writes null for them instead).
std::string formatShortestDouble(double value);
void appendShortestDouble(std::string& out, double value);

// The "%.6g" form (six significant digits, trailing zeros dropped), independent of the locale:
// 0.1 -> "0.1", 1234567.0 -> "1.23457e+06", 1.0 -> "1".
std::string formatSixSignificantDigits(double value);

}  // namespace orvan::editor

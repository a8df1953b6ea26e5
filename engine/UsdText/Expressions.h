#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "UsdText/Layer.h"

namespace orvan::engine {

// Variables an expression may name, by name: what a layer's `expressionVariables` dictionary
// holds as strings.
using ExpressionVariables = std::map<std::string, std::string, std::less<>>;

// Whether a path is an expression: text between backquotes, "`...`".
bool isExpression(std::string_view text);

// Adds the string entries of a layer's `expressionVariables` that `variables` does not hold yet.
void addExpressionVariables(const Layer& layer, ExpressionVariables& variables);

// Evaluates an expression that makes a string: a quoted string in which "${NAME}" stands for the
// variable's value ("`\"./${SHOT}/set.usda\"`"), or a lone "${NAME}". Nullopt with the reason in
// `error` for anything else (functions, comparisons) and for a variable that is not set.
std::optional<std::string> evaluateExpression(std::string_view text,
                                              const ExpressionVariables& variables,
                                              std::string& error);

}  // namespace orvan::engine

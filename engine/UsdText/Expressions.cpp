#include "UsdText/Expressions.h"

namespace orvan::engine {
namespace {

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
    text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t'))
    text.remove_suffix(1);
  return text;
}

// The name in "${NAME}" at the start of `text`, with its length; nullopt when there is none.
std::optional<std::string_view> variableAt(std::string_view text, std::size_t& length) {
  if (!text.starts_with("${"))
    return std::nullopt;
  const std::size_t close = text.find('}');
  if (close == std::string_view::npos)
    return std::nullopt;
  length = close + 1;
  return text.substr(2, close - 2);
}

std::optional<std::string> lookUp(std::string_view name, const ExpressionVariables& variables,
                                  std::string& error) {
  const auto found = variables.find(name);
  if (found == variables.end()) {
    error = "the expression variable '" + std::string(name) + "' is not set";
    return std::nullopt;
  }
  return found->second;
}

}  // namespace

bool isExpression(std::string_view text) {
  return text.size() >= 2 && text.front() == '`' && text.back() == '`';
}

void addExpressionVariables(const Layer& layer, ExpressionVariables& variables) {
  const MetadataEntry* entry = layer.findMetadata("expressionVariables");
  if (!entry || entry->value.kind != ValueKind::Dictionary)
    return;
  for (const Value& item : entry->value.items()) {
    if (item.itemCount == 0 || item.items()[0].kind != ValueKind::String)
      continue;
    const Value key = Value::ofKind(item.text.starts_with('"') || item.text.starts_with('\'')
                                        ? ValueKind::String
                                        : ValueKind::Identifier,
                                    item.text);
    variables.emplace(key.decoded(), item.items()[0].decoded());
  }
}

std::optional<std::string> evaluateExpression(std::string_view text,
                                              const ExpressionVariables& variables,
                                              std::string& error) {
  const std::string_view body = trimmed(text.substr(1, text.size() - 2));
  std::size_t length = 0;
  if (const auto name = variableAt(body, length); name && length == body.size())
    return lookUp(*name, variables, error);
  const bool quoted = body.size() >= 2 && (body.front() == '"' || body.front() == '\'') &&
                      body.back() == body.front();
  if (!quoted) {
    error = "the expression " + std::string(text) +
            " is not a string or a variable, the only expressions this engine evaluates";
    return std::nullopt;
  }
  const std::string_view inner = body.substr(1, body.size() - 2);
  std::string out;
  for (std::size_t i = 0; i < inner.size();) {
    if (inner[i] == '\\' && i + 1 < inner.size()) {
      out += inner[i + 1];
      i += 2;
      continue;
    }
    if (inner[i] == body.front()) {
      error = "the expression " + std::string(text) +
              " is not a single string, the only expressions this engine evaluates";
      return std::nullopt;
    }
    if (const auto name = variableAt(inner.substr(i), length)) {
      const auto value = lookUp(*name, variables, error);
      if (!value)
        return std::nullopt;
      out += *value;
      i += length;
      continue;
    }
    out += inner[i++];
  }
  return out;
}

}  // namespace orvan::engine

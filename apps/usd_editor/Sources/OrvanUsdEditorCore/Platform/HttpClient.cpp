#include "Platform/HttpClient.h"

#include <algorithm>

namespace orvan::editor {
namespace {

// Header names are ASCII tokens, so a byte-wise comparison is the whole story.
bool headerNamesMatch(std::string_view a, std::string_view b) {
  const auto lower = [](unsigned char c) { return c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c; };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [&](char x, char y) { return lower(x) == lower(y); });
}

std::optional<std::string> findHeader(const std::vector<HttpHeader>& headers,
                                      std::string_view name) {
  const auto found = std::find_if(headers.begin(), headers.end(), [&](const HttpHeader& header) {
    return headerNamesMatch(header.name, name);
  });
  if (found == headers.end())
    return std::nullopt;
  return found->value;
}

}  // namespace

void HttpRequest::setHeader(std::string_view name, std::string value) {
  std::erase_if(headers,
                [&](const HttpHeader& header) { return headerNamesMatch(header.name, name); });
  headers.push_back(HttpHeader{std::string(name), std::move(value)});
}

std::optional<std::string> HttpRequest::header(std::string_view name) const {
  return findHeader(headers, name);
}

std::optional<std::string> HttpResponse::header(std::string_view name) const {
  return findHeader(headers, name);
}

}  // namespace orvan::editor

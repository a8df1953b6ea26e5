#include "ClientLink/ServiceAddress.h"

#include <algorithm>
#include <array>
#include <utility>

namespace orvan::engine {
namespace {

struct SchemeRule {
  std::string_view given;
  std::string_view http;
};

constexpr std::array<SchemeRule, 4> kSchemes{{{"grpc://", "http://"},
                                              {"grpcs://", "https://"},
                                              {"http://", "http://"},
                                              {"https://", "https://"}}};

ServiceAddressResult failure(std::string_view address, std::string_view why) {
  return ServiceAddressResult{{}, "the address '" + std::string(address) + "' " + std::string(why)};
}

bool isCaseInsensitivePrefix(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() &&
         std::equal(prefix.begin(), prefix.end(), text.begin(), [](char a, char b) {
           const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; };
           return lower(a) == lower(b);
         });
}

}  // namespace

ServiceAddressResult httpBaseForAddress(std::string_view address) {
  const bool hasUnsafeByte = std::any_of(address.begin(), address.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte <= 0x20 || byte == 0x7f;
  });
  if (address.empty())
    return failure(address, "is empty: expected grpc://HOST:PORT or http://HOST:PORT");
  if (hasUnsafeByte)
    return failure(address, "holds blanks or control characters");
  for (const SchemeRule& rule : kSchemes) {
    if (!isCaseInsensitivePrefix(address, rule.given))
      continue;
    std::string_view rest = address.substr(rule.given.size());
    const std::string_view authority = rest.substr(0, rest.find_first_of("/?#"));
    if (authority.empty() || authority.front() == ':')
      return failure(address, "names no host");
    while (!rest.empty() && rest.back() == '/')
      rest.remove_suffix(1);
    if (rest.find_first_of("?#") != std::string_view::npos)
      return failure(address, "carries a query or fragment; give the server's origin");
    return ServiceAddressResult{std::string(rule.http) + std::string(rest), {}};
  }
  return failure(address,
                 "has an unsupported scheme: expected grpc://, grpcs://, http:// or https://");
}

}  // namespace orvan::engine

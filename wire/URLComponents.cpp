#include "orvan/wire/URLComponents.h"

#include <curl/curl.h>

#include <algorithm>
#include <charconv>
#include <memory>

namespace orvan::editor {
namespace {

struct URLDeleter {
  void operator()(CURLU* url) const { curl_url_cleanup(url); }
};
using URLHandle = std::unique_ptr<CURLU, URLDeleter>;

// Our own schemes ("velk://auth-callback?...") are URLs too.
constexpr unsigned int kParseFlags = CURLU_NON_SUPPORT_SCHEME;

// Characters written as they are in each part, beyond the unreserved ones. The query leaves out
// '&', '=', '+' and ';', which servers read as separators or as a space.
constexpr std::string_view kPathCharacters = "/!$&'()*+,;=:@";
constexpr std::string_view kQueryCharacters = "/?:@!$'()*,";
constexpr std::string_view kUserCharacters = "!$&'()*+,;=";
constexpr std::string_view kFragmentCharacters = "/?:@!$&'()*+,;=";

bool isUnreserved(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '.' || c == '_' || c == '~';
}

int hexValue(char c) {
  if (c >= '0' && c <= '9')
    return c - '0';
  if (c >= 'a' && c <= 'f')
    return c - 'a' + 10;
  if (c >= 'A' && c <= 'F')
    return c - 'A' + 10;
  return -1;
}

std::optional<std::string> getPart(CURLU* url, CURLUPart part) {
  char* value = nullptr;
  if (curl_url_get(url, part, &value, 0) != CURLUE_OK || value == nullptr)
    return std::nullopt;
  std::string copy(value);
  curl_free(value);
  return copy;
}

std::optional<std::string> getDecodedPart(CURLU* url, CURLUPart part) {
  std::optional<std::string> raw = getPart(url, part);
  if (!raw)
    return std::nullopt;
  return percentDecoded(*raw);
}

std::vector<URLQueryItem> splitQuery(std::string_view query) {
  std::vector<URLQueryItem> items;
  while (!query.empty()) {
    const std::size_t end = std::min(query.find('&'), query.size());
    const std::string_view item = query.substr(0, end);
    query.remove_prefix(std::min(end + 1, query.size()));
    if (item.empty())
      continue;
    const std::size_t equals = item.find('=');
    if (equals == std::string_view::npos) {
      items.push_back(URLQueryItem{percentDecoded(item), std::nullopt});
    } else {
      items.push_back(URLQueryItem{percentDecoded(item.substr(0, equals)),
                                   percentDecoded(item.substr(equals + 1))});
    }
  }
  return items;
}

std::string joinQuery(const std::vector<URLQueryItem>& items) {
  std::string query;
  for (const URLQueryItem& item : items) {
    if (!query.empty())
      query += '&';
    query += percentEncoded(item.name, kQueryCharacters);
    if (item.value) {
      query += '=';
      query += percentEncoded(*item.value, kQueryCharacters);
    }
  }
  return query;
}

std::optional<int> parsePort(const std::optional<std::string>& text) {
  if (!text)
    return std::nullopt;
  int port = 0;
  const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), port);
  if (error != std::errc() || end != text->data() + text->size())
    return std::nullopt;
  return port;
}

bool setPart(CURLU* url, CURLUPart part, const std::string& value, unsigned int flags = 0) {
  return curl_url_set(url, part, value.c_str(), flags) == CURLUE_OK;
}

std::string bracketedHost(const std::string& host) {
  const bool isBareIpv6 = host.find(':') != std::string::npos && !host.starts_with('[');
  return isBareIpv6 ? "[" + host + "]" : host;
}

}  // namespace

std::string percentEncoded(std::string_view text, std::string_view keep) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string encoded;
  encoded.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (isUnreserved(byte) || keep.find(c) != std::string_view::npos) {
      encoded += c;
      continue;
    }
    encoded += '%';
    encoded += kHex[byte >> 4];
    encoded += kHex[byte & 0x0F];
  }
  return encoded;
}

std::optional<URLComponents> URLComponents::parse(std::string_view text) {
  // libcurl reads up to the first NUL; a URL with one inside is no URL.
  if (text.find('\0') != std::string_view::npos)
    return std::nullopt;
  const URLHandle url(curl_url());
  if (!url)
    return std::nullopt;
  if (!setPart(url.get(), CURLUPART_URL, std::string(text), kParseFlags))
    return std::nullopt;

  URLComponents components;
  components.scheme = getPart(url.get(), CURLUPART_SCHEME).value_or("");
  components.user = getDecodedPart(url.get(), CURLUPART_USER);
  components.password = getDecodedPart(url.get(), CURLUPART_PASSWORD);
  components.host = getPart(url.get(), CURLUPART_HOST).value_or("");
  components.port = parsePort(getPart(url.get(), CURLUPART_PORT));
  components.path = getDecodedPart(url.get(), CURLUPART_PATH).value_or("");
  components.queryItems = splitQuery(getPart(url.get(), CURLUPART_QUERY).value_or(""));
  components.fragment = getDecodedPart(url.get(), CURLUPART_FRAGMENT);
  return components;
}

std::optional<std::string> URLComponents::build() const {
  const URLHandle url(curl_url());
  if (!url || scheme.empty())
    return std::nullopt;
  bool ok = setPart(url.get(), CURLUPART_SCHEME, scheme, kParseFlags);
  if (user)
    ok = ok && setPart(url.get(), CURLUPART_USER, percentEncoded(*user, kUserCharacters));
  if (password) {
    ok = ok && setPart(url.get(), CURLUPART_PASSWORD, percentEncoded(*password, kUserCharacters));
  }
  if (!host.empty())
    ok = ok && setPart(url.get(), CURLUPART_HOST, bracketedHost(host));
  if (port)
    ok = ok && setPart(url.get(), CURLUPART_PORT, std::to_string(*port));
  if (!path.empty())
    ok = ok && setPart(url.get(), CURLUPART_PATH, percentEncoded(path, kPathCharacters));
  if (!queryItems.empty())
    ok = ok && setPart(url.get(), CURLUPART_QUERY, joinQuery(queryItems));
  if (fragment) {
    ok = ok &&
         setPart(url.get(), CURLUPART_FRAGMENT, percentEncoded(*fragment, kFragmentCharacters));
  }
  if (!ok)
    return std::nullopt;
  std::optional<std::string> built = getPart(url.get(), CURLUPART_URL);
  // Setting parts one by one checks less than reading a whole URL does; only hand out what reads.
  if (!built || !parse(*built))
    return std::nullopt;
  return built;
}

std::string percentDecoded(std::string_view text, bool plusIsBlank) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (plusIsBlank && text[i] == '+') {
      decoded += ' ';
      continue;
    }
    if (text[i] == '%' && i + 2 < text.size()) {
      const int high = hexValue(text[i + 1]);
      const int low = hexValue(text[i + 2]);
      if (high >= 0 && low >= 0) {
        decoded += static_cast<char>(high * 16 + low);
        i += 2;
        continue;
      }
    }
    decoded += text[i];
  }
  return decoded;
}

}  // namespace orvan::editor

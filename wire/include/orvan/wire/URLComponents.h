#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvan::editor {

// One "name=value" of a query, decoded. An item written without "=" has no value; "name=" has an
// empty one.
struct URLQueryItem {
  std::string name;
  std::optional<std::string> value;

  bool operator==(const URLQueryItem&) const = default;
};

// `text` with every byte but the unreserved ones ("A-Z a-z 0-9 - . _ ~") and those in `keep`
// written as "%XX"; with nothing kept, fit to stand as one segment of a path.
std::string percentEncoded(std::string_view text, std::string_view keep = {});

// `text` with its "%XX" escapes decoded; a '%' that starts no valid escape stays as it is. In a
// form body (`plusIsBlank`), "+" stands for a blank.
std::string percentDecoded(std::string_view text, bool plusIsBlank = false);

// The parts of an absolute URL, as plain text: `parse` takes a URL apart and decodes its
// percent-escapes, `build` puts the parts back together and escapes what needs it. Taking a URL
// apart, changing its path or query and building it again keeps everything else as it was.
//
// - `scheme` as written in the URL ("http", but also our own "velk" and "orvan").
// - `host`: an IPv6 address keeps its brackets ("[::1]"), so that host and port can be joined
//   with a colon without looking; `build` adds them if they are missing.
// - `port` only when the URL names one: "http://host/" has none, not 80.
// - `path` decoded, "/" at the least for URLs with a host. An escaped slash ("%2F") therefore
//   comes back as a plain one.
// - `queryItems` in their order, repeated names kept. '+' is a plus, not a space; a space is
//   written "%20". Empty items ("a=1&&b=2") are skipped, and no items means no '?'.
struct URLComponents {
  std::string scheme = {};
  std::optional<std::string> user = {};
  std::optional<std::string> password = {};
  std::string host = {};
  std::optional<int> port = {};
  std::string path = {};
  std::vector<URLQueryItem> queryItems = {};
  std::optional<std::string> fragment = {};

  // Nothing when the text is not an absolute URL (no scheme, no host for a web scheme, a bad
  // port, spaces or control characters).
  static std::optional<URLComponents> parse(std::string_view text);

  // Nothing when the parts do not make a URL (no scheme, a host that is not one, ...). What it
  // yields always parses again.
  std::optional<std::string> build() const;

  bool operator==(const URLComponents&) const = default;
};

}  // namespace orvan::editor

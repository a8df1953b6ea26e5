#include "orvan/client/DeepLink.h"

#include <array>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

#include "ClientTextRules.h"

namespace orvan::client {
namespace {

// Query values by lower-case key, each list in link order.
using QueryParams = std::map<std::string, std::vector<std::string>, std::less<>>;

enum class LinkClass { application, web };

constexpr std::array<std::string_view, 4> kApplicationSchemes = {"velk", "orvan", "velk-editor",
                                                                 "velk-player"};

// Hosts of application links that name a link form, never a server. "auth-callback" and
// "setup-agent" are handled by the application before a link reaches this parser.
constexpr std::array<std::string_view, 9> kReservedHosts = {
    "connect", "open",    "project",       "object",     "runtime",
    "state",   "capsule", "auth-callback", "setup-agent"};

std::optional<LinkClass> classify_scheme(std::string_view lowered_scheme) {
  for (const std::string_view scheme : kApplicationSchemes) {
    if (lowered_scheme == scheme)
      return LinkClass::application;
  }
  if (lowered_scheme == "http" || lowered_scheme == "https")
    return LinkClass::web;
  return std::nullopt;
}

bool is_reserved_host(std::string_view lowered_authority) {
  for (const std::string_view host : kReservedHosts) {
    if (lowered_authority == host)
      return true;
  }
  return false;
}

int hex_value(char c) {
  if (c >= '0' && c <= '9')
    return c - '0';
  if (c >= 'a' && c <= 'f')
    return c - 'a' + 10;
  if (c >= 'A' && c <= 'F')
    return c - 'A' + 10;
  return -1;
}

std::string url_decode(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '+') {
      out.push_back(' ');
      continue;
    }
    if (c == '%' && i + 2 < text.size()) {
      const int high = hex_value(text[i + 1]);
      const int low = hex_value(text[i + 2]);
      if (high >= 0 && low >= 0) {
        out.push_back(static_cast<char>(high * 16 + low));
        i += 2;
        continue;
      }
    }
    out.push_back(c);
  }
  return out;
}

// The first value of the first key present, even when that value is empty: a present but blank
// key hides the alternatives behind it.
std::string first_value(const QueryParams& params, std::initializer_list<std::string_view> keys) {
  for (const std::string_view key : keys) {
    const auto found = params.find(key);
    if (found != params.end() && !found->second.empty())
      return found->second.front();
  }
  return {};
}

QueryParams parse_query(std::string_view link) {
  QueryParams params;
  const std::size_t question = link.find('?');
  if (question == std::string_view::npos)
    return params;
  std::string_view query = link.substr(question + 1);
  query = query.substr(0, query.find('#'));

  while (true) {
    const std::size_t amp = query.find('&');
    const std::string_view piece = query.substr(0, amp);
    const std::size_t equals = piece.find('=');
    std::string key = lower_ascii(url_decode(piece.substr(0, equals)));
    if (!key.empty()) {
      std::string value =
          equals == std::string_view::npos ? std::string() : url_decode(piece.substr(equals + 1));
      params[std::move(key)].push_back(std::move(value));
    }
    if (amp == std::string_view::npos)
      break;
    query.remove_prefix(amp + 1);
  }
  return params;
}

std::optional<std::uint64_t> parse_tick(std::string_view text) {
  if (text.empty())
    return std::nullopt;
  std::uint64_t value = 0;
  for (const char c : text) {
    if (!is_ascii_digit(c))
      return std::nullopt;
    const std::uint64_t digit = static_cast<std::uint64_t>(c - '0');
    if (value > (UINT64_MAX - digit) / 10)
      return std::nullopt;
    value = value * 10 + digit;
  }
  return value;
}

bool parse_flag(std::string_view text) {
  const std::string lowered = lower_ascii(text);
  return lowered == "1" || lowered == "true" || lowered == "yes";
}

// "/p/<project>[/state/<capsule> | /runtime/<runtime>]" of the web editor.
void apply_web_path(ClientTarget& target, std::string_view path) {
  if (!path.starts_with("/p/"))
    return;
  const std::string_view after = path.substr(3);
  const std::size_t slash = after.find('/');
  target.project_id = std::string(after.substr(0, slash));
  if (slash == std::string_view::npos)
    return;
  const std::string_view rest = after.substr(slash);
  if (rest.starts_with("/state/")) {
    target.capsule_id = std::string(rest.substr(7));
  } else if (rest.starts_with("/runtime/")) {
    target.runtime_id = std::string(rest.substr(9));
  }
}

// "velk://project/<name>", "velk://object/<path>", "velk://runtime/<id>", "velk://state/<id>".
void apply_reserved_form(ClientTarget& target, std::string_view lowered_authority,
                         std::string_view path) {
  if (lowered_authority == "object") {
    append_unique(target.selection, path);
    return;
  }
  if (path.size() < 2)
    return;
  const std::string tail(path.substr(1));
  if (lowered_authority == "project") {
    target.project_name = tail;
  } else if (lowered_authority == "runtime") {
    target.runtime_id = tail;
  } else if (lowered_authority == "state" || lowered_authority == "capsule") {
    target.capsule_id = tail;
  }
}

void assign_when_non_empty(std::string& field, std::string value) {
  if (!value.empty())
    field = std::move(value);
}

void apply_query(ClientTarget& target, const QueryParams& params) {
  assign_when_non_empty(target.server_url, first_value(params, {"server"}));
  assign_when_non_empty(target.project_id, first_value(params, {"p", "projectid"}));
  target.project_root = first_value(params, {"projectroot"});
  target.scene_uri = first_value(params, {"s", "scene"});
  target.workspace = first_value(params, {"w", "workspace", "ws", "sourceworkspace"});
  target.active_layer = first_value(params, {"activelayer", "layer"});
  target.client_id = first_value(params, {"clientid"});
  assign_when_non_empty(target.runtime_id, first_value(params, {"runtime", "runtimeid"}));
  target.runtime_instance_id =
      first_value(params, {"runtimeinstance", "runtimeinstanceid", "instance"});
  assign_when_non_empty(target.capsule_id, first_value(params, {"capsule", "capsuleid", "state"}));
  target.tick = parse_tick(first_value(params, {"tick", "t"}));
  target.pause_on_open = parse_flag(first_value(params, {"pause", "pauseonopen"}));
  target.camera = first_value(params, {"camera"});
  target.inspect_path = first_value(params, {"inspect", "inspectpath"});
  target.debug_view = first_value(params, {"debug", "debugview"});
  target.test_failure_id = first_value(params, {"failure", "testfailure", "testfailureid"});
  assign_when_non_empty(target.project_name, first_value(params, {"project", "name"}));

  if (std::string address = first_value(params, {"address"}); !address.empty()) {
    set_target_address(target, std::move(address));
  }
  // An explicit host or port overrides what the address gave, so the address goes: normalising
  // would otherwise derive host and port from it again.
  if (std::string host = first_value(params, {"host"}); !host.empty()) {
    target.host = std::move(host);
    target.address.clear();
  }
  if (const std::optional<std::int32_t> port = parse_port(first_value(params, {"port"}))) {
    target.port = *port;
    target.address.clear();
  }
  if (const std::optional<std::int32_t> web_port =
          parse_port(first_value(params, {"web", "webport", "webeditorport"}))) {
    target.web_port = *web_port;
  }

  // Unlike the other rows, every value of every alternative counts.
  for (const std::string_view key : {"o", "select", "object", "path"}) {
    const auto found = params.find(key);
    if (found == params.end())
      continue;
    for (const std::string& path : found->second)
      append_unique(target.selection, path);
  }
}

}  // namespace

std::optional<ClientTarget> parse_deep_link(std::string_view link,
                                            std::string_view default_server) {
  if (link.size() < 3)
    return std::nullopt;
  const std::size_t scheme_end = link.find("://");
  if (scheme_end == std::string_view::npos)
    return std::nullopt;
  const std::optional<LinkClass> link_class =
      classify_scheme(lower_ascii(link.substr(0, scheme_end)));
  if (!link_class)
    return std::nullopt;

  const std::size_t authority_begin = scheme_end + 3;
  const std::size_t authority_end = link.find_first_of("/?#", authority_begin);
  const std::string authority = url_decode(link.substr(
      authority_begin, authority_end == std::string_view::npos ? std::string_view::npos
                                                               : authority_end - authority_begin));
  const std::string lowered_authority = lower_ascii(authority);

  // The path starts at the first '/' anywhere behind "://", even one inside the query.
  std::string path;
  if (const std::size_t slash = link.find('/', authority_begin); slash != std::string_view::npos) {
    const std::size_t path_end = link.find_first_of("?#", slash);
    path = url_decode(link.substr(
        slash, path_end == std::string_view::npos ? std::string_view::npos : path_end - slash));
  }

  ClientTarget target;
  if (*link_class == LinkClass::application) {
    target.server_url = std::string(default_server);
    if (!authority.empty() && !is_reserved_host(lowered_authority)) {
      set_target_address(target, authority);
    }
    apply_reserved_form(target, lowered_authority, path);
  } else {
    target.server_url = std::string(link.substr(0, authority_end));
    apply_web_path(target, path);
  }

  apply_query(target, parse_query(link));
  target = normalize_target(std::move(target), default_server);
  if (target_names_nothing(target))
    return std::nullopt;
  return target;
}

}  // namespace orvan::client

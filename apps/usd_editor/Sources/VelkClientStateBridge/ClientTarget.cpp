#include "orvan/client/ClientTarget.h"

#include "ClientTextRules.h"

#ifndef ORVAN_DEFAULT_SERVER_URL
#error "ORVAN_DEFAULT_SERVER_URL must be defined by the build"
#endif

namespace orvan::client {

extern constexpr std::string_view kDefaultServerUrl = ORVAN_DEFAULT_SERVER_URL;

namespace {

constexpr std::int32_t kDefaultEndpointPort = 50051;
constexpr std::string_view kProjectFolderMarker = ".orvanproject/";

std::int32_t default_port_for_scheme(std::string_view lowered_scheme) {
  if (lowered_scheme == "grpcs" || lowered_scheme == "https")
    return 443;
  if (lowered_scheme == "http")
    return 80;
  return kDefaultEndpointPort;
}

std::string_view trim_c_space(std::string_view text) {
  while (!text.empty() && is_c_space(text.front()))
    text.remove_prefix(1);
  while (!text.empty() && is_c_space(text.back()))
    text.remove_suffix(1);
  return text;
}

// Position of the last case-insensitive occurrence of `needle` (lower-case) in `text`.
std::size_t rfind_ignoring_case(std::string_view text, std::string_view needle) {
  if (needle.size() > text.size())
    return std::string_view::npos;
  for (std::size_t start = text.size() - needle.size() + 1; start-- > 0;) {
    bool matches = true;
    for (std::size_t i = 0; i < needle.size() && matches; ++i) {
      matches = to_lower_ascii(text[start + i]) == needle[i];
    }
    if (matches)
      return start;
  }
  return std::string_view::npos;
}

bool is_drive_path(std::string_view text) {
  return text.size() >= 3 && is_ascii_alpha(text[0]) && text[1] == ':' && text[2] == '/';
}

// A path that could escape the project, or that is absolute on some system.
bool escapes_project(std::string_view text) {
  if (text.starts_with('/') || is_drive_path(text))
    return true;
  if (text == ".." || text.starts_with("../"))
    return true;
  return text.find("/../") != std::string_view::npos;
}

}  // namespace

void set_target_address(ClientTarget& target, std::string address) {
  target.address = address;
  std::string_view w = target.address;
  std::int32_t port = kDefaultEndpointPort;

  if (w.size() >= 3) {
    const std::size_t scheme_end = w.find("://");
    if (scheme_end != std::string_view::npos) {
      port = default_port_for_scheme(lower_ascii(w.substr(0, scheme_end)));
      w.remove_prefix(scheme_end + 3);
    }
  }
  w = w.substr(0, w.find_first_of("/?#"));

  std::string_view port_text;
  if (w.starts_with('[')) {
    const std::size_t close = w.find(']');
    if (close == std::string_view::npos) {
      target.host = std::string(w);
    } else {
      target.host = std::string(w.substr(1, close - 1));
      const std::string_view after = w.substr(close + 1);
      if (after.size() >= 2 && after[0] == ':')
        port_text = after.substr(1);
    }
  } else {
    const std::size_t colon = w.find(':');
    const bool single_colon =
        colon != std::string_view::npos && w.find(':', colon + 1) == std::string_view::npos;
    if (single_colon) {
      target.host = std::string(w.substr(0, colon));
      port_text = w.substr(colon + 1);
    } else {
      // No colon, or a bare IPv6 address whose colons aren't a port separator.
      target.host = std::string(w);
    }
  }

  if (const std::optional<std::int32_t> parsed = parse_port(port_text))
    port = *parsed;
  target.port = port;
}

ClientTarget normalize_target(ClientTarget target, std::string_view default_server) {
  if (target.server_url.empty())
    target.server_url = std::string(default_server);
  while (target.server_url.size() >= 2 && target.server_url.back() == '/') {
    target.server_url.pop_back();
  }
  if (target.workspace.empty())
    target.workspace = "main";

  if (!target.address.empty()) {
    set_target_address(target, target.address);
  } else if (!target.host.empty() && target.port == 0) {
    target.port = kDefaultEndpointPort;
  }

  std::vector<std::string> selection;
  selection.reserve(target.selection.size());
  for (const std::string& path : target.selection)
    append_unique(selection, path);
  target.selection = std::move(selection);

  if (!target.project_id.empty() && !target.scene_uri.empty()) {
    std::string portable = portable_scene_reference(target.scene_uri);
    if (!portable.empty())
      target.scene_uri = std::move(portable);
  }
  return target;
}

std::string portable_scene_reference(std::string_view scene) {
  std::string text(trim_c_space(scene));
  for (char& c : text) {
    if (c == '\\')
      c = '/';
  }

  std::string_view rest = text;
  while (rest.starts_with("./"))
    rest.remove_prefix(2);
  if (rest.empty())
    return {};

  const std::size_t marker = rfind_ignoring_case(rest, kProjectFolderMarker);
  if (marker != std::string_view::npos) {
    rest.remove_prefix(marker + kProjectFolderMarker.size());
    while (rest.starts_with('/'))
      rest.remove_prefix(1);
    if (rest.empty())
      return {};
  }

  if (escapes_project(rest))
    return {};
  return std::string(rest);
}

bool target_has_render_scope(const ClientTarget& target) {
  const ClientTarget t = normalize_target(target, kDefaultServerUrl);
  if (t.scene_uri.empty())
    return false;
  return !t.project_id.empty() || !t.project_root.empty() || !t.project_name.empty() ||
         !t.address.empty() || !t.host.empty();
}

bool same_project_scope(const ClientTarget& a, const ClientTarget& b) {
  const ClientTarget na = normalize_target(a, kDefaultServerUrl);
  const ClientTarget nb = normalize_target(b, kDefaultServerUrl);
  return na.server_url == nb.server_url && na.project_id == nb.project_id &&
         na.project_root == nb.project_root && na.scene_uri == nb.scene_uri;
}

bool same_workspace_scope(const ClientTarget& a, const ClientTarget& b) {
  const ClientTarget na = normalize_target(a, kDefaultServerUrl);
  const ClientTarget nb = normalize_target(b, kDefaultServerUrl);
  return same_project_scope(na, nb) && na.workspace == nb.workspace &&
         na.active_layer == nb.active_layer;
}

bool target_matches_active_scope(const ClientTarget& target, const ClientTarget& active) {
  const ClientTarget t = normalize_target(target, kDefaultServerUrl);
  const ClientTarget a = normalize_target(active, kDefaultServerUrl);
  if (!same_workspace_scope(t, a))
    return false;
  if (!t.address.empty())
    return t.address == a.address;
  if (!t.host.empty())
    return t.host == a.host && t.port == a.port;
  return true;
}

bool target_names_nothing(const ClientTarget& target) {
  return target.project_id.empty() && target.project_root.empty() && target.project_name.empty() &&
         target.scene_uri.empty() && target.address.empty() && target.host.empty() &&
         target.selection.empty() && target.runtime_id.empty() && target.capsule_id.empty();
}

}  // namespace orvan::client

#pragma once

#include <optional>
#include <string_view>

#include "orvan/client/ClientTarget.h"

namespace orvan::client {

// Reads an application link ("velk://", "orvan://", "velk-editor://", "velk-player://") or a web
// editor link ("http://", "https://") into a normalised target. Gives no target for a short link,
// a missing "://", an unknown scheme, or a link that names no destination; anything else is read
// leniently and never fails.
std::optional<ClientTarget> parse_deep_link(std::string_view link, std::string_view default_server);

}  // namespace orvan::client

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// The TCP link between the viewport client and its runtime: text lines both ways, one line feed
// after each. These are the few socket calls both ends make.
namespace orvan::engine {

struct LinkEndpoint {
  std::string host;
  std::uint16_t port = 0;
};

// "HOST:PORT" (the host may be a name or an IPv4 address; "[::1]:PORT" for IPv6); nullopt when the
// text is not of that form or the port is not 1 to 65535.
std::optional<LinkEndpoint> parseLinkEndpoint(std::string_view address);

// A listening socket on the endpoint (address reuse on), or -1 with `error` set.
int listenOnEndpoint(const LinkEndpoint& endpoint, std::string& error);
// A connected socket, or -1 with `error` set. Gives up after `timeoutMs`.
int connectToEndpoint(const LinkEndpoint& endpoint, int timeoutMs, std::string& error);
// Writes all of `bytes`, retrying short writes; false when the peer is gone. Never raises SIGPIPE.
bool sendAll(int fd, std::string_view bytes);

}  // namespace orvan::engine

#include "ViewportLink/LinkSocket.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>

namespace orvan::engine {
namespace {

struct AddressList {
  addrinfo* list = nullptr;
  ~AddressList() {
    if (list != nullptr)
      ::freeaddrinfo(list);
  }
};

bool resolve(const LinkEndpoint& endpoint, bool passive, AddressList& out, std::string& error) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = passive ? AI_PASSIVE : 0;
  const std::string port = std::to_string(endpoint.port);
  const int status = ::getaddrinfo(endpoint.host.c_str(), port.c_str(), &hints, &out.list);
  if (status != 0) {
    error = "cannot resolve '" + endpoint.host + "': " + ::gai_strerror(status);
    return false;
  }
  return true;
}

std::string described(const LinkEndpoint& endpoint) {
  return endpoint.host + ":" + std::to_string(endpoint.port);
}

}  // namespace

std::optional<LinkEndpoint> parseLinkEndpoint(std::string_view address) {
  const std::size_t colon = address.rfind(':');
  if (colon == std::string_view::npos || colon == 0)
    return std::nullopt;
  std::string_view host = address.substr(0, colon);
  const std::string_view portText = address.substr(colon + 1);
  if (host.front() == '[') {
    if (host.size() < 3 || host.back() != ']')
      return std::nullopt;
    host = host.substr(1, host.size() - 2);
  } else if (host.find(':') != std::string_view::npos) {
    return std::nullopt;
  }
  unsigned port = 0;
  const auto [end, status] =
      std::from_chars(portText.data(), portText.data() + portText.size(), port);
  if (portText.empty() || status != std::errc() || end != portText.data() + portText.size() ||
      port == 0 || port > 65535) {
    return std::nullopt;
  }
  return LinkEndpoint{.host = std::string(host), .port = static_cast<std::uint16_t>(port)};
}

int listenOnEndpoint(const LinkEndpoint& endpoint, std::string& error) {
  AddressList addresses;
  if (!resolve(endpoint, true, addresses, error))
    return -1;
  for (addrinfo* at = addresses.list; at != nullptr; at = at->ai_next) {
    const int fd = ::socket(at->ai_family, at->ai_socktype | SOCK_CLOEXEC, at->ai_protocol);
    if (fd < 0)
      continue;
    const int on = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (::bind(fd, at->ai_addr, at->ai_addrlen) == 0 && ::listen(fd, 4) == 0)
      return fd;
    error = "cannot listen on " + described(endpoint) + ": " + std::strerror(errno);
    ::close(fd);
  }
  if (error.empty())
    error = "cannot listen on " + described(endpoint);
  return -1;
}

int connectToEndpoint(const LinkEndpoint& endpoint, int timeoutMs, std::string& error) {
  AddressList addresses;
  if (!resolve(endpoint, false, addresses, error))
    return -1;
  for (addrinfo* at = addresses.list; at != nullptr; at = at->ai_next) {
    const int fd =
        ::socket(at->ai_family, at->ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, at->ai_protocol);
    if (fd < 0)
      continue;
    int status = ::connect(fd, at->ai_addr, at->ai_addrlen);
    if (status != 0 && errno == EINPROGRESS) {
      pollfd waiting{.fd = fd, .events = POLLOUT, .revents = 0};
      if (::poll(&waiting, 1, timeoutMs) == 1) {
        int failure = 0;
        socklen_t size = sizeof failure;
        ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &failure, &size);
        status = failure == 0 ? 0 : -1;
        errno = failure;
      } else {
        errno = ETIMEDOUT;
      }
    }
    if (status == 0) {
      ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
      const int on = 1;
      ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
      return fd;
    }
    error = "cannot connect to " + described(endpoint) + ": " + std::strerror(errno);
    ::close(fd);
  }
  if (error.empty())
    error = "cannot connect to " + described(endpoint);
  return -1;
}

bool sendAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR)
      continue;
    if (sent <= 0)
      return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

}  // namespace orvan::engine

#include "App/IncomingURLQueue.h"

#include <utility>

#include <spdlog/spdlog.h>

namespace orvan::ui {

namespace {

bool startsWithNoCase(std::string_view text, std::string_view prefix) {
  if (text.size() < prefix.size())
    return false;
  for (std::size_t i = 0; i < prefix.size(); ++i) {
    const char c = text[i];
    const char lower = (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
    if (lower != prefix[i])
      return false;
  }
  return true;
}

}  // namespace

bool isEditorURL(std::string_view argument) {
  return startsWithNoCase(argument, "velk:") || startsWithNoCase(argument, "orvan:");
}

std::string loggableURL(std::string_view url) {
  const std::size_t scheme = url.find(':');
  if (scheme == std::string_view::npos)
    return "(not a link)";
  std::size_t hostStart = scheme + 1;
  if (url.substr(hostStart, 2) == "//")
    hostStart += 2;
  const std::size_t hostEnd = url.find_first_of("/?#", hostStart);
  return std::string(url.substr(0, hostEnd == std::string_view::npos ? url.size() : hostEnd));
}

void IncomingURLQueue::push(std::string url, std::string_view source) {
  if (receiver_) {
    spdlog::info("incoming link from {}: {} ({} bytes)", source, loggableURL(url), url.size());
    receiver_(url);
    return;
  }
  spdlog::info("incoming link from {} queued until links are routed: {} ({} bytes)", source,
               loggableURL(url), url.size());
  pending_.push_back(std::move(url));
}

void IncomingURLQueue::route(Receiver receiver) {
  receiver_ = std::move(receiver);
  if (!receiver_)
    return;
  for (const std::string& url : takeAll())
    receiver_(url);
}

std::vector<std::string> IncomingURLQueue::takeAll() {
  return std::exchange(pending_, {});
}

}  // namespace orvan::ui

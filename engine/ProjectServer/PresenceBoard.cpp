#include "ProjectServer/PresenceBoard.h"

#include <algorithm>

#include "orvan/wire/JsonEncoder.h"
#include "orvan/wire/records/ToolClientLine.h"

namespace orvan::engine {

std::string selectionLine(const Presence& presence) {
  const editor::ToolClientLine line{.type = "selection",
                                    .sourceClientId = presence.clientId,
                                    .entityPaths = presence.selectedPaths,
                                    .displayName = presence.displayName,
                                    .color = presence.color,
                                    .scene = presence.scope.scene,
                                    .workspace = presence.scope.workspace,
                                    .activeLayer = presence.activeLayer};
  return editor::encodeJson(line);
}

PresenceBoard::PresenceBoard(std::chrono::milliseconds lifetime, Clock clock)
    : lifetime_(lifetime), clock_(std::move(clock)) {}

void PresenceBoard::publish(Presence presence) {
  const auto now = clock_();
  const std::lock_guard lock(mutex_);
  prune(now);
  std::erase_if(entries_,
                [&](const Entry& entry) { return entry.presence.clientId == presence.clientId; });
  entries_.push_back(Entry{.presence = std::move(presence), .at = now});
}

std::vector<Presence> PresenceBoard::live(const FeedScope& scope) {
  const std::lock_guard lock(mutex_);
  prune(clock_());
  std::vector<Presence> found;
  for (const Entry& entry : entries_) {
    if (entry.presence.scope == scope)
      found.push_back(entry.presence);
  }
  return found;
}

void PresenceBoard::prune(std::chrono::steady_clock::time_point now) {
  std::erase_if(entries_, [&](const Entry& entry) { return now - entry.at >= lifetime_; });
}

}  // namespace orvan::engine

#include "ViewportLink/ClientReplay.h"

#include <algorithm>
#include <optional>
#include <type_traits>

namespace orvan::engine {
namespace {

// The key a setting line replaces earlier lines under; nullopt for lines that are not kept.
std::optional<std::string> settingKey(const ViewportCommand& command) {
  return std::visit(
      [](const auto& c) -> std::optional<std::string> {
        using T = std::decay_t<decltype(c)>;
        if constexpr (std::is_same_v<T, ViewportResize>) {
          return "resize";
        } else if constexpr (std::is_same_v<T, ViewportAuth>) {
          return "auth";
        } else if constexpr (std::is_same_v<T, ViewportCameraMode>) {
          return "camera";
        } else if constexpr (std::is_same_v<T, ViewportTool>) {
          return "tool";
        } else if constexpr (std::is_same_v<T, ViewportSimulation>) {
          return "simulation";
        } else if constexpr (std::is_same_v<T, ViewportSelection>) {
          return "selection";
        } else if constexpr (std::is_same_v<T, ViewportInstancedPrims>) {
          return "instanced-prims";
        } else if constexpr (std::is_same_v<T, ViewportReviewComments>) {
          return "review-comments";
        } else if constexpr (std::is_same_v<T, ViewportDebug>) {
          return "debug|" + c.name;
        } else if constexpr (std::is_same_v<T, ViewportSnapSettings>) {
          return c.word;
        } else if constexpr (std::is_same_v<T, ViewportPropertyPreview>) {
          return "property-preview|" + c.entityPath + "|" + c.componentType + "|" + c.propertyName;
        } else {
          return std::nullopt;
        }
      },
      command);
}

}  // namespace

void ClientReplay::note(const ViewportCommand& command, std::string_view line) {
  if (std::holds_alternative<ViewportOpen>(command)) {
    open_ = std::string(line);
    // The open line carries the size and the token itself; what came before it is stale.
    settings_.clear();
    return;
  }
  if (std::holds_alternative<ViewportClose>(command)) {
    open_.clear();
    settings_.clear();
    return;
  }
  const std::optional<std::string> key = settingKey(command);
  if (!key)
    return;
  const auto found = std::find_if(settings_.begin(), settings_.end(),
                                  [&](const auto& setting) { return setting.first == *key; });
  const auto* preview = std::get_if<ViewportPropertyPreview>(&command);
  if (preview != nullptr && preview->clear) {
    if (found != settings_.end())
      settings_.erase(found);
    return;
  }
  if (found != settings_.end()) {
    found->second = std::string(line);
    return;
  }
  settings_.emplace_back(*key, std::string(line));
}

std::vector<std::string> ClientReplay::lines() const {
  if (open_.empty())
    return {};
  std::vector<std::string> lines{open_};
  for (const auto& setting : settings_)
    lines.push_back(setting.second);
  return lines;
}

}  // namespace orvan::engine

#include "ToolClient/ToolCommandLine.h"

#include <charconv>
#include <cmath>
#include <utility>

namespace orvan::engine {

const std::string_view kToolClientUsage =
    "usage: orvan_tool_client --address ADDR --client-id C --watch --json-lines\n"
    "                         [--scene S] [--workspace W] [--silence-timeout SECONDS]\n"
    "       orvan_tool_client --address ADDR --client-id C --display-name N --color COL\n"
    "                         [--scene S] [--workspace W] --json-lines [--active-layer L]\n"
    "                         [--select PATH]...\n"
    "The first form prints the scene's change stream, one JSON object a line, and ends when the\n"
    "stream ends or stays silent for the timeout (10 s); the second publishes this client's\n"
    "selection once. The bearer token comes from ORVAN_AUTH_TOKEN.\n";

namespace {

ToolCommandLineResult refuse(std::string why) {
  return ToolCommandLineResult{std::nullopt, std::move(why)};
}

// Seconds, possibly with a fraction, above zero and at most a day.
std::optional<std::chrono::milliseconds> parseSeconds(std::string_view text) {
  double seconds = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  if (text.empty() || error != std::errc() || end != text.data() + text.size() ||
      !std::isfinite(seconds) || seconds <= 0 || seconds > 86400)
    return std::nullopt;
  return std::chrono::milliseconds(static_cast<long long>(std::ceil(seconds * 1000)));
}

}  // namespace

ToolCommandLineResult parseToolClientArguments(const std::vector<std::string_view>& arguments) {
  ToolClientCommandLine line;
  bool watch = false, hasAddress = false, hasClientId = false;
  for (std::size_t index = 0; index < arguments.size(); ++index) {
    const std::string_view option = arguments[index];
    if (option == "--watch") {
      watch = true;
      continue;
    }
    if (option == "--json-lines")
      continue;  // The only output form there is.
    if (index + 1 == arguments.size())
      return refuse(option.starts_with("--") ? std::string(option) + " needs a value"
                                             : "unexpected argument '" + std::string(option) + "'");
    const std::string_view value = arguments[index + 1];
    if (option == "--address")
      line.address.assign(value), hasAddress = true;
    else if (option == "--client-id")
      line.clientId.assign(value), hasClientId = true;
    else if (option == "--display-name")
      line.displayName.assign(value);
    else if (option == "--color")
      line.color.assign(value);
    else if (option == "--scene")
      line.scene.assign(value);
    else if (option == "--workspace")
      line.workspace.assign(value);
    else if (option == "--active-layer")
      line.activeLayer.assign(value);
    else if (option == "--select")
      line.selectedPaths.emplace_back(value);
    else if (option == "--silence-timeout") {
      const auto silence = parseSeconds(value);
      if (!silence)
        return refuse("--silence-timeout takes a number of seconds above 0");
      line.silence = *silence;
    } else {
      return refuse("unexpected argument '" + std::string(option) + "'");
    }
    ++index;
  }
  if (!hasAddress || !hasClientId)
    return refuse("--address and --client-id are needed");
  line.mode = watch ? ToolClientMode::kWatch : ToolClientMode::kPublishPresence;
  return ToolCommandLineResult{std::move(line), {}};
}

}  // namespace orvan::engine

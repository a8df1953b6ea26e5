#include "ProjectServer/ServerCommandLine.h"

#include <charconv>

#include "Foundation/Text.h"

namespace orvan::engine {

editor::Result<ServerCommandLine, std::string> parseServerCommandLine(
    const std::vector<std::string>& arguments) {
  ServerCommandLine line;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& option = arguments[i];
    if (option == "--help" || option == "-h") {
      line.help = true;
      return line;
    }
    if (option != "--project" && option != "--host" && option != "--port" && option != "--token" &&
        !isStageLimitOption(option)) {
      return "unexpected argument '" + option + "'";
    }
    if (i + 1 >= arguments.size())
      return option + " needs a value";
    const std::string& value = arguments[++i];
    if (isStageLimitOption(option)) {
      if (auto wrong = setStageLimit(line.limits, option, value))
        return std::move(*wrong);
      continue;
    }
    if (option == "--project") {
      line.projects.push_back(value);
    } else if (option == "--host") {
      if (editor::isBlank(value))
        return std::string("--host needs a value");
      line.host = value;
    } else if (option == "--port") {
      int port = -1;
      const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), port);
      if (error != std::errc() || end != value.data() + value.size() || port < 0 || port > 65535)
        return "--port needs a number from 0 to 65535, not '" + value + "'";
      line.port = port;
    } else {
      if (editor::isBlank(value))
        return std::string("--token needs a value");
      line.token = editor::trimmed(value);
    }
  }
  if (line.projects.empty())
    return std::string("no --project given");
  return line;
}

}  // namespace orvan::engine

#include "Foundation/Logging.h"

#include <cstdlib>
#include <memory>
#include <string>

#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/sinks/syslog_sink.h>

#include "orvan/wire/Text.h"

namespace orvan::editor {

void initializeLogging(std::string_view identity) {
  const std::string name(identity);
  auto syslogSink = std::make_shared<spdlog::sinks::syslog_sink_mt>(name, 0, LOG_USER, false);
  auto stderrSink = std::make_shared<spdlog::sinks::stderr_color_sink_mt>();
  auto logger =
      std::make_shared<spdlog::logger>(name, spdlog::sinks_init_list{syslogSink, stderrSink});
  logger->set_pattern("%Y-%m-%d %H:%M:%S.%e %^%l%$ %v");
  logger->flush_on(spdlog::level::warn);
  spdlog::set_default_logger(std::move(logger));
}

bool isDiagnosticFlagValueEnabled(const char* value) {
  if (value == nullptr)
    return false;
  const std::string_view text(value);
  return !(text.empty() || text == "0" || equalsIgnoringCase(text, "false"));
}

std::string textTail(std::string_view text, std::size_t maxBytes) {
  if (text.size() <= maxBytes)
    return std::string(text);
  std::size_t start = text.size() - maxBytes;
  // Never begin inside a UTF-8 sequence.
  while (start < text.size() && (static_cast<unsigned char>(text[start]) & 0xC0) == 0x80)
    ++start;
  return "…" + std::string(text.substr(start));
}

bool isDiagnosticFlagEnabled(std::string_view variableName) {
  return isDiagnosticFlagValueEnabled(std::getenv(std::string(variableName).c_str()));
}

}  // namespace orvan::editor

#include "ServerClient/RunProcess.h"

#include <cerrno>

#include "Platform/AtomicFile.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/Text.h"
#include "orvan/wire/records/EditClientResponse.h"

namespace orvan::editor {

std::string validUtf8OrEmpty(std::string text) {
  if (!isValidUtf8(text))
    return {};
  return text;
}

std::string utf8WithReplacements(std::string_view text) {
  if (isValidUtf8(text))
    return std::string(text);
  std::string replaced;
  replaced.reserve(text.size() + 16);
  std::size_t offset = 0;
  while (offset < text.size())
    appendUtf8(replaced, decodeCodepoint(text, offset));
  return replaced;
}

Result<std::string> runLocalInspector(ProcessLauncher& launcher, const std::string& inspectorPath,
                                      const std::string& scenePath) {
  if (Status regular = checkRegularFile(scenePath); !regular && regular.error().code != ENOENT) {
    return regular.error();
  }
  return runProcess(launcher, inspectorPath, {"--", scenePath}, "", false);
}

namespace {

Result<ProcessOutput> runCaptured(ProcessLauncher& launcher, const std::string& executablePath,
                                  std::vector<std::string> arguments,
                                  std::string_view authorizationToken) {
  ProcessLaunchOptions options;
  options.executablePath = executablePath;
  options.arguments = std::move(arguments);
  if (!authorizationToken.empty()) {
    options.environment.emplace_back(std::string(kAuthTokenEnvironmentVariable),
                                     std::string(authorizationToken));
  }
  options.standardOutput = OutputStreamOptions::captured();
  options.standardError = OutputStreamOptions::captured();
  return launcher.runToCompletion(std::move(options));
}

// A helper killed by a signal has no exit code; it reports as 128 + the signal, as shells do.
int exitCode(const ExitStatus& status) {
  return status.wasSignalled() ? 128 + status.value : status.value;
}

}  // namespace

Result<std::string> runProcess(ProcessLauncher& launcher, const std::string& executablePath,
                               std::vector<std::string> arguments,
                               std::string_view authorizationToken,
                               bool acceptJSONResponseOnFailure) {
  Result<ProcessOutput> finished =
      runCaptured(launcher, executablePath, std::move(arguments), authorizationToken);
  if (!finished.ok())
    return finished.error();

  std::string output = validUtf8OrEmpty(std::move(finished->standardOutput));
  if (finished->exitStatus.isSuccess())
    return output;
  if (acceptJSONResponseOnFailure && decodeJson<EditClientResponse>(output).ok())
    return output;

  // What the helper said goes to the user: bytes of another encoding show as U+FFFD rather than
  // leave the message empty.
  std::string errorText = utf8WithReplacements(finished->standardError);
  return Error::editor(
      exitCode(finished->exitStatus),
      errorText.empty() ? utf8WithReplacements(finished->standardOutput) : std::move(errorText));
}

Result<std::string> runEditClientOnce(ProcessLauncher& launcher, const std::string& executablePath,
                                      std::vector<std::string> arguments,
                                      std::string_view authorizationToken,
                                      std::size_t standardErrorTailCharacters) {
  Result<ProcessOutput> finished =
      runCaptured(launcher, executablePath, std::move(arguments), authorizationToken);
  if (!finished.ok())
    return finished.error();
  std::string output = validUtf8OrEmpty(std::move(finished->standardOutput));
  if (finished->exitStatus.isSuccess() || decodeJson<EditClientResponse>(output).ok())
    return output;
  const int code = exitCode(finished->exitStatus);
  std::string description = "helper exit status " + std::to_string(code);
  const std::string said = utf8WithReplacements(
      finished->standardError.empty() ? finished->standardOutput : finished->standardError);
  const std::string_view meaningful = trimWhitespaceAndNewlines(said);
  if (!meaningful.empty()) {
    // The last characters, whole code points only: the end of a helper's complaint says why.
    std::size_t start = meaningful.size() > standardErrorTailCharacters
                            ? meaningful.size() - standardErrorTailCharacters
                            : 0;
    while (start < meaningful.size() &&
           (static_cast<unsigned char>(meaningful[start]) & 0xC0) == 0x80)
      ++start;
    description += ": " + std::string(meaningful.substr(start));
  }
  return Error::editor(code, std::move(description));
}

}  // namespace orvan::editor

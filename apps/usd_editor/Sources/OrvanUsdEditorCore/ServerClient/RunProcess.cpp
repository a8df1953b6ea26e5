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

Result<std::string> runProcess(ProcessLauncher& launcher, const std::string& executablePath,
                               std::vector<std::string> arguments,
                               std::string_view authorizationToken,
                               bool acceptJSONResponseOnFailure) {
  ProcessLaunchOptions options;
  options.executablePath = executablePath;
  options.arguments = std::move(arguments);
  if (!authorizationToken.empty()) {
    options.environment.emplace_back(std::string(kAuthTokenEnvironmentVariable),
                                     std::string(authorizationToken));
  }
  options.standardOutput = OutputStreamOptions::captured();
  options.standardError = OutputStreamOptions::captured();

  Result<ProcessOutput> finished = launcher.runToCompletion(std::move(options));
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
  const ExitStatus& status = finished->exitStatus;
  // A helper killed by a signal has no exit code; it reports as 128 + the signal, as shells do.
  const int code = status.wasSignalled() ? 128 + status.value : status.value;
  return Error::editor(code, errorText.empty() ? utf8WithReplacements(finished->standardOutput)
                                               : std::move(errorText));
}

}  // namespace orvan::editor

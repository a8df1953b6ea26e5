#include "ServerClient/RunProcess.h"

#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/Text.h"
#include "orvan/wire/records/EditClientResponse.h"

namespace orvan::editor {

std::string validUtf8OrEmpty(std::string text) {
  if (!isValidUtf8(text)) return {};
  return text;
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
  if (!finished.ok()) return finished.error();

  std::string output = validUtf8OrEmpty(std::move(finished->standardOutput));
  if (finished->exitStatus.isSuccess()) return output;
  if (acceptJSONResponseOnFailure && decodeJson<EditClientResponse>(output).ok()) return output;

  std::string errorText = validUtf8OrEmpty(std::move(finished->standardError));
  const ExitStatus& status = finished->exitStatus;
  // A helper killed by a signal has no exit code; it reports as 128 + the signal, as shells do.
  const int code = status.wasSignalled() ? 128 + status.value : status.value;
  return Error::editor(code, errorText.empty() ? std::move(output) : std::move(errorText));
}

}  // namespace orvan::editor

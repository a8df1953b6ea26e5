#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "orvan/wire/Error.h"
#include "Platform/ProcessLauncher.h"

namespace orvan::editor {

// The variable through which helpers receive the session token; never the command line.
inline constexpr std::string_view kAuthTokenEnvironmentVariable = "ORVAN_AUTH_TOKEN";

// Runs a helper to its end and returns its standard output. Blocking: background tasks only.
// Both output pipes are drained at once, so a helper that floods its standard error cannot block.
// A non-zero exit fails with the exit status as code and the standard error text (or the output,
// when standard error is empty) as description; with `acceptJSONResponseOnFailure`, output that
// is the edit helper's JSON answer is returned instead, since the helper reports a refused
// operation that way. A launch failure is returned as it came.
Result<std::string> runProcess(ProcessLauncher& launcher, const std::string& executablePath,
                               std::vector<std::string> arguments,
                               std::string_view authorizationToken,
                               bool acceptJSONResponseOnFailure);

// Text that is not valid UTF-8 reads as empty.
std::string validUtf8OrEmpty(std::string text);

}  // namespace orvan::editor

#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Platform/ProcessLauncher.h"
#include "orvan/wire/Error.h"

namespace orvan::editor {

// The variable through which helpers receive the session token; never the command line.
inline constexpr std::string_view kAuthTokenEnvironmentVariable = "ORVAN_AUTH_TOKEN";

// Runs a helper to its end and returns its standard output. Blocking: background tasks only.
// Both output pipes are drained at once, so a helper that floods its standard error cannot block.
// A non-zero exit fails with the exit status as code and the standard error text (or the output,
// when standard error is empty) as description, its invalid UTF-8 replaced; with
// `acceptJSONResponseOnFailure`, output that is the edit helper's JSON answer is returned instead,
// since the helper reports a refused operation that way. A launch failure is returned as it came.
Result<std::string> runProcess(ProcessLauncher& launcher, const std::string& executablePath,
                               std::vector<std::string> arguments,
                               std::string_view authorizationToken,
                               bool acceptJSONResponseOnFailure);

// The edit helper's one-shot form: its output, or its JSON answer to a refused operation; any
// other end fails with the exit status as code and "helper exit status N: " and the last
// `standardErrorTailCharacters` of its standard error (or output) as description.
Result<std::string> runEditClientOnce(ProcessLauncher& launcher, const std::string& executablePath,
                                      std::vector<std::string> arguments,
                                      std::string_view authorizationToken,
                                      std::size_t standardErrorTailCharacters);

// Text that is not valid UTF-8 reads as empty.
std::string validUtf8OrEmpty(std::string text);

// The text with every byte that is not part of valid UTF-8 replaced by U+FFFD, so that what a
// helper said can always be shown, even when it said some of it in another encoding.
std::string utf8WithReplacements(std::string_view text);

// Runs the stage inspector on a local scene and returns the stage it printed. The scene goes after
// "--", so that a file name starting with "--" is never taken for an option. Only a regular file
// is handed over: a FIFO or a device would keep the inspector (and the refresh) waiting forever.
// A scene that does not exist is left to the inspector to report, with its own words.
Result<std::string> runLocalInspector(ProcessLauncher& launcher, const std::string& inspectorPath,
                                      const std::string& scenePath);

}  // namespace orvan::editor

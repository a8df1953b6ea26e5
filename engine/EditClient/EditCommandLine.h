#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "EditClient/EditCommands.h"

namespace orvan::engine {

enum class EditClientMode { kStdio, kOneShot };

// What the edit helper was asked to do.
struct EditClientCommandLine {
  EditClientMode mode = EditClientMode::kStdio;
  EditScope scope;
  std::string address;
  EditCommand command;  // the one operation of a one-shot run

  bool operator==(const EditClientCommandLine&) const = default;
};

struct EditCommandLineResult {
  std::optional<EditClientCommandLine> commandLine;
  std::string error;  // why the arguments were refused
};

// Parses the arguments after the program name:
//   --stdio --author A --client-id C --scene S --workspace W [--active-layer L] ADDRESS
//   --json --author A --workspace W [--client-id C] [--scene S] [--active-layer L]
//          ADDRESS REVISION OPERATION
// The options before the address may come in any order. OPERATION is one of the forms in
// kEditClientUsage.
EditCommandLineResult parseEditClientArguments(const std::vector<std::string_view>& arguments);

extern const std::string_view kEditClientUsage;

}  // namespace orvan::engine

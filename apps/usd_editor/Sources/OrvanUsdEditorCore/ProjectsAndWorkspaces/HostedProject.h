#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "orvan/wire/records/HostedProjectRecords.h"

namespace orvan::editor {

// A project of the catalogue as the project browser and the switch work with it. Unlike the wire
// record, every field has a value: the browser never has to decide what an absent one means.
struct HostedProject {
  // The project id, or the path for a server that gives none: whatever identifies the project in
  // comparisons and in the "p" scope item.
  std::string stableId = {};
  std::string path = {};
  std::string name = {};
  std::string scenePath = {};
  std::string source = {};  // where the entry came from: "server" for the catalogue
  std::optional<std::chrono::system_clock::time_point> modifiedAt = {};
  bool isCurrent = false;
  std::optional<std::string> role = {};
  bool canInvite = false;
  std::int64_t memberCount = 0;

  bool operator==(const HostedProject&) const = default;
};

// The value for one catalogue entry. The catalogue tells nothing of modification times, so
// `modifiedAt` stays absent; missing rights and member counts read as none.
HostedProject hostedProject(const HostedProjectSummary& summary);

}  // namespace orvan::editor

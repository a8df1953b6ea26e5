#pragma once

#include <string>

#include "Foundation/Error.h"
#include "ServerClient/VelkConnectionIssue.h"

namespace orvan::editor {

// A request failure that has already been classified: it carries the issue the user will see.
struct VelkClientRequestError {
  VelkConnectionIssue issue;

  const std::string& description() const { return issue.message; }

  bool operator==(const VelkClientRequestError&) const = default;
};

// The issue of a failure that is already classified, unchanged.
VelkConnectionIssue velkConnectionIssue(const VelkClientRequestError& error);

// The issue of any other failure: a transport failure of the HTTP client means the network is
// unavailable; everything else is a failed request. The description becomes the diagnostic.
VelkConnectionIssue velkConnectionIssue(const Error& error);

}  // namespace orvan::editor

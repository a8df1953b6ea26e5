#include "ServerClient/VelkClientRequestError.h"

namespace orvan::editor {

VelkConnectionIssue velkConnectionIssue(const VelkClientRequestError& error) { return error.issue; }

VelkConnectionIssue velkConnectionIssue(const Error& error) {
  const bool transport = error.domain == Error::kTransportDomain;
  return VelkConnectionIssue::classify(0, transport ? "network_unavailable" : "request_failed",
                                       transport, std::nullopt, error.description);
}

}  // namespace orvan::editor

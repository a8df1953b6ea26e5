#include "orvan/wire/Error.h"

namespace orvan::editor {

Error Error::editor(std::int64_t code, std::string description) {
  return Error{std::string(kEditorDomain), code, std::move(description)};
}

Error Error::http(std::int64_t statusCode, std::string description) {
  return Error{std::string(kHttpDomain), statusCode, std::move(description)};
}

Error Error::transport(TransportCode code, std::string description) {
  return Error{std::string(kTransportDomain), code, std::move(description)};
}

Error Error::cancelled() {
  return transport(kTransportCancelled, "cancelled");
}

bool Error::isCancellation() const {
  return domain == kTransportDomain && code == kTransportCancelled;
}

}  // namespace orvan::editor

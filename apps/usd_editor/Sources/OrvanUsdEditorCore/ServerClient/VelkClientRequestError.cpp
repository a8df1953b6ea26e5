#include "ServerClient/VelkClientRequestError.h"

#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/records/ErrorEnvelope.h"

namespace orvan::editor {

VelkConnectionIssue velkConnectionIssue(const VelkClientRequestError& error) {
  return error.issue;
}

VelkConnectionIssue velkConnectionIssue(const Error& error) {
  // The connection worked, but the server sent far more than any answer of its can weigh: that
  // is the server's fault, and retrying later is all the user can do about it.
  if (error.isTransport() && error.code == Error::kTransportResponseTooLarge) {
    return VelkConnectionIssue::classify(0, "server_error", false, std::nullopt, error.description);
  }
  const bool transport = error.isTransport();
  return VelkConnectionIssue::classify(0, transport ? "network_unavailable" : "request_failed",
                                       transport, std::nullopt, error.description);
}

VelkConnectionIssue velkConnectionIssue(const RequestFailure& failure) {
  return failure.classified ? velkConnectionIssue(*failure.classified)
                            : velkConnectionIssue(failure.error);
}

bool isUnauthorizedError(const RequestFailure& failure) {
  if (failure.classified)
    return failure.classified->issue.primaryAction == VelkConnectionAction::login;
  return failure.error.code == 401;
}

Error httpError(std::int64_t statusCode, std::string description) {
  return Error::http(statusCode, std::move(description));
}

std::optional<VelkClientRequestError> connectionFailure(const HttpResponse& response) {
  if (response.statusCode == 304)
    return std::nullopt;
  std::optional<VelkErrorEnvelope> envelope;
  if (auto decoded = decodeJson<VelkErrorEnvelope>(response.body); decoded.ok()) {
    envelope = std::move(*decoded);
  }
  const bool success = response.statusCode >= 200 && response.statusCode <= 299;
  if (success) {
    const bool refusal =
        envelope && envelope->accepted == false && envelope->code && !envelope->code->empty();
    if (!refusal)
      return std::nullopt;
  }
  std::string diagnostic = envelope && envelope->message
                               ? *envelope->message
                               : "HTTP " + std::to_string(response.statusCode);
  std::optional<std::string> code = envelope ? envelope->code : std::nullopt;
  return VelkClientRequestError{VelkConnectionIssue::classify(
      response.statusCode, code ? std::optional<std::string_view>(*code) : std::nullopt, false,
      envelope ? envelope->project : std::nullopt, std::move(diagnostic))};
}

}  // namespace orvan::editor

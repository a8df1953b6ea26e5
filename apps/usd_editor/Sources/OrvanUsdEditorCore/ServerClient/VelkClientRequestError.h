#pragma once

#include <optional>
#include <string>

#include "Platform/HttpClient.h"
#include "ServerClient/VelkConnectionIssue.h"
#include "orvan/wire/Error.h"

namespace orvan::editor {

// A request failure that has already been classified: it carries the issue the user will see.
struct VelkClientRequestError {
  VelkConnectionIssue issue;

  const std::string& description() const { return issue.message; }

  bool operator==(const VelkClientRequestError&) const = default;
};

// Why a call to the project server failed: the error, and the classified issue when the server's
// answer itself said what went wrong.
struct RequestFailure {
  Error error;
  std::optional<VelkClientRequestError> classified = std::nullopt;

  RequestFailure(Error failure) : error(std::move(failure)) {}  // NOLINT: any error is a failure
  RequestFailure(Error failure, VelkClientRequestError issue)
      : error(std::move(failure)), classified(std::move(issue)) {}

  bool isCancellation() const { return !classified && error.isCancellation(); }
  bool operator==(const RequestFailure&) const = default;
};

template <class T>
using RequestResult = Result<T, RequestFailure>;

// The issue of a failure that is already classified, unchanged.
VelkConnectionIssue velkConnectionIssue(const VelkClientRequestError& error);

// The issue of any other failure: a transport failure of the HTTP client means the network is
// unavailable, except an answer beyond its size limit, which is a server problem; everything else
// is a failed request. The description becomes the diagnostic.
VelkConnectionIssue velkConnectionIssue(const Error& error);

VelkConnectionIssue velkConnectionIssue(const RequestFailure& failure);

// Whether the server refused the session: a classified answer that asks for sign-in, or any other
// failure with code 401.
bool isUnauthorizedError(const RequestFailure& failure);

// A failure of the "OrvanUsdEditorHTTP" domain: a request that could not be formed (status 0) or
// got a bad status.
Error httpError(std::int64_t statusCode, std::string description);

// What a server's answer means for the caller: nothing when it may be used (a success, or a 304),
// otherwise the classified failure. A refusal may also come under a success status, as an envelope
// with `accepted` false and a code.
std::optional<VelkClientRequestError> connectionFailure(const HttpResponse& response);

}  // namespace orvan::editor

#include "EditClient/EditReplies.h"

#include <utility>

#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/JsonEncoder.h"
#include "orvan/wire/records/ErrorEnvelope.h"

namespace orvan::engine {
namespace {

// The part of a long message that is kept when a reply has to shrink.
constexpr std::size_t kShortMessageBytes = 4096;

bool isSuccess(long status) {
  return status >= 200 && status < 300;
}

std::string statusText(long status) {
  return "HTTP " + std::to_string(status);
}

// The first bytes of a body that is not what was expected, for the message.
std::string excerpt(std::string_view body) {
  constexpr std::size_t kShown = 200;
  std::string shown(body.substr(0, kShown));
  if (body.size() > kShown)
    shown += "...";
  return shown;
}

std::string unexpectedAnswer(long status, std::string_view body) {
  // Gateways answer 502 to 504 when the service behind them is down, with a page of their own.
  const std::string what = status >= 500 ? "the authoring service is unavailable"
                                         : "the authoring service sent no edit reply";
  std::string message = what + " (" + statusText(status) + ")";
  if (!body.empty())
    message += ": " + excerpt(body);
  return message;
}

}  // namespace

editor::EditClientResponse refusedReply(std::string message) {
  return editor::EditClientResponse{false, 0, std::move(message), std::nullopt};
}

editor::EditClientResponse replyForAnswer(long status, std::string_view body) {
  if (isSuccess(status)) {
    auto reply = editor::decodeJson<editor::EditClientResponse>(body);
    if (reply.ok())
      return std::move(reply).value();
  }
  const auto envelope = editor::decodeJson<editor::VelkErrorEnvelope>(body);
  if (envelope.ok() && envelope->message && envelope->accepted.value_or(false) == false &&
      (envelope->code || !isSuccess(status)))
    return refusedReply(*envelope->message);
  if (envelope.ok() && envelope->code && !isSuccess(status))
    return refusedReply("the authoring service refused the edit: " + *envelope->code + " (" +
                        statusText(status) + ")");
  return refusedReply(unexpectedAnswer(status, body));
}

std::string encodeReplyLine(editor::EditClientResponse reply, std::size_t maxBytes) {
  std::string line = editor::encodeJson(reply);
  if (line.size() <= maxBytes)
    return line;
  if (reply.message.size() > kShortMessageBytes) {
    reply.message.resize(kShortMessageBytes);
    reply.message += "...";
    line = editor::encodeJson(reply);
    if (line.size() <= maxBytes)
      return line;
  }
  if (reply.createdPrims) {
    const std::size_t count = reply.createdPrims->size();
    reply.createdPrims.reset();
    reply.message += " (the " + std::to_string(count) +
                     " created prims are left out of this reply: it would be too long)";
    line = editor::encodeJson(reply);
  }
  return line;
}

}  // namespace orvan::engine

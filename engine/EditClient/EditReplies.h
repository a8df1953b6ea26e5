#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "orvan/wire/records/EditClientResponse.h"

namespace orvan::engine {

// The editor reads a reply line of at most this many bytes (without its line feed).
inline constexpr std::size_t kMaxReplyLineBytes = std::size_t{1} << 20;

editor::EditClientResponse refusedReply(std::string message);

// The reply to one answer of the authoring endpoint. A 2xx answer that decodes as a reply is
// passed on as it is; the server's error envelope (any status) becomes a refusal at revision 0
// with the envelope's message; anything else becomes a refusal that says what came back.
editor::EditClientResponse replyForAnswer(long status, std::string_view body);

// One reply as a line of compact JSON, without the line feed. A reply that would not fit the
// editor's line limit is shortened rather than sent whole and refused: first the message is cut,
// then the created prims are left out (the next stage refresh carries their identities) and the
// message says so.
std::string encodeReplyLine(editor::EditClientResponse reply,
                            std::size_t maxBytes = kMaxReplyLineBytes);

}  // namespace orvan::engine

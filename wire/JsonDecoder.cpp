#include "orvan/wire/JsonDecoder.h"

namespace orvan::editor {

namespace json::detail {

bool DecodeState::failWith(std::string problem, JsonErrorCode code) {
  problem_ = std::move(problem);
  detail_.clear();
  code_ = code;
  return false;
}

bool DecodeState::failMalformed(simdjson::error_code code) {
  problem_ = "malformed JSON";
  code_ = kJsonMalformed;
  detail_ = " (";
  detail_ += simdjson::error_message(code);
  detail_ += ")";
  return false;
}

void DecodeState::prependKey(std::string_view key) {
  reversedPath_.push_back(Segment{std::string(key), 0, false});
}

void DecodeState::prependIndex(std::size_t index) {
  reversedPath_.push_back(Segment{{}, index, true});
}

Error DecodeState::toError(std::string_view rootPath) const {
  // Very deep paths (only a nesting failure makes them) are cut short to keep messages readable.
  constexpr std::size_t kMaxShownSegments = 32;
  std::string path(rootPath);
  std::size_t shown = 0;
  for (auto segment = reversedPath_.rbegin(); segment != reversedPath_.rend(); ++segment) {
    if (++shown > kMaxShownSegments) {
      path += "...";
      break;
    }
    if (segment->isIndex) {
      path += '[';
      path += std::to_string(segment->index);
      path += ']';
    } else {
      if (!path.empty()) {
        path += '.';
      }
      path += segment->key;
    }
  }
  if (path.empty()) {
    path = "(root)";
  }
  return Error{std::string(Error::kJsonDomain), code_, problem_ + " at " + path + detail_};
}

bool isAtEnd(simdjson::ondemand::document& document) {
  const char* location = nullptr;
  return document.current_location().get(location) == simdjson::OUT_OF_BOUNDS;
}

}  // namespace json::detail

}  // namespace orvan::editor

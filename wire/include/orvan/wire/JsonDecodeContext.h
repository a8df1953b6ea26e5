#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace orvan::editor {

// What a record's afterDecode hook can see: which of its keys were present (with a non-null
// value). It can also reject the record, which fails the whole document at the record's path.
//
//   void afterDecode(JsonDecodeContext& context) {
//     hasBoundsMetadata = context.has("boundsCenter") && context.has("boundsDimensions");
//   }
class JsonDecodeContext {
 public:
  JsonDecodeContext(const std::string_view* keys, std::size_t keyCount, std::uint64_t presentMask)
      : keys_(keys), keyCount_(keyCount), presentMask_(presentMask) {}

  bool has(std::string_view key) const;
  void fail(std::string problem) { failure_ = std::move(problem); }
  const std::optional<std::string>& failure() const { return failure_; }

 private:
  const std::string_view* keys_;
  std::size_t keyCount_;
  std::uint64_t presentMask_;
  std::optional<std::string> failure_;
};

}  // namespace orvan::editor

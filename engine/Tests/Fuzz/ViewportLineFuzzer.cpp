// Any byte string as one of the editor's viewport lines: parsing never crashes, a refusal always
// says why, and a parsed command written back reads as the same command, so that the client can
// pass on what it checked without changing its meaning.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "FuzzCheck.h"
#include "ViewportLink/ViewportInwardLine.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace orvan::engine;
  const std::string_view line(reinterpret_cast<const char*>(data), size);
  const ViewportLineParse parsed = parseViewportInwardLine(line);
  FUZZ_CHECK(parsed.command.has_value() != !parsed.error.empty());
  if (!parsed.command)
    return 0;
  const std::string written = encodeViewportCommand(*parsed.command);
  FUZZ_CHECK(written.find('\n') == std::string::npos);
  const ViewportLineParse again = parseViewportInwardLine(written);
  FUZZ_CHECK(again.command.has_value());
  FUZZ_CHECK(*again.command == *parsed.command);
  FUZZ_CHECK(encodeViewportCommand(*again.command) == written);
  return 0;
}

// Any byte string as a layer: reading never throws or crashes, an error points into the text, and
// a layer that reads is written in a form that reads back as an equal layer and writes the same
// bytes again.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "FuzzCheck.h"
#include "UsdText/LayerReader.h"
#include "UsdText/LayerWriter.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace orvan::engine;
  const std::string text(reinterpret_cast<const char*>(data), size);
  const LayerReadResult read = readLayerText("fuzz.usda", text);
  if (!read.ok()) {
    FUZZ_CHECK(read.error.has_value());
    const auto lines = static_cast<std::uint32_t>(std::count(text.begin(), text.end(), '\n'));
    FUZZ_CHECK(read.error->line <= lines + 1);
    FUZZ_CHECK(!read.error->message.empty());
    return 0;
  }
  const std::string written = writeLayer(*read.layer);
  const LayerReadResult again = readLayerText("fuzz.usda", written);
  if (!again.ok())
    std::fprintf(stderr, "%s\n%s\n", written.c_str(), again.error->describe().c_str());
  FUZZ_CHECK(again.ok());
  FUZZ_CHECK(again.layer->equivalentTo(*read.layer));
  FUZZ_CHECK(writeLayer(*again.layer) == written);
  return 0;
}

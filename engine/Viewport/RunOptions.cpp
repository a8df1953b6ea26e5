#include "Viewport/RunOptions.h"

#include <charconv>
#include <cmath>

namespace orvan::engine {
namespace {

bool parseInt(const std::string& text, int low, int high, int& out) {
  int value = 0;
  const auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (code != std::errc() || end != text.data() + text.size() || value < low || value > high) {
    return false;
  }
  out = value;
  return true;
}

bool parseFloat(const std::string& text, float& out) {
  float value = 0;
  const auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (code != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) {
    return false;
  }
  out = value;
  return true;
}

// "1280x720" into its two sides.
bool parseSize(const std::string& text, int& width, int& height) {
  const std::size_t cross = text.find('x');
  if (cross == std::string::npos) {
    return false;
  }
  int w = 0;
  int h = 0;
  if (!parseInt(text.substr(0, cross), 1, 16384, w) ||
      !parseInt(text.substr(cross + 1), 1, 16384, h)) {
    return false;
  }
  width = w;
  height = h;
  return true;
}

}  // namespace

const char* const kRunUsage =
    "usage: orvan_runtime_viewport --scene FILE [--size WIDTHxHEIGHT] [--frames N]\n"
    "                              [--yaw DEGREES] [--pitch DEGREES] [--output FILE.ppm]\n";

RunOptionsResult parseRunOptions(const std::vector<std::string>& arguments) {
  RunOptionsResult result;
  RunOptions& options = result.options;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& name = arguments[i];
    if (name == "--help" || name == "-h") {
      result.help = true;
      return result;
    }
    if (i + 1 >= arguments.size()) {
      result.error = name.starts_with("--") ? name + " needs a value" : "unknown argument " + name;
      return result;
    }
    const std::string& value = arguments[++i];
    bool ok = true;
    if (name == "--scene") {
      options.scene = value;
    } else if (name == "--output") {
      options.output = value;
    } else if (name == "--size") {
      ok = parseSize(value, options.width, options.height);
    } else if (name == "--frames") {
      ok = parseInt(value, 1, 100000, options.frames);
    } else if (name == "--yaw") {
      ok = parseFloat(value, options.yawDegrees);
    } else if (name == "--pitch") {
      ok = parseFloat(value, options.pitchDegrees);
    } else {
      result.error = "unknown argument " + name;
      return result;
    }
    if (!ok) {
      result.error = "bad value for " + name + ": " + value;
      return result;
    }
  }
  if (options.scene.empty()) {
    result.error = "--scene is required";
  }
  return result;
}

}  // namespace orvan::engine

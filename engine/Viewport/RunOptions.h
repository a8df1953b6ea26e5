#pragma once

#include <string>
#include <vector>

namespace orvan::engine {

// What one run of the viewport runtime renders: a scene file seen from an orbit around its
// bounds, some frames of a given size, the last one written as a binary PPM picture.
struct RunOptions {
  std::string scene;
  std::string output;  // empty: render and time only
  int width = 1280;
  int height = 720;
  int frames = 1;
  float yawDegrees = 30.0f;
  float pitchDegrees = 20.0f;
};

struct RunOptionsResult {
  RunOptions options;
  std::string error;  // the reason the arguments were refused; empty when they are fine
  bool help = false;
};

// The arguments after the program name.
RunOptionsResult parseRunOptions(const std::vector<std::string>& arguments);
extern const char* const kRunUsage;

}  // namespace orvan::engine

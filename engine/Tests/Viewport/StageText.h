#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "UsdText/LayerReader.h"
#include "UsdText/StageComposer.h"

namespace orvan::engine::testing {

// A stage composed from one layer's text.
inline std::shared_ptr<Stage> stageOf(const std::string& text) {
  LayerReadResult read = readLayerText("/virtual/viewport_test.usda", "#usda 1.0\n" + text);
  if (!read.ok()) {
    throw std::runtime_error("the test layer does not read: " + read.error->describe());
  }
  StageOpenResult composed = composeStage(read.layer);
  if (!composed.ok()) {
    throw std::runtime_error("the test layer does not compose");
  }
  return composed.stage;
}

// A cube of edge 1 under /World with the given colour and translation.
inline std::string cubeText(const std::string& name, const std::string& translate,
                            const std::string& color = "(0.9, 0.1, 0.1)") {
  return "def Cube \"" + name + "\" {\n double size = 1\n color3f[] primvars:displayColor = [" +
         color + "]\n double3 xformOp:translate = " + translate +
         "\n uniform token[] xformOpOrder = [\"xformOp:translate\"]\n}\n";
}

inline std::string worldText(const std::string& children,
                             const std::string& background = "(0.05, 0.05, 0.05)") {
  return "def Xform \"World\" {\n custom color3f orvan:backgroundColor = " + background +
         "\n custom color3f orvan:ambientColor = (0.3, 0.3, 0.3)\n" + children + "}\n";
}

}  // namespace orvan::engine::testing

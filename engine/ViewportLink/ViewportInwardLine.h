#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

// The editor's lines to the viewport, as typed commands. Fields are separated by '|'; free text
// never holds '|', a line feed or a carriage return (the editor replaces each with a blank), so
// there is no escaping. Reals are decimal text ("2.0", "-1e-3"), booleans "0" or "1".
namespace orvan::engine {

struct ViewportOpen {
  std::string scene;    // an absolute path, or a URL
  std::string address;  // the project server; empty: the scene is read from the disk
  std::string clientId;
  int widthPx = 0;
  int heightPx = 0;
  double scale = 1.0;
  bool playing = false;
  std::string workspace;
  std::string authToken;
  std::string projectId;
  bool external = true;
  bool forceReload = false;
  bool operator==(const ViewportOpen&) const = default;
};
struct ViewportResize {
  int widthPx = 0;
  int heightPx = 0;
  double scale = 1.0;
  bool operator==(const ViewportResize&) const = default;
};
struct ViewportClose {
  bool operator==(const ViewportClose&) const = default;
};
struct ViewportAuth {
  std::string token;
  bool operator==(const ViewportAuth&) const = default;
};
struct ViewportCameraMode {
  std::string mode;  // "free" or "game"
  bool operator==(const ViewportCameraMode&) const = default;
};
struct ViewportTool {
  std::string tool;   // "translate", "rotate", "scale"
  std::string space;  // "world", "local"
  bool operator==(const ViewportTool&) const = default;
};
struct ViewportSimulation {
  bool playing = false;
  bool reset = false;
  std::uint64_t serial = 0;
  bool operator==(const ViewportSimulation&) const = default;
};
struct ViewportSelection {
  std::vector<std::string> paths;
  bool operator==(const ViewportSelection&) const = default;
};
struct ViewportInstancedPrims {
  std::vector<std::string> paths;
  bool operator==(const ViewportInstancedPrims&) const = default;
};
struct ViewportFrameTarget {
  bool all = false;  // false: the selection
  bool operator==(const ViewportFrameTarget&) const = default;
};
struct ViewportPropertyPreview {
  std::string entityPath;
  std::string componentType;
  std::string propertyName;
  std::string value;
  bool clear = false;
  bool operator==(const ViewportPropertyPreview&) const = default;
};
struct ViewportCommentAnchor {
  std::string path;
  std::uint64_t count = 0;
  bool active = false;
  bool operator==(const ViewportCommentAnchor&) const = default;
};
struct ViewportReviewComments {
  std::vector<ViewportCommentAnchor> anchors;
  bool operator==(const ViewportReviewComments&) const = default;
};
struct ViewportDebug {
  std::string name;  // "rigid-body-shapes", "viewport-grid"
  bool on = false;
  bool operator==(const ViewportDebug&) const = default;
};
enum class ViewportPointerPhase { move, down, up };
struct ViewportPointer {
  ViewportPointerPhase phase = ViewportPointerPhase::move;
  double x = 0.0;          // pixels from the left
  double y = 0.0;          // pixels from the bottom
  int button = 0;          // 0 left, 1 other, 2 right
  unsigned modifiers = 0;  // 1 shift, 2 control, 4 option, 8 command
  bool operator==(const ViewportPointer&) const = default;
};
struct ViewportGesture {
  std::string kind;  // "pan", "zoom", "turntable", "orbit"
  double dx = 0.0;
  double dy = 0.0;
  bool operator==(const ViewportGesture&) const = default;
};
struct ViewportKey {
  bool down = false;
  std::uint16_t keyCode = 0;
  std::string characters;
  unsigned modifiers = 0;
  bool operator==(const ViewportKey&) const = default;
};
struct ViewportDropHover {
  double x = 0.0;
  double y = 0.0;
  std::array<double, 3> center = {0.0, 0.0, 0.0};
  std::array<double, 3> dimensions = {0.0, 0.0, 0.0};
  std::string requestId;
  std::uint64_t assetId = 0;
  std::uint64_t contentHash = 0;
  std::string contentUrl;
  bool targetOnly = false;
  bool operator==(const ViewportDropHover&) const = default;
};
struct ViewportDropCommit {
  bool operator==(const ViewportDropCommit&) const = default;
};
struct ViewportDropClear {
  bool operator==(const ViewportDropClear&) const = default;
};
struct ViewportCameraQuery {
  bool operator==(const ViewportCameraQuery&) const = default;
};
struct ViewportFrameAck {
  std::uint64_t frameIndex = 0;
  std::uint32_t surfaceId = 0;
  bool operator==(const ViewportFrameAck&) const = default;
};
// The editor's snap settings, a line of its own making passed on as it is.
struct ViewportSnapSettings {
  std::string word;                 // the first field, which starts with "snap"
  std::vector<std::string> fields;  // after the first word
  bool operator==(const ViewportSnapSettings&) const = default;
};

using ViewportCommand =
    std::variant<ViewportOpen, ViewportResize, ViewportClose, ViewportAuth, ViewportCameraMode,
                 ViewportTool, ViewportSimulation, ViewportSelection, ViewportInstancedPrims,
                 ViewportFrameTarget, ViewportPropertyPreview, ViewportReviewComments,
                 ViewportDebug, ViewportPointer, ViewportGesture, ViewportKey, ViewportDropHover,
                 ViewportDropCommit, ViewportDropClear, ViewportCameraQuery, ViewportFrameAck,
                 ViewportSnapSettings>;

// A line parsed into its command, or why it was refused (`error` then names the line's kind and
// what is wrong with it).
struct ViewportLineParse {
  std::optional<ViewportCommand> command;
  std::string error;
};

inline constexpr int kMaxViewportPixels = 16384;  // per side

// One line without its line feed. A single carriage return at its end is dropped.
ViewportLineParse parseViewportInwardLine(std::string_view line);

// The command as the editor writes it (the parser reads it back to an equal command).
std::string encodeViewportCommand(const ViewportCommand& command);

// The shortest decimal text that reads back to the same double, always with a point or exponent.
std::string formatViewportReal(double value);

}  // namespace orvan::engine

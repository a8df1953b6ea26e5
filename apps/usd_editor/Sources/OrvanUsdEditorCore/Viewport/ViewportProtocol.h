#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "orvan/wire/Error.h"
#include "orvan/wire/records/ViewportClientLine.h"

// The viewport client's line protocol: '|'-separated text lines inward (editor to client), JSON
// objects outward, one a line. Pure functions: the host decides when a line is sent.
namespace orvan::editor {

// A comment anchor the viewport draws at a prim.
struct ReviewCommentAnchor {
  std::string path;
  int count = 0;
  bool active = false;
  bool operator==(const ReviewCommentAnchor&) const = default;
};

// Where the viewport drew a comment anchor, in its own pixels.
struct ReviewCommentMarker {
  std::string path;
  double x = 0;
  double y = 0;
  int count = 0;
  bool active = false;
  bool operator==(const ReviewCommentMarker&) const = default;
};

// A transient property value the viewport shows before it is committed.
struct ViewportPropertyPreview {
  std::string entityPath, componentType, propertyName, value;
  bool clear = false;
  bool operator==(const ViewportPropertyPreview&) const = default;
};

// A gizmo drag's new value of a Transform property ("translation", "rotation" or "scale").
struct ViewportTransformCommit {
  std::string entityPath;
  std::string propertyName;
  std::vector<double> values;
  std::string previewSessionId;
  bool final = false;
  bool duplicateRequested = false;
  bool operator==(const ViewportTransformCommit&) const = default;
};

// Where a dropped asset would land.
struct ViewportDropPlacement {
  bool valid = false;
  std::string entityPath;
  std::string parentPath = "/World";
  std::vector<double> translation;
  std::vector<double> surfacePosition;
  std::vector<double> surfaceNormal;
  bool operator==(const ViewportDropPlacement&) const = default;
};

// The viewport's free camera.
struct FreeCameraState {
  double targetX = 0, targetY = 0, targetZ = 0, yaw = 0, pitch = 0, distance = 0;
  bool operator==(const FreeCameraState&) const = default;
};

enum class PointerPhase { move, down, up };

// Modifier bits of pointer and key lines.
inline constexpr unsigned kViewportModifierShift = 1;
inline constexpr unsigned kViewportModifierControl = 2;
inline constexpr unsigned kViewportModifierOption = 4;
inline constexpr unsigned kViewportModifierCommand = 8;

// --- Fields and numbers ---

// Every '|', line feed and carriage return replaced by one blank: the wire has no escape.
std::string sanitisedField(std::string_view text);
// The shortest decimal text that reads back to the same double, with a point when it would
// otherwise look like an integer ("2.0", "0.1", "1e+20").
std::string formatViewportReal(double value);

// A view size in pixels: the rounded products of size and scale, each at least 1.
struct ViewportPixelSize {
  int widthPx = 0;
  int heightPx = 0;
  double scale = 1.0;
  bool operator==(const ViewportPixelSize&) const = default;
};
ViewportPixelSize viewportPixelSize(double widthPoints, double heightPoints, double scale);

// A point in view points with a top-left origin as the client reads it: clamped to the view,
// origin at the bottom left, times the scale.
struct ViewportPixelPoint {
  double x = 0;
  double y = 0;
  bool operator==(const ViewportPixelPoint&) const = default;
};
ViewportPixelPoint viewportPixelPoint(double xPoints, double yPoints, double widthPoints,
                                      double heightPoints, double scale);

// The scene text of the open line: URLs of the known schemes unchanged, absolute paths as they
// are, anything else relative to `workspaceRoot`. `scenePath` is trimmed first.
std::string viewportSceneURI(std::string_view scenePath, std::string_view workspaceRoot);

// --- Inward lines (no line feed) ---

struct ViewportOpenFields {
  std::string scene;
  std::string address;
  std::string clientId;  // "-viewport" is appended
  int widthPx = 0;
  int heightPx = 0;
  double scale = 1.0;
  bool playing = false;
  std::string workspace;
  std::string authToken;
  std::string projectId;
  bool external = true;  // frames as shared surfaces
  bool forceReload = false;
};
std::string encodeOpenLine(const ViewportOpenFields& fields);
std::string encodeResizeLine(const ViewportPixelSize& size);
std::string encodeAuthLine(std::string_view token);
std::string encodeCameraLine(std::string_view mode);
std::string encodeToolLine(std::string_view tool, std::string_view space);
std::string encodeSimulationLine(bool playing, bool reset, std::uint64_t serial);
std::string encodeSelectionLine(const std::vector<std::string>& paths);
std::string encodeInstancedPrimsLine(const std::vector<std::string>& paths);
std::string encodeFrameLine(std::string_view target);
std::string encodePropertyPreviewLine(const ViewportPropertyPreview& preview);
std::string encodeReviewCommentsLine(const std::vector<ReviewCommentAnchor>& anchors);
std::string encodeRigidBodyDebugLine(bool on);
std::string encodeViewportGridLine(bool on);
// Button 0 left (and plain moves), 1 other, 2 right.
std::string encodePointerLine(PointerPhase phase, ViewportPixelPoint point, int button,
                              unsigned modifiers);
std::string encodeGestureLine(std::string_view kind, double dx, double dy);
std::string encodeKeyLine(bool down, std::uint16_t keyCode, std::string_view characters,
                          unsigned modifiers);
struct ViewportDropHover {
  ViewportPixelPoint point;
  double cx = 0, cy = 0, cz = 0;
  double dx = 0, dy = 0, dz = 0;
  std::string requestId;
  std::uint64_t assetId = 0;
  std::uint64_t contentHash = 0;
  std::string contentURL;
  bool targetOnly = false;
};
std::string encodeDropHoverLine(const ViewportDropHover& hover);
std::string encodeFrameAckLine(std::uint64_t frameIndex, std::uint32_t surfaceId);
inline constexpr std::string_view kViewportCloseLine = "close";
inline constexpr std::string_view kViewportDropCommitLine = "drop-commit";
inline constexpr std::string_view kViewportDropClearLine = "drop-clear";
inline constexpr std::string_view kViewportCameraQueryLine = "camera-query";

// --- Outward lines ---

// One output line (no line feed) as a record. Lenient: a field of the wrong type is left out
// rather than failing the line; only a line that is not a JSON object with a string `type`
// fails.
Result<ViewportClientLine> decodeViewportClientLine(std::string_view line);

// The "markers" text of a "reviewCommentMarkers" line: records separated by line feeds, fields
// path|x|y|count|active. Short records, empty paths and non-numeric numbers are skipped.
std::vector<ReviewCommentMarker> parseReviewCommentMarkers(std::string_view markers);

// The free camera of a "freeCameraState" line, when all six values are there.
std::optional<FreeCameraState> freeCameraStateFromLine(const ViewportClientLine& line);
// The placement of a "dropTarget" line; missing fields keep their defaults.
ViewportDropPlacement dropPlacementFromLine(const ViewportClientLine& line);

// Output chunks of the client gathered on its reader thread until the main thread takes them, so
// that a burst of chunks costs one hop to the main thread.
class ViewportClientOutputAccumulator {
 public:
  // Appends under the lock; true when no delivery was scheduled yet (the caller schedules one).
  bool append(std::string_view text);
  // The text gathered so far, emptied; the next append schedules a new delivery.
  std::string take();
  void clear();

 private:
  std::mutex lock_;
  std::string pendingText_;
  bool deliveryScheduled_ = false;
};

}  // namespace orvan::editor

#include "Viewport/ViewportProtocol.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string_view>
#include <tuple>
#include <utility>

#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/JsonEncoder.h"
#include "orvan/wire/Numbers.h"
#include "orvan/wire/Text.h"

namespace orvan::editor {

namespace {

std::string_view bit(bool on) {
  return on ? "1" : "0";
}

// `head` followed by each sanitised non-empty path; the bare word for an empty list.
std::string encodePathList(std::string_view head, const std::vector<std::string>& paths) {
  std::string line(head);
  for (const std::string& path : paths) {
    if (path.empty())
      continue;
    line += '|';
    line += sanitisedField(path);
  }
  return line;
}

std::vector<std::string_view> splitFields(std::string_view text, char separator) {
  std::vector<std::string_view> fields;
  std::size_t start = 0;
  while (true) {
    const std::size_t end = text.find(separator, start);
    if (end == std::string_view::npos) {
      fields.push_back(text.substr(start));
      return fields;
    }
    fields.push_back(text.substr(start, end - start));
    start = end + 1;
  }
}

std::optional<double> parseReal(std::string_view text) {
  const std::string_view trimmedText = trimWhitespaceAndNewlines(text);
  double value = 0;
  const char* end = trimmedText.data() + trimmedText.size();
  const auto [pointer, error] = std::from_chars(trimmedText.data(), end, value);
  if (error != std::errc() || pointer != end || trimmedText.empty() || !std::isfinite(value))
    return std::nullopt;
  return value;
}

std::optional<int> parseCount(std::string_view text) {
  const std::optional<double> value = parseReal(text);
  if (!value || *value < INT32_MIN || *value > INT32_MAX)
    return std::nullopt;
  return static_cast<int>(*value);
}

// Whether `value` alone decodes as the record's field `key`: a line with the field's wrong JSON
// type must lose that field only.
bool fieldDecodes(std::string_view key, const JsonValue& value) {
  std::string probe = R"({"type":"",)";
  probe += encodeJson(std::string(key));
  probe += ':';
  probe += encodeJson(value);
  probe += '}';
  return static_cast<bool>(decodeJson<ViewportClientLine>(probe));
}

Result<ViewportClientLine> decodeLeniently(std::string_view line, Error strictError) {
  auto generic = decodeJson<JsonValue>(line);
  if (!generic)
    return strictError;
  const JsonValue::Object* object = generic->asObject();
  if (!object)
    return strictError;
  const JsonValue* type = generic->find("type");
  if (!type || !type->isString())
    return strictError;
  JsonValue::Object kept;
  for (const auto& [key, value] : *object) {
    if (key == "type" || fieldDecodes(key, value))
      kept.emplace_back(key, value);
  }
  return decodeJson<ViewportClientLine>(encodeJson(JsonValue(std::move(kept))));
}

}  // namespace

std::string sanitisedField(std::string_view text) {
  std::string out(text);
  std::replace_if(
      out.begin(), out.end(), [](char c) { return c == '|' || c == '\n' || c == '\r'; }, ' ');
  return out;
}

std::string formatViewportReal(double value) {
  return formatShortestDouble(value);
}

ViewportPixelSize viewportPixelSize(double widthPoints, double heightPoints, double scale) {
  const auto pixels = [scale](double points) {
    const double rounded = std::round(points * scale);
    if (!(rounded >= 1))
      return 1;
    return rounded > INT32_MAX ? INT32_MAX : static_cast<int>(rounded);
  };
  return {pixels(widthPoints), pixels(heightPoints), scale};
}

ViewportPixelPoint viewportPixelPoint(double xPoints, double yPoints, double widthPoints,
                                      double heightPoints, double scale) {
  const auto clamp = [](double value, double limit) {
    if (!(value > 0))
      return 0.0;
    return std::min(value, std::max(limit, 0.0));
  };
  const double x = clamp(xPoints, widthPoints);
  const double y = clamp(yPoints, heightPoints);
  return {x * scale, (std::max(heightPoints, 0.0) - y) * scale};
}

std::string viewportSceneURI(std::string_view scenePath, std::string_view workspaceRoot) {
  const std::string scene = trimmed(scenePath);
  for (const std::string_view scheme : {"grpc://", "grpcs://", "http://", "https://"}) {
    if (hasPrefix(scene, scheme))
      return scene;
  }
  if (hasPrefix(scene, "/"))
    return scene;
  return joinPath(workspaceRoot, scene);
}

std::string encodeOpenLine(const ViewportOpenFields& fields) {
  std::string line = "open|";
  line += fields.scene;
  line += '|';
  line += fields.address;
  line += '|';
  line += fields.clientId;
  line += "-viewport|";
  line += std::to_string(fields.widthPx);
  line += '|';
  line += std::to_string(fields.heightPx);
  line += '|';
  line += formatViewportReal(fields.scale);
  line += "|1|";
  line += bit(fields.playing);
  line += "|||";
  line += sanitisedField(fields.workspace);
  line += '|';
  line += sanitisedField(fields.authToken);
  line += '|';
  line += sanitisedField(fields.projectId);
  line += '|';
  line += bit(fields.external);
  line += '|';
  line += bit(fields.forceReload);
  return line;
}

std::string encodeResizeLine(const ViewportPixelSize& size) {
  return "resize|" + std::to_string(size.widthPx) + '|' + std::to_string(size.heightPx) + '|' +
         formatViewportReal(size.scale);
}

std::string encodeAuthLine(std::string_view token) {
  return "auth|" + sanitisedField(token);
}

std::string encodeCameraLine(std::string_view mode) {
  return "camera|" + sanitisedField(mode);
}

std::string encodeToolLine(std::string_view tool, std::string_view space) {
  return "tool|" + sanitisedField(tool) + '|' + sanitisedField(space);
}

std::string encodeSimulationLine(bool playing, bool reset, std::uint64_t serial) {
  return std::string("simulation|") + std::string(bit(playing)) + '|' + (reset ? "reset" : "0") +
         '|' + std::to_string(serial);
}

std::string encodeSelectionLine(const std::vector<std::string>& paths) {
  return encodePathList("selection", paths);
}

std::string encodeInstancedPrimsLine(const std::vector<std::string>& paths) {
  return encodePathList("instanced-prims", paths);
}

std::string encodeFrameLine(std::string_view target) {
  return "frame|" + sanitisedField(target);
}

std::string encodePropertyPreviewLine(const ViewportPropertyPreview& preview) {
  return "property-preview|" + sanitisedField(preview.entityPath) + '|' +
         sanitisedField(preview.componentType) + '|' + sanitisedField(preview.propertyName) + '|' +
         sanitisedField(preview.value) + '|' + std::string(bit(preview.clear));
}

std::string encodeReviewCommentsLine(const std::vector<ReviewCommentAnchor>& anchors) {
  std::string line = "review-comments";
  for (const ReviewCommentAnchor& anchor : anchors) {
    line += '|';
    line += sanitisedField(anchor.path);
    line += '|';
    line += std::to_string(std::max(anchor.count, 0));
    line += '|';
    line += bit(anchor.active);
  }
  return line;
}

std::string encodeRigidBodyDebugLine(bool on) {
  return std::string("debug|rigid-body-shapes|") + std::string(bit(on));
}

std::string encodeViewportGridLine(bool on) {
  return std::string("debug|viewport-grid|") + std::string(bit(on));
}

std::string encodePointerLine(PointerPhase phase, ViewportPixelPoint point, int button,
                              unsigned modifiers) {
  std::string line;
  switch (phase) {
    case PointerPhase::move:
      line = "move|";
      break;
    case PointerPhase::down:
      line = "down|";
      break;
    case PointerPhase::up:
      line = "up|";
      break;
  }
  line += formatViewportReal(point.x);
  line += '|';
  line += formatViewportReal(point.y);
  line += '|';
  line += std::to_string(button);
  line += '|';
  line += std::to_string(modifiers);
  return line;
}

std::string encodeGestureLine(std::string_view kind, double dx, double dy) {
  return "gesture|" + sanitisedField(kind) + '|' + formatViewportReal(dx) + '|' +
         formatViewportReal(dy);
}

std::string encodeKeyLine(bool down, std::uint16_t keyCode, std::string_view characters,
                          unsigned modifiers) {
  std::string chars(characters);
  std::erase(chars, '|');
  std::replace_if(
      chars.begin(), chars.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
  return std::string("key|") + (down ? "down" : "up") + '|' + std::to_string(keyCode) + '|' +
         chars + '|' + std::to_string(modifiers);
}

std::string encodeDropHoverLine(const ViewportDropHover& hover) {
  std::string line = "drop-hover";
  for (const double value :
       {hover.point.x, hover.point.y, hover.cx, hover.cy, hover.cz, hover.dx, hover.dy, hover.dz}) {
    line += '|';
    line += formatViewportReal(value);
  }
  line += '|';
  line += sanitisedField(hover.requestId);
  line += '|';
  line += std::to_string(hover.assetId);
  line += '|';
  line += std::to_string(hover.contentHash);
  line += '|';
  line += sanitisedField(hover.contentURL);
  line += '|';
  line += bit(hover.targetOnly);
  return line;
}

std::string encodeFrameAckLine(std::uint64_t frameIndex, std::uint32_t surfaceId) {
  return "frame-ack|" + std::to_string(frameIndex) + '|' + std::to_string(surfaceId);
}

Result<ViewportClientLine> decodeViewportClientLine(std::string_view line) {
  // One parser per thread: frame lines come at the display's rate.
  thread_local JsonDecoder decoder;
  const simdjson::padded_string padded(line);
  auto strict = decoder.decode<ViewportClientLine>(padded);
  if (strict)
    return strict;
  return decodeLeniently(line, strict.error());
}

std::vector<ReviewCommentMarker> parseReviewCommentMarkers(std::string_view markers) {
  std::vector<ReviewCommentMarker> parsed;
  for (const std::string_view record : splitFields(markers, '\n')) {
    const std::vector<std::string_view> fields = splitFields(record, '|');
    if (fields.size() < 5 || fields[0].empty())
      continue;
    const std::optional<double> x = parseReal(fields[1]);
    const std::optional<double> y = parseReal(fields[2]);
    const std::optional<int> count = parseCount(fields[3]);
    if (!x || !y || !count)
      continue;
    const std::string_view active = trimWhitespaceAndNewlines(fields[4]);
    parsed.push_back({std::string(fields[0]), *x, *y, *count, active == "1" || active == "true"});
  }
  return parsed;
}

std::optional<FreeCameraState> freeCameraStateFromLine(const ViewportClientLine& line) {
  if (!line.targetX || !line.targetY || !line.targetZ || !line.yaw || !line.pitch || !line.distance)
    return std::nullopt;
  return FreeCameraState{*line.targetX, *line.targetY, *line.targetZ,
                         *line.yaw,     *line.pitch,   *line.distance};
}

ViewportDropPlacement dropPlacementFromLine(const ViewportClientLine& line) {
  ViewportDropPlacement placement;
  placement.valid = line.valid.value_or(false);
  placement.entityPath = line.entityPath.value_or("");
  placement.parentPath = line.parentPath.value_or("/World");
  placement.translation = line.translation.value_or(std::vector<double>{});
  placement.surfacePosition = line.surfacePosition.value_or(std::vector<double>{});
  placement.surfaceNormal = line.surfaceNormal.value_or(std::vector<double>{});
  return placement;
}

bool ViewportClientOutputAccumulator::append(std::string_view text) {
  std::lock_guard guard(lock_);
  pendingText_.append(text);
  if (deliveryScheduled_)
    return false;
  deliveryScheduled_ = true;
  return true;
}

std::string ViewportClientOutputAccumulator::take() {
  std::lock_guard guard(lock_);
  deliveryScheduled_ = false;
  return std::exchange(pendingText_, std::string());
}

void ViewportClientOutputAccumulator::clear() {
  std::lock_guard guard(lock_);
  pendingText_.clear();
}

}  // namespace orvan::editor

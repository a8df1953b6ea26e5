#include "ViewportLink/ViewportInwardLine.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <type_traits>

namespace orvan::engine {
namespace {

using Fields = std::vector<std::string_view>;

Fields splitFields(std::string_view line) {
  Fields fields;
  while (true) {
    const std::size_t bar = line.find('|');
    fields.push_back(line.substr(0, bar));
    if (bar == std::string_view::npos)
      return fields;
    line.remove_prefix(bar + 1);
  }
}

// A refusal that says which line and why.
struct Refusal {
  std::string reason;
};

template <class T>
using Parsed = std::variant<T, Refusal>;

std::optional<std::uint64_t> unsignedField(std::string_view text, std::uint64_t maximum) {
  std::uint64_t value = 0;
  if (text.empty())
    return std::nullopt;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value > maximum)
    return std::nullopt;
  return value;
}

std::optional<double> realField(std::string_view text) {
  double value = 0.0;
  if (text.empty())
    return std::nullopt;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value))
    return std::nullopt;
  return value;
}

std::optional<bool> flagField(std::string_view text) {
  if (text == "1")
    return true;
  if (text == "0")
    return false;
  return std::nullopt;
}

std::string quoted(std::string_view text) {
  constexpr std::size_t kShown = 40;
  std::string shown(text.substr(0, kShown));
  for (char& c : shown) {
    if (static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) >= 0x7f)
      c = '?';
  }
  return "'" + shown + (text.size() > kShown ? "...'" : "'");
}

// Reads the fields of one kind of line; the first refusal wins.
class FieldReader {
 public:
  FieldReader(const Fields& fields) : fields_(fields) {}

  std::uint64_t unsignedAt(std::size_t index, const char* name, std::uint64_t maximum) {
    const std::optional<std::uint64_t> value = unsignedField(fields_[index], maximum);
    if (!value)
      refuse(std::string(name) + " must be a whole number from 0 to " + std::to_string(maximum) +
             ", found " + quoted(fields_[index]));
    return value.value_or(0);
  }
  int pixelsAt(std::size_t index, const char* name) {
    const std::uint64_t value = unsignedAt(index, name, kMaxViewportPixels);
    if (value == 0 && reason_.empty())
      refuse(std::string(name) + " must be at least 1");
    return static_cast<int>(value);
  }
  double realAt(std::size_t index, const char* name) {
    const std::optional<double> value = realField(fields_[index]);
    if (!value)
      refuse(std::string(name) + " must be a finite number, found " + quoted(fields_[index]));
    return value.value_or(0.0);
  }
  double scaleAt(std::size_t index) {
    const double value = realAt(index, "scale");
    if (reason_.empty() && (value <= 0.0 || value > 16.0))
      refuse("scale must be above 0 and at most 16, found " + quoted(fields_[index]));
    return value;
  }
  bool flagAt(std::size_t index, const char* name) {
    const std::optional<bool> value = flagField(fields_[index]);
    if (!value)
      refuse(std::string(name) + " must be 0 or 1, found " + quoted(fields_[index]));
    return value.value_or(false);
  }
  std::string wordAt(std::size_t index, const char* name,
                     std::initializer_list<std::string_view> allowed) {
    for (std::string_view word : allowed) {
      if (fields_[index] == word)
        return std::string(word);
    }
    std::string list;
    for (std::string_view word : allowed)
      list += (list.empty() ? "" : ", ") + std::string(word);
    refuse(std::string(name) + " must be one of " + list + ", found " + quoted(fields_[index]));
    return {};
  }
  std::string textAt(std::size_t index) const { return std::string(fields_[index]); }

  void refuse(std::string reason) {
    if (reason_.empty())
      reason_ = std::move(reason);
  }
  const std::string& reason() const { return reason_; }

 private:
  const Fields& fields_;
  std::string reason_;
};

template <class T>
ViewportLineParse finish(const FieldReader& reader, T command) {
  if (!reader.reason().empty())
    return {.command = std::nullopt, .error = reader.reason()};
  return {.command = ViewportCommand(std::move(command)), .error = {}};
}

ViewportLineParse refused(std::string reason) {
  return {.command = std::nullopt, .error = reason};
}

std::vector<std::string> pathList(const Fields& fields) {
  std::vector<std::string> paths;
  for (std::size_t i = 1; i < fields.size(); ++i) {
    if (!fields[i].empty())
      paths.emplace_back(fields[i]);
  }
  return paths;
}

ViewportLineParse parseOpen(const Fields& f) {
  FieldReader r(f);
  ViewportOpen open;
  open.scene = r.textAt(1);
  if (open.scene.empty())
    r.refuse("the scene is empty");
  open.address = r.textAt(2);
  open.clientId = r.textAt(3);
  open.widthPx = r.pixelsAt(4, "width");
  open.heightPx = r.pixelsAt(5, "height");
  open.scale = r.scaleAt(6);
  open.playing = r.flagAt(8, "playing");
  open.workspace = r.textAt(11);
  open.authToken = r.textAt(12);
  open.projectId = r.textAt(13);
  open.external = r.flagAt(14, "external");
  open.forceReload = r.flagAt(15, "forceReload");
  return finish(r, std::move(open));
}

ViewportLineParse parsePointer(const Fields& f, ViewportPointerPhase phase) {
  FieldReader r(f);
  ViewportPointer pointer{.phase = phase};
  pointer.x = r.realAt(1, "x");
  pointer.y = r.realAt(2, "y");
  pointer.button = static_cast<int>(r.unsignedAt(3, "button", 2));
  pointer.modifiers = static_cast<unsigned>(r.unsignedAt(4, "modifiers", 0xffff));
  return finish(r, pointer);
}

ViewportLineParse parseReviewComments(const Fields& f) {
  if ((f.size() - 1) % 3 != 0)
    return refused("review-comments needs path, count and active for every anchor");
  FieldReader r(f);
  ViewportReviewComments comments;
  for (std::size_t i = 1; i + 2 < f.size(); i += 3) {
    ViewportCommentAnchor anchor{.path = r.textAt(i)};
    anchor.count = r.unsignedAt(i + 1, "count", std::numeric_limits<std::uint32_t>::max());
    anchor.active = r.flagAt(i + 2, "active");
    comments.anchors.push_back(std::move(anchor));
  }
  return finish(r, std::move(comments));
}

ViewportLineParse parseDropHover(const Fields& f) {
  FieldReader r(f);
  ViewportDropHover hover;
  hover.x = r.realAt(1, "x");
  hover.y = r.realAt(2, "y");
  for (std::size_t axis = 0; axis < 3; ++axis) {
    hover.center[axis] = r.realAt(3 + axis, "centre");
    hover.dimensions[axis] = r.realAt(6 + axis, "dimensions");
  }
  hover.requestId = r.textAt(9);
  hover.assetId = r.unsignedAt(10, "assetId", std::numeric_limits<std::uint64_t>::max());
  hover.contentHash = r.unsignedAt(11, "contentHash", std::numeric_limits<std::uint64_t>::max());
  hover.contentUrl = r.textAt(12);
  hover.targetOnly = r.flagAt(13, "targetOnly");
  return finish(r, std::move(hover));
}

// Fields each kind takes, the word included; 0 for lists of any length.
struct Kind {
  std::string_view word;
  std::size_t fields;
};
constexpr Kind kKinds[] = {
    {"open", 16},
    {"resize", 4},
    {"close", 1},
    {"auth", 2},
    {"camera", 2},
    {"tool", 3},
    {"simulation", 4},
    {"selection", 0},
    {"instanced-prims", 0},
    {"frame", 2},
    {"property-preview", 6},
    {"review-comments", 0},
    {"debug", 3},
    {"move", 5},
    {"down", 5},
    {"up", 5},
    {"gesture", 4},
    {"key", 5},
    {"drop-hover", 14},
    {"drop-commit", 1},
    {"drop-clear", 1},
    {"camera-query", 1},
    {"frame-ack", 3},
};

ViewportLineParse parseKnown(std::string_view word, const Fields& f) {
  FieldReader r(f);
  if (word == "open")
    return parseOpen(f);
  if (word == "resize") {
    ViewportResize resize{.widthPx = r.pixelsAt(1, "width"), .heightPx = r.pixelsAt(2, "height")};
    resize.scale = r.scaleAt(3);
    return finish(r, resize);
  }
  if (word == "close")
    return finish(r, ViewportClose{});
  if (word == "auth")
    return finish(r, ViewportAuth{r.textAt(1)});
  if (word == "camera")
    return finish(r, ViewportCameraMode{r.wordAt(1, "camera mode", {"free", "game"})});
  if (word == "tool") {
    ViewportTool tool{.tool = r.wordAt(1, "tool", {"translate", "rotate", "scale"}), .space = {}};
    tool.space = r.wordAt(2, "space", {"world", "local"});
    return finish(r, std::move(tool));
  }
  if (word == "simulation") {
    ViewportSimulation simulation{.playing = r.flagAt(1, "playing")};
    simulation.reset = r.wordAt(2, "reset", {"reset", "0"}) == "reset";
    simulation.serial = r.unsignedAt(3, "serial", std::numeric_limits<std::uint64_t>::max());
    return finish(r, simulation);
  }
  if (word == "selection")
    return finish(r, ViewportSelection{pathList(f)});
  if (word == "instanced-prims")
    return finish(r, ViewportInstancedPrims{pathList(f)});
  if (word == "frame")
    return finish(r,
                  ViewportFrameTarget{r.wordAt(1, "frame target", {"selection", "all"}) == "all"});
  if (word == "property-preview") {
    ViewportPropertyPreview preview{.entityPath = r.textAt(1),
                                    .componentType = r.textAt(2),
                                    .propertyName = r.textAt(3),
                                    .value = r.textAt(4)};
    preview.clear = r.flagAt(5, "clear");
    if (preview.entityPath.empty() || preview.propertyName.empty())
      r.refuse("the prim path and the property name must not be empty");
    return finish(r, std::move(preview));
  }
  if (word == "review-comments")
    return parseReviewComments(f);
  if (word == "debug") {
    ViewportDebug debug{.name =
                            r.wordAt(1, "debug setting", {"rigid-body-shapes", "viewport-grid"})};
    debug.on = r.flagAt(2, "on");
    return finish(r, std::move(debug));
  }
  if (word == "move")
    return parsePointer(f, ViewportPointerPhase::move);
  if (word == "down")
    return parsePointer(f, ViewportPointerPhase::down);
  if (word == "up")
    return parsePointer(f, ViewportPointerPhase::up);
  if (word == "gesture") {
    ViewportGesture gesture{.kind = r.wordAt(1, "gesture", {"pan", "zoom", "turntable", "orbit"})};
    gesture.dx = r.realAt(2, "dx");
    gesture.dy = r.realAt(3, "dy");
    return finish(r, std::move(gesture));
  }
  if (word == "key") {
    ViewportKey key{.down = r.wordAt(1, "key phase", {"down", "up"}) == "down",
                    .keyCode = 0,
                    .characters = {},
                    .modifiers = 0};
    key.keyCode = static_cast<std::uint16_t>(r.unsignedAt(2, "key code", 0xffff));
    key.characters = r.textAt(3);
    key.modifiers = static_cast<unsigned>(r.unsignedAt(4, "modifiers", 0xffff));
    return finish(r, std::move(key));
  }
  if (word == "drop-hover")
    return parseDropHover(f);
  if (word == "drop-commit")
    return finish(r, ViewportDropCommit{});
  if (word == "drop-clear")
    return finish(r, ViewportDropClear{});
  if (word == "camera-query")
    return finish(r, ViewportCameraQuery{});
  ViewportFrameAck ack{
      .frameIndex = r.unsignedAt(1, "frame index", std::numeric_limits<std::uint64_t>::max())};
  ack.surfaceId = static_cast<std::uint32_t>(
      r.unsignedAt(2, "surface id", std::numeric_limits<std::uint32_t>::max()));
  return finish(r, ack);
}

std::string flag(bool value) {
  return value ? "1" : "0";
}

std::string joined(std::string_view word, const std::vector<std::string>& items) {
  std::string line(word);
  for (const std::string& item : items)
    line += "|" + item;
  return line;
}

}  // namespace

std::string formatViewportReal(double value) {
  char buffer[64];
  const auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, value);
  std::string text(buffer, error == std::errc() ? end : buffer);
  if (text.find_first_of(".eE") == std::string::npos && std::isfinite(value))
    text += ".0";
  return text;
}

ViewportLineParse parseViewportInwardLine(std::string_view line) {
  if (line.ends_with('\r'))
    line.remove_suffix(1);
  if (line.empty())
    return refused("empty line");
  if (line.find_first_of(std::string_view("\n\r\0", 3)) != std::string_view::npos)
    return refused("the line holds a line feed, carriage return or zero byte");
  const Fields fields = splitFields(line);
  const std::string_view word = fields.front();
  if (word.starts_with("snap")) {
    ViewportSnapSettings snap{.word = std::string(word), .fields = {}};
    for (std::size_t i = 1; i < fields.size(); ++i)
      snap.fields.emplace_back(fields[i]);
    return {.command = ViewportCommand(std::move(snap)), .error = {}};
  }
  for (const Kind& kind : kKinds) {
    if (kind.word != word)
      continue;
    if (kind.fields != 0 && fields.size() != kind.fields) {
      return refused(std::string(word) + " takes " + std::to_string(kind.fields - 1) +
                     " fields, found " + std::to_string(fields.size() - 1));
    }
    ViewportLineParse parsed = parseKnown(word, fields);
    if (!parsed.error.empty())
      parsed.error = std::string(word) + ": " + parsed.error;
    return parsed;
  }
  return refused("unknown line " + quoted(word));
}

std::string encodeViewportCommand(const ViewportCommand& command) {
  return std::visit(
      [](const auto& c) -> std::string {
        using T = std::decay_t<decltype(c)>;
        const auto real = formatViewportReal;
        if constexpr (std::is_same_v<T, ViewportOpen>) {
          return "open|" + c.scene + "|" + c.address + "|" + c.clientId + "|" +
                 std::to_string(c.widthPx) + "|" + std::to_string(c.heightPx) + "|" +
                 real(c.scale) + "|1|" + flag(c.playing) + "|||" + c.workspace + "|" + c.authToken +
                 "|" + c.projectId + "|" + flag(c.external) + "|" + flag(c.forceReload);
        } else if constexpr (std::is_same_v<T, ViewportResize>) {
          return "resize|" + std::to_string(c.widthPx) + "|" + std::to_string(c.heightPx) + "|" +
                 real(c.scale);
        } else if constexpr (std::is_same_v<T, ViewportClose>) {
          return "close";
        } else if constexpr (std::is_same_v<T, ViewportAuth>) {
          return "auth|" + c.token;
        } else if constexpr (std::is_same_v<T, ViewportCameraMode>) {
          return "camera|" + c.mode;
        } else if constexpr (std::is_same_v<T, ViewportTool>) {
          return "tool|" + c.tool + "|" + c.space;
        } else if constexpr (std::is_same_v<T, ViewportSimulation>) {
          return "simulation|" + flag(c.playing) + "|" + (c.reset ? "reset" : "0") + "|" +
                 std::to_string(c.serial);
        } else if constexpr (std::is_same_v<T, ViewportSelection>) {
          return joined("selection", c.paths);
        } else if constexpr (std::is_same_v<T, ViewportInstancedPrims>) {
          return joined("instanced-prims", c.paths);
        } else if constexpr (std::is_same_v<T, ViewportFrameTarget>) {
          return std::string("frame|") + (c.all ? "all" : "selection");
        } else if constexpr (std::is_same_v<T, ViewportPropertyPreview>) {
          return "property-preview|" + c.entityPath + "|" + c.componentType + "|" + c.propertyName +
                 "|" + c.value + "|" + flag(c.clear);
        } else if constexpr (std::is_same_v<T, ViewportReviewComments>) {
          std::string line = "review-comments";
          for (const ViewportCommentAnchor& anchor : c.anchors)
            line +=
                "|" + anchor.path + "|" + std::to_string(anchor.count) + "|" + flag(anchor.active);
          return line;
        } else if constexpr (std::is_same_v<T, ViewportDebug>) {
          return "debug|" + c.name + "|" + flag(c.on);
        } else if constexpr (std::is_same_v<T, ViewportPointer>) {
          const char* word = "move";
          switch (c.phase) {
            case ViewportPointerPhase::move:
              word = "move";
              break;
            case ViewportPointerPhase::down:
              word = "down";
              break;
            case ViewportPointerPhase::up:
              word = "up";
              break;
          }
          return std::string(word) + "|" + real(c.x) + "|" + real(c.y) + "|" +
                 std::to_string(c.button) + "|" + std::to_string(c.modifiers);
        } else if constexpr (std::is_same_v<T, ViewportGesture>) {
          return "gesture|" + c.kind + "|" + real(c.dx) + "|" + real(c.dy);
        } else if constexpr (std::is_same_v<T, ViewportKey>) {
          return std::string("key|") + (c.down ? "down" : "up") + "|" + std::to_string(c.keyCode) +
                 "|" + c.characters + "|" + std::to_string(c.modifiers);
        } else if constexpr (std::is_same_v<T, ViewportDropHover>) {
          std::string line = "drop-hover|" + real(c.x) + "|" + real(c.y);
          for (double v : c.center)
            line += "|" + real(v);
          for (double v : c.dimensions)
            line += "|" + real(v);
          return line + "|" + c.requestId + "|" + std::to_string(c.assetId) + "|" +
                 std::to_string(c.contentHash) + "|" + c.contentUrl + "|" + flag(c.targetOnly);
        } else if constexpr (std::is_same_v<T, ViewportDropCommit>) {
          return "drop-commit";
        } else if constexpr (std::is_same_v<T, ViewportDropClear>) {
          return "drop-clear";
        } else if constexpr (std::is_same_v<T, ViewportCameraQuery>) {
          return "camera-query";
        } else if constexpr (std::is_same_v<T, ViewportFrameAck>) {
          return "frame-ack|" + std::to_string(c.frameIndex) + "|" + std::to_string(c.surfaceId);
        } else {
          static_assert(std::is_same_v<T, ViewportSnapSettings>);
          return joined(c.word, c.fields);
        }
      },
      command);
}

}  // namespace orvan::engine

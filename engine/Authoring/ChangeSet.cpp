#include "Authoring/ChangeSet.h"

#include <array>
#include <tuple>
#include <utility>

#include "Authoring/EditableScene.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/JsonEncoder.h"
#include "orvan/wire/JsonFields.h"

namespace orvan::engine {
namespace {

namespace json = editor::json;

constexpr std::array<std::pair<std::string_view, ChangeKind>, 8> kKindWords{{
    {"primSubtree", ChangeKind::PrimSubtree},
    {"primFields", ChangeKind::PrimFields},
    {"primMove", ChangeKind::PrimMove},
    {"property", ChangeKind::Property},
    {"primMetadata", ChangeKind::PrimMetadata},
    {"layerMetadata", ChangeKind::LayerMetadata},
    {"layerFile", ChangeKind::LayerFile},
    {"layerMute", ChangeKind::LayerMute},
}};

struct ChangeRecord {
  std::string kind;
  std::string layer;
  std::string path;
  std::string target;
  std::string name;
  std::uint32_t index = 0;
  std::uint32_t sourceIndex = 0;
  std::optional<std::string> before;
  std::optional<std::string> after;

  bool operator==(const ChangeRecord&) const = default;
  static auto jsonFields() {
    using T = ChangeRecord;
    return std::tuple{json::required("kind", &T::kind),
                      json::required("layer", &T::layer),
                      json::defaulted("path", &T::path, ""),
                      json::defaulted("target", &T::target, ""),
                      json::defaulted("name", &T::name, ""),
                      json::defaulted("index", &T::index, std::uint32_t{0}),
                      json::defaulted("sourceIndex", &T::sourceIndex, std::uint32_t{0}),
                      json::optional("before", &T::before),
                      json::optional("after", &T::after)};
  }
};

struct ChangeSetRecord {
  std::uint32_t version = 1;
  std::vector<ChangeRecord> changes;

  bool operator==(const ChangeSetRecord&) const = default;
  static auto jsonFields() {
    using T = ChangeSetRecord;
    return std::tuple{json::required("version", &T::version),
                      json::required("changes", &T::changes)};
  }
};

LayerChange inverted(const LayerChange& change) {
  LayerChange out = change;
  std::swap(out.before, out.after);
  if (change.kind == ChangeKind::PrimMove) {
    std::swap(out.path, out.target);
    std::swap(out.index, out.sourceIndex);
  }
  return out;
}

}  // namespace

std::string_view changeKindWord(ChangeKind kind) {
  for (const auto& [word, candidate] : kKindWords) {
    if (candidate == kind)
      return word;
  }
  return {};
}

std::string encodeChangeSet(const ChangeSet& changes) {
  ChangeSetRecord record;
  record.changes.reserve(changes.changes.size());
  for (const LayerChange& change : changes.changes) {
    record.changes.push_back({std::string(changeKindWord(change.kind)), change.layer, change.path,
                              change.target, change.name, change.index, change.sourceIndex,
                              change.before, change.after});
  }
  return editor::encodeJson(record);
}

std::variant<ChangeSet, std::string> decodeChangeSet(std::string_view text) {
  editor::Result<ChangeSetRecord> decoded = editor::decodeJson<ChangeSetRecord>(text, "changeSet");
  if (!decoded.ok())
    return "The change set does not decode: " + decoded.error().description;
  if (decoded->version != 1)
    return "The change set has version " + std::to_string(decoded->version) +
           ", which this engine does not know";
  ChangeSet changes;
  changes.changes.reserve(decoded->changes.size());
  for (ChangeRecord& record : decoded->changes) {
    const auto kind = std::find_if(kKindWords.begin(), kKindWords.end(),
                                   [&](const auto& entry) { return entry.first == record.kind; });
    if (kind == kKindWords.end())
      return "The change set holds an unknown change '" + record.kind + "'";
    if (!record.before && !record.after && kind->second != ChangeKind::PrimMove)
      return "A change of " + record.path + " has neither a before nor an after";
    changes.changes.push_back({kind->second, std::move(record.layer), std::move(record.path),
                               std::move(record.target), std::move(record.name), record.index,
                               record.sourceIndex, std::move(record.before),
                               std::move(record.after)});
  }
  return changes;
}

ChangeSet invertChangeSet(const ChangeSet& changes) {
  ChangeSet out;
  out.changes.reserve(changes.changes.size());
  for (auto it = changes.changes.rbegin(); it != changes.changes.rend(); ++it)
    out.changes.push_back(inverted(*it));
  return out;
}

std::optional<std::string> applyChangeSet(EditableScene& scene, const ChangeSet& changes) {
  for (std::size_t i = 0; i < changes.changes.size(); ++i) {
    std::optional<std::string> error = scene.applyChange(changes.changes[i]);
    if (!error)
      continue;
    // Undo what went in, last first; each of those fits, since it was just applied.
    for (std::size_t j = i; j-- > 0;)
      scene.applyChange(inverted(changes.changes[j]));
    return error;
  }
  return std::nullopt;
}

}  // namespace orvan::engine

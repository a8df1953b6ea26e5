#include "Inspector/StageInspector.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <filesystem>
#include <type_traits>
#include <unordered_set>

#include <unistd.h>

#include "Inspector/ComponentModel.h"
#include "Inspector/InspectionParts.h"
#include "UsdText/LayerReader.h"
#include "UsdText/LayerWriter.h"
#include "orvan/wire/JsonEncoder.h"
#include "orvan/wire/records/StageNormalization.h"

namespace orvan::engine {

// The editor decodes the stage record of every scene the reader accepts.
static_assert(kMaxLayerNesting <= static_cast<int>(editor::kMaxPrimNesting));

namespace {

namespace fs = std::filesystem;

using editor::ComponentProperty;
using editor::StageInspection;
using editor::UsdAsset;
using editor::UsdAttribute;
using editor::UsdComponent;
using editor::UsdLayerInfo;
using editor::UsdPrimDetail;
using editor::UsdPrimNode;

constexpr std::uint32_t kNoLayer = 0xFFFFFFFFu;
constexpr std::size_t kFlushSize = 1024 * 1024;

// Override marks of a prim or a property against the layer stack.
struct Marks {
  bool overridden = false;
  bool inActiveLayer = false;
  std::uint32_t layer = kNoLayer;  // the strongest overriding layer
};

// What the flat pass learned about a prim that its children and the tree need again.
struct PrimFacts {
  std::string entityPath;
  std::uint64_t entityId = 0;
  std::vector<std::string> badges;
  Marks marks;
  std::uint32_t definingLayer = kNoLayer;
};

std::uint64_t stableId(std::string_view text) {
  std::uint64_t hash = 0xcbf29ce484222325ull;  // FNV-1a: the same text gives the same id anywhere
  for (const char c : text) {
    hash ^= static_cast<unsigned char>(c);
    hash *= 0x100000001b3ull;
  }
  return hash;
}

// A layer whose file is not written yet (a new layer whose write-back is still to come) is as
// writable as the folder it goes to.
bool isFileWritable(const std::string& path) {
  if (::access(path.c_str(), W_OK) == 0)
    return true;
  if (errno != ENOENT)
    return false;
  const fs::path folder = fs::path(path).parent_path();
  return !folder.empty() && ::access(folder.c_str(), W_OK) == 0;
}

std::string formatTargets(const std::vector<std::string>& targets) {
  if (targets.size() == 1)
    return "<" + targets.front() + ">";
  std::string text = "[";
  for (std::size_t i = 0; i < targets.size(); ++i) {
    if (i != 0)
      text += ", ";
    text += "<" + targets[i] + ">";
  }
  return text + "]";
}

// The value of a property as the text form writes it.
std::string rawValueText(const ComposedProperty& property) {
  if (property.kind == PropertyKind::Relationship)
    return property.hasTargets ? formatTargets(property.targets) : std::string();
  if (property.value)
    return formatValue(*property.value);
  if (property.timeSamples)
    return formatValue(*property.timeSamples);
  if (property.spline)
    return std::string(property.spline->text);
  if (property.hasTargets)
    return formatTargets(property.targets);
  return {};
}

// An instance proxy repeats its prototype's values, once per instance: a mesh instanced thousands
// of times would write its points thousands of times. On a proxy an array of more than
// kProxyArrayItems items, or time samples that hold one, is left out and its value says so:
// "[N items, left out on instance proxies]" or "{N samples, left out on instance proxies}".
// The text cannot be read as a value, so nothing mistakes it for one.
std::optional<std::string> proxyValueLeftOut(const ComposedProperty& property) {
  const auto large = [](const Value& value) {
    return value.kind == ValueKind::List && value.itemCount > kProxyArrayItems;
  };
  if (property.kind == PropertyKind::Relationship)
    return std::nullopt;
  if (property.value) {
    if (!large(*property.value))
      return std::nullopt;
    return "[" + std::to_string(property.value->itemCount) +
           " items, left out on instance proxies]";
  }
  if (!property.timeSamples)
    return std::nullopt;
  const auto samples = property.timeSamples->items();
  const bool any = std::any_of(samples.begin(), samples.end(), [&](const Value& sample) {
    return sample.itemCount > 0 && large(sample.items()[0]);
  });
  if (!any)
    return std::nullopt;
  return "{" + std::to_string(samples.size()) + " samples, left out on instance proxies}";
}

// Whether an authored prim says anything of its own beyond holding children.
bool saysSomething(const LayerPrim& prim) {
  return prim.specifier != Specifier::Over || !prim.typeName.empty() || !prim.metadata.empty() ||
         !prim.properties.empty() || !prim.variantSets.empty();
}

// An asset whose bounds are unknown leaves out both bounds keys: their defaults would read as
// real bounds.
struct AssetBoundsHook {
  bool boundsKnown;

  template <typename Member>
  editor::json::FieldChoice choose(std::string_view key, const Member&) const {
    if (!boundsKnown && (key == "boundsCenter" || key == "boundsDimensions"))
      return editor::json::FieldChoice::kOmit;
    return editor::json::FieldChoice::kEncode;
  }
  template <typename Member>
  void write(std::string&, const Member&) const {}
};

void appendAssets(const std::vector<UsdAsset>& assets, const std::vector<bool>& boundsKnown,
                  std::string& out) {
  out += '[';
  for (std::size_t i = 0; i < assets.size(); ++i) {
    if (i != 0)
      out += ',';
    AssetBoundsHook hook{i < boundsKnown.size() && boundsKnown[i]};
    editor::appendJsonWith(out, assets[i], hook);
  }
  out += ']';
}

// Writes the assets list of an inspection whose assets come with their bounds flags.
struct InspectionAssetsHook {
  const std::vector<bool>& boundsKnown;

  template <typename Member>
  editor::json::FieldChoice choose(std::string_view, const Member&) const {
    return std::is_same_v<Member, std::vector<UsdAsset>> ? editor::json::FieldChoice::kCustom
                                                         : editor::json::FieldChoice::kEncode;
  }
  template <typename Member>
  void write(std::string& out, const Member& member) const {
    if constexpr (std::is_same_v<Member, std::vector<UsdAsset>>)
      appendAssets(member, boundsKnown, out);
  }
};

class Inspector {
 public:
  Inspector(const Stage& stage, const InspectOptions& options) : stage_(stage), options_(options) {}

  // The stage-wide fields; false (with the reason in `result`) when the options do not fit.
  bool prepare(InspectResult& result) {
    StageInspection& out = result.inspection;
    if (stage_.layers.empty()) {
      result.error = "the stage has no root layer";
      return false;
    }
    out.sceneUri = options_.sceneUri.empty() ? stage_.layers[0].identifier : options_.sceneUri;
    out.usdLayersEnabled = true;
    out.layers = layers();
    if (!chooseActiveLayer(out.layers, result))
      return false;
    const Layer* root = stage_.layers[0].layer.get();
    out.requiresLayerStackInitialization =
        root && !root->rootPrims.empty() && root->subLayerPaths().empty();
    out.catalog = componentCatalog();
    findStageProblems();
    facts_.resize(stage_.prims.size());
    return true;
  }

  InspectResult run() {
    InspectResult result;
    if (!prepare(result))
      return result;
    StageInspection& out = result.inspection;
    out.prims.reserve(stage_.prims.size());
    for (std::uint32_t index = 0; index < stage_.prims.size(); ++index)
      out.prims.push_back(detail(index));
    out.rootPrims.reserve(stage_.rootPrims.size());
    for (const std::uint32_t index : stage_.rootPrims)
      out.rootPrims.push_back(node(index));
    out.assets = std::move(assets_);
    result.assetBoundsKnown = std::move(boundsKnown_);
    return result;
  }

  // The same document as encodeInspection(run()), written one prim at a time so that a large
  // stage never exists twice, as records and as text. Keys are decoded by name, so the flat list
  // comes before the tree: the tree reuses what the flat pass learned.
  std::optional<std::string> write(const JsonSink& sink) {
    InspectResult result;
    if (!prepare(result))
      return result.error;
    std::string out;
    out.reserve(kFlushSize + 256 * 1024);
    StreamState stream{sink, options_.maxOutputBytes, 0, std::nullopt};
    DocumentHook hook{*this, stream};
    editor::appendJsonWith(out, result.inspection, hook);
    stream.flush(out, true);
    return stream.failure;
  }

  // Hands the text over in pieces, which keeps one small buffer warm instead of growing a large
  // one, and stops at the first refusal or once the document outgrows its limit.
  struct StreamState {
    const JsonSink& sink;
    std::uint64_t limit;
    std::uint64_t written = 0;
    std::optional<std::string> failure;

    void flush(std::string& out, bool always) {
      if (failure || (!always && out.size() < kFlushSize))
        return;
      written += out.size();
      if (written > limit) {
        failure = "the stage's inspection is larger than the limit of " + std::to_string(limit) +
                  " bytes";
      } else if (!sink(out)) {
        failure = "the output could not be written";
      }
      out.clear();
    }
  };

  // The stage's own lists are written element by element as the pieces go out: the flat list
  // first (it learns what the tree needs), then the tree, then the assets it collected.
  struct DocumentHook {
    Inspector& inspector;
    StreamState& stream;

    template <typename Member>
    editor::json::FieldChoice choose(std::string_view, const Member&) const {
      constexpr bool streamed = std::is_same_v<Member, std::vector<UsdPrimDetail>> ||
                                std::is_same_v<Member, std::vector<UsdPrimNode>> ||
                                std::is_same_v<Member, std::vector<UsdAsset>>;
      return streamed ? editor::json::FieldChoice::kCustom : editor::json::FieldChoice::kEncode;
    }
    template <typename Member>
    void write(std::string& out, const Member&) {
      if constexpr (std::is_same_v<Member, std::vector<UsdPrimDetail>>) {
        out += '[';
        const auto count = static_cast<std::uint32_t>(inspector.stage_.prims.size());
        for (std::uint32_t index = 0; index < count && !stream.failure; ++index) {
          if (index != 0)
            out += ',';
          editor::appendJson(out, inspector.detail(index));
          stream.flush(out, false);
        }
        out += ']';
      } else if constexpr (std::is_same_v<Member, std::vector<UsdPrimNode>>) {
        out += '[';
        inspector.writeNodes(inspector.stage_.rootPrims, out, stream);
        out += ']';
      } else if constexpr (std::is_same_v<Member, std::vector<UsdAsset>>) {
        appendAssets(inspector.assets_, inspector.boundsKnown_, out);
      }
    }
  };

  // ---- layers ----

  std::vector<UsdLayerInfo> layers() {
    std::vector<UsdLayerInfo> layers;
    const fs::path folder = fs::path(stage_.layers[0].identifier).parent_path();
    for (std::uint32_t index = 0; index < stage_.layers.size(); ++index) {
      const StageLayer& layer = stage_.layers[index];
      if (!layer.inRootLayerStack)
        continue;
      UsdLayerInfo info;
      info.identifier = layer.identifier;
      info.name = layer.name;
      info.path = fs::path(layer.identifier).lexically_relative(folder).string();
      if (info.path.empty())
        info.path = layer.identifier;
      info.depth = layer.depth;
      info.root = layer.root;
      info.muted = layer.muted;
      // A layer that could not be read is listed so that the author sees it, but never edited.
      info.writable = layer.error.empty() && isFileWritable(layer.identifier);
      layers.push_back(std::move(info));
      stackLayers_.push_back(index);
    }
    return layers;
  }

  bool inRootStack(std::uint32_t layer) const {
    return layer < stage_.layers.size() && stage_.layers[layer].inRootLayerStack;
  }

  bool chooseActiveLayer(const std::vector<UsdLayerInfo>& infos, InspectResult& result) {
    const std::string& wanted = options_.activeLayer;
    if (wanted.empty()) {
      active_ = defaultEditLayer(infos);
      return true;
    }
    std::error_code error;
    const std::string absolute = fs::absolute(wanted, error).lexically_normal().string();
    for (std::size_t i = 0; i < infos.size(); ++i) {
      const UsdLayerInfo& info = infos[i];
      if (info.identifier == wanted || info.identifier == absolute || info.path == wanted ||
          info.name == wanted) {
        active_ = stackLayers_[i];
        return true;
      }
    }
    result.error = "the active layer '" + wanted + "' is not in the scene's layer stack";
    return false;
  }

  // The layer the editor edits when the author has not chosen one.
  std::uint32_t defaultEditLayer(const std::vector<UsdLayerInfo>& infos) const {
    for (std::size_t i = 0; i < infos.size(); ++i) {
      if (!infos[i].root && infos[i].writable && !infos[i].muted)
        return stackLayers_[i];
    }
    for (std::size_t i = 0; i < infos.size(); ++i) {
      if (infos[i].writable && !infos[i].muted)
        return stackLayers_[i];
    }
    return kNoLayer;
  }

  // ---- override marks ----

  // A property is overridden when its strongest opinion sits in the root layer stack, in another
  // layer than the weakest one (where it was first authored, possibly inside a referenced asset).
  Marks propertyMarks(const ComposedProperty& property) const {
    Marks marks;
    const auto& opinions = property.opinions;
    if (opinions.size() < 2)
      return marks;
    const std::uint32_t strongest = opinions.front().layer;
    if (!inRootStack(strongest) || strongest == opinions.back().layer)
      return marks;
    marks.overridden = true;
    marks.layer = strongest;
    for (std::size_t i = 0; i + 1 < opinions.size(); ++i)
      marks.inActiveLayer = marks.inActiveLayer || opinions[i].layer == active_;
    return marks;
  }

  // A prim is overridden when a layer of the root layer stack says something about it that is
  // stronger than the opinion that first defined it.
  Marks primMarks(const ComposedPrim& prim, std::uint32_t& definingLayer) const {
    Marks marks;
    std::uint32_t defining = prim.opinionCount;
    for (std::uint32_t i = prim.opinionCount; i-- > 0;) {
      const LayerPrim& authored = stage_.authoredPrim(stage_.primOpinions[prim.firstOpinion + i]);
      if (!authored.isVariantBody && authored.specifier != Specifier::Over) {
        defining = i;
        break;
      }
    }
    if (defining == prim.opinionCount)
      return marks;
    definingLayer = stage_.primOpinions[prim.firstOpinion + defining].layer;
    for (std::uint32_t i = 0; i < defining; ++i) {
      const PrimOpinion& opinion = stage_.primOpinions[prim.firstOpinion + i];
      if (!inRootStack(opinion.layer) || opinion.layer == definingLayer ||
          !saysSomething(stage_.authoredPrim(opinion))) {
        continue;
      }
      if (!marks.overridden)
        marks.layer = opinion.layer;
      marks.overridden = true;
      marks.inActiveLayer = marks.inActiveLayer || opinion.layer == active_;
    }
    return marks;
  }

  template <typename Record>
  void writeMarks(const Marks& marks, Record& record) const {
    record.overridden = marks.overridden;
    record.overriddenInActiveLayer = marks.inActiveLayer;
    if (marks.overridden) {
      record.overrideLayer = stage_.layers[marks.layer].identifier;
      record.overrideLayerName = stage_.layers[marks.layer].name;
    }
  }

  // ---- prims ----

  static std::optional<std::uint64_t> entityIdOf(const PrimProperties& properties) {
    const ComposedProperty* id = properties.find("orvan:entityId");
    if (!id || !id->value || id->value->kind != ValueKind::Number)
      return std::nullopt;
    const std::string_view text = id->value->text;
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
      return std::nullopt;
    return value;
  }

  // The layer and entry of the strongest opinion for an arc list.
  std::pair<const MetadataEntry*, std::uint32_t> arcEntry(const ComposedPrim& prim,
                                                          std::string_view key) const {
    for (std::uint32_t i = 0; i < prim.opinionCount; ++i) {
      const PrimOpinion& opinion = stage_.primOpinions[prim.firstOpinion + i];
      if (const MetadataEntry* entry = stage_.authoredPrim(opinion).findMetadata(key))
        return {entry, opinion.layer};
    }
    return {nullptr, kNoLayer};
  }

  // The files a prim brings in through references and payloads, resolved against the layer that
  // named them.
  std::vector<std::pair<std::string, std::string>> arcAssets(const ComposedPrim& prim) const {
    std::vector<std::pair<std::string, std::string>> assets;  // authored, resolved
    for (const std::string_view key : {"references", "payload"}) {
      // Named copies rather than a structured binding: the lambda below captures them.
      const auto strongest = arcEntry(prim, key);
      const MetadataEntry* const entry = strongest.first;
      const std::uint32_t layer = strongest.second;
      if (!entry)
        continue;
      const Value& value = entry->value;
      const auto add = [&](const Value& item) {
        const auto path = item.assetPath();
        if (!path || path->empty())
          return;
        const fs::path anchor = fs::path(stage_.layers[layer].identifier).parent_path();
        const fs::path resolved =
            fs::path(*path).is_absolute() ? fs::path(*path) : anchor / fs::path(*path);
        assets.emplace_back(*path, resolved.lexically_normal().string());
      };
      if (value.kind == ValueKind::List) {
        for (const Value& item : value.items())
          add(item);
      } else {
        add(value);
      }
    }
    return assets;
  }

  UsdPrimDetail detail(std::uint32_t index) {
    const ComposedPrim& prim = stage_.prims[index];
    PrimFacts& facts = facts_[index];
    const PrimProperties properties(stage_, prim);
    const bool internal = editor::isEditorInternalPrimPath(prim.path);
    const bool world = prim.path == "/World";
    const auto id = entityIdOf(properties);
    const bool entity = !internal && (world || id.has_value());
    if (entity) {
      facts.entityPath = prim.path;
      facts.entityId = id.value_or(0);
    } else if (prim.parent != kNoPrim) {
      facts.entityPath = facts_[prim.parent].entityPath;
      facts.entityId = facts_[prim.parent].entityId;
    }
    facts.marks = primMarks(prim, facts.definingLayer);

    UsdPrimDetail detail;
    detail.path = prim.path;
    detail.name = std::string(prim.name);
    detail.typeName = std::string(prim.typeName);
    detail.parent = prim.parent == kNoPrim ? "/" : stage_.prims[prim.parent].path;
    detail.active = prim.active;
    detail.defined = prim.defined;
    writeMarks(facts.marks, detail);
    if (prim.instanceable)
      detail.instanceable = true;
    if (prim.instanceProxy)
      detail.instanceProxy = true;
    detail.entityPath = facts.entityPath;
    detail.entityId = facts.entityId;

    const MarkComponentProperty mark = [this](const ComposedProperty& authored,
                                              ComponentProperty& property) {
      writeMarks(propertyMarks(authored), property);
    };
    if (!internal) {
      const ComponentSource source{stage_, prim, properties, mark, entity, world};
      detail.components = decodeComponents(source);
    }
    detail.attributes.reserve(properties.all().size());
    for (const ComposedProperty& authored : properties.all()) {
      UsdAttribute attribute;
      attribute.name = std::string(authored.name);
      attribute.type = authored.kind == PropertyKind::Relationship ? std::string("rel")
                                                                   : std::string(authored.typeName);
      auto leftOut = prim.instanceProxy ? proxyValueLeftOut(authored) : std::nullopt;
      attribute.value = leftOut ? std::move(*leftOut) : rawValueText(authored);
      writeMarks(propertyMarks(authored), attribute);
      detail.attributes.push_back(std::move(attribute));
    }

    const auto files = arcAssets(prim);
    collectAssets(prim, properties, files, internal);
    addProblems(prim, detail);
    const bool problems = !prim.problems.empty() || index == stageProblemPrim_;
    if (index == stageProblemPrim_)
      addProblemComponent(stageProblems_, detail);

    std::vector<std::string>& badges = facts.badges;
    if (entity)
      badges.emplace_back("entity");
    // A part of an entity: inside one without being one (a referenced asset's pieces, a shape
    // under an entity). Its structure is the entity's, so the hierarchy edits the entity, not it.
    const bool part =
        !entity && !internal && !facts.entityPath.empty() && facts.entityPath != "/World";
    if (part)
      badges.emplace_back("component");
    // What brings in another file without being an entity, and the asset library's items; an
    // entity that places an asset is edited as the entity.
    if ((!files.empty() && !entity) || (internal && isAssetLibraryItem(prim.path)))
      badges.emplace_back("asset");
    if (prim.hasPayload)
      badges.emplace_back("payload");
    if (prim.hasPayload && !prim.payloadLoaded && prim.problems.empty())
      badges.emplace_back("loading");
    if (prim.isInstance)
      badges.emplace_back("instance");
    if (internal)
      badges.emplace_back("internal");
    if (problems)
      badges.emplace_back("problem");
    detail.badges = badges;
    return detail;
  }

  static bool isAssetLibraryItem(std::string_view path) {
    for (const std::string_view library :
         {"/World/OrvanAssets/Materials/", "/World/OrvanAssets/Meshes/", "/_OrvanAssets/"}) {
      if (path.starts_with(library) && path.find('/', library.size()) == std::string_view::npos)
        return true;
    }
    return false;
  }

  // Problems are shown as a read-only component, so that the inspector lists them with the prim
  // they belong to, and as the "problem" badge in the tree.
  void addProblems(const ComposedPrim& prim, UsdPrimDetail& detail) const {
    std::vector<std::string> messages;
    for (const std::uint32_t problem : prim.problems)
      messages.push_back(stage_.problems[problem].message);
    addProblemComponent(messages, detail);
  }

  static void addProblemComponent(const std::vector<std::string>& messages, UsdPrimDetail& detail) {
    if (messages.empty())
      return;
    auto found = std::find_if(detail.components.begin(), detail.components.end(),
                              [](const UsdComponent& c) { return c.type == "Problems"; });
    if (found == detail.components.end()) {
      UsdComponent problems;
      problems.type = "Problems";
      problems.label = "Problems";
      detail.components.push_back(std::move(problems));
      found = detail.components.end() - 1;
    }
    for (const std::string& message : messages) {
      ComponentProperty property;
      property.name = "problem" + std::to_string(found->properties.size() + 1);
      property.kind = "string";
      property.value = message;
      property.control = "readonly";
      found->properties.push_back(std::move(property));
    }
  }

  // Problems of the layer stack itself (a missing sublayer) belong to no prim: they are shown on
  // the first root prim an author sees.
  void findStageProblems() {
    for (const StageProblem& problem : stage_.problems) {
      if (problem.primPath.empty())
        stageProblems_.push_back(problem.message);
    }
    if (stageProblems_.empty())
      return;
    // A placeholder (an over with nothing under it) leaves the editor's tree, so it is skipped.
    for (const std::uint32_t root : stage_.rootPrims) {
      if (stage_.prims[root].defined &&
          !editor::isEditorInternalPrimPath(stage_.prims[root].path)) {
        stageProblemPrim_ = root;
        return;
      }
    }
  }

  UsdPrimNode shallowNode(std::uint32_t index) const {
    const ComposedPrim& prim = stage_.prims[index];
    const PrimFacts& facts = facts_[index];
    UsdPrimNode node;
    node.path = prim.path;
    node.name = std::string(prim.name);
    node.typeName = std::string(prim.typeName);
    node.parent = prim.parent == kNoPrim ? "/" : stage_.prims[prim.parent].path;
    node.active = prim.active;
    node.defined = prim.defined;
    writeMarks(facts.marks, node);
    if (facts.definingLayer != kNoLayer)
      node.definingLayer = stage_.layers[facts.definingLayer].identifier;
    node.badges = facts.badges;
    if (prim.instanceProxy)
      node.instanceProxy = true;
    return node;
  }

  UsdPrimNode node(std::uint32_t index) const {
    UsdPrimNode node = shallowNode(index);
    const ComposedPrim& prim = stage_.prims[index];
    node.children.reserve(prim.children.size());
    for (const std::uint32_t child : prim.children)
      node.children.push_back(this->node(child));
    return node;
  }

  // A node's children are written as they are reached, never held as records.
  struct NodeChildrenHook {
    const Inspector& inspector;
    std::uint32_t index;
    StreamState& stream;

    template <typename Member>
    editor::json::FieldChoice choose(std::string_view, const Member&) const {
      return std::is_same_v<Member, std::vector<UsdPrimNode>> ? editor::json::FieldChoice::kCustom
                                                              : editor::json::FieldChoice::kEncode;
    }
    template <typename Member>
    void write(std::string& out, const Member&) const {
      if constexpr (std::is_same_v<Member, std::vector<UsdPrimNode>>) {
        out += '[';
        inspector.writeNodes(inspector.stage_.prims[index].children, out, stream);
        out += ']';
      }
    }
  };

  void writeNodes(const std::vector<std::uint32_t>& indexes, std::string& out,
                  StreamState& stream) const {
    for (std::size_t i = 0; i < indexes.size() && !stream.failure; ++i) {
      if (i != 0)
        out += ',';
      NodeChildrenHook hook{*this, indexes[i], stream};
      editor::appendJsonWith(out, shallowNode(indexes[i]), hook);
      stream.flush(out, false);
    }
  }

  // ---- assets ----

  void collectAssets(const ComposedPrim& prim, const PrimProperties& properties,
                     const std::vector<std::pair<std::string, std::string>>& files, bool internal) {
    if (prim.typeName == "Material") {
      addMaterial(prim);
    } else if (internal && isAssetLibraryItem(prim.path) &&
               prim.path.starts_with("/World/OrvanAssets/Meshes/")) {
      addMesh(prim.path, prim.path, std::string(prim.name), properties);
    }
    if (internal)
      return;
    // Every file a prim brings in is a mesh asset of the scene; a file that failed to load
    // stays out.
    for (const auto& [authored, resolved] : files) {
      if (!prim.problems.empty() && !loadedLayer(resolved))
        continue;
      addMesh(resolved, authored, fs::path(authored).stem().string(), properties);
    }
  }

  bool loadedLayer(const std::string& identifier) const {
    return std::any_of(stage_.layers.begin(), stage_.layers.end(), [&](const StageLayer& layer) {
      return layer.identifier == identifier && layer.layer;
    });
  }

  void addMesh(const std::string& key, const std::string& path, std::string name,
               const PrimProperties& properties) {
    if (!seenAssets_.insert(key).second)
      return;
    assetKeys_.push_back(key);
    UsdAsset asset;
    asset.id = stableId(key);
    asset.path = path;
    asset.name = std::move(name);
    asset.kind = "mesh";
    asset.source = "scene";
    bool known = false;
    if (const ComposedProperty* extent = properties.find("extent");
        extent && extent->value && extent->value->kind == ValueKind::List &&
        extent->value->itemCount == 2) {
      const std::vector<double> low = numbersOf(extent->value->items()[0]);
      const std::vector<double> high = numbersOf(extent->value->items()[1]);
      if (low.size() == 3 && high.size() == 3) {
        for (std::size_t i = 0; i < 3; ++i) {
          asset.boundsCenter[i] = (low[i] + high[i]) / 2;
          asset.boundsDimensions[i] = high[i] - low[i];
        }
        known = true;
      }
    }
    assets_.push_back(std::move(asset));
    boundsKnown_.push_back(known);
  }

  void addMaterial(const ComposedPrim& prim) {
    if (!seenAssets_.insert(prim.path).second)
      return;
    assetKeys_.push_back(prim.path);
    UsdAsset asset;
    asset.id = stableId(prim.path);
    asset.path = prim.path;
    asset.name = std::string(prim.name);
    asset.kind = "material";
    asset.source = "scene";
    for (const std::uint32_t child : prim.children) {
      const ComposedPrim& shader = stage_.prims[child];
      if (shader.typeName != "Shader")
        continue;
      const PrimProperties inputs(stage_, shader);
      const auto numbers = [&](std::string_view name) -> std::vector<double> {
        const ComposedProperty* property = inputs.find(name);
        return property && property->value ? numbersOf(*property->value) : std::vector<double>{};
      };
      if (const auto color = numbers("inputs:diffuseColor"); color.size() == 3) {
        const auto opacity = numbers("inputs:opacity");
        asset.baseColor = {color[0], color[1], color[2], opacity.size() == 1 ? opacity[0] : 1.0};
      }
      if (const auto roughness = numbers("inputs:roughness"); roughness.size() == 1)
        asset.roughness = roughness[0];
      if (const auto metallic = numbers("inputs:metallic"); metallic.size() == 1)
        asset.metallic = metallic[0];
      break;
    }
    assets_.push_back(std::move(asset));
    boundsKnown_.push_back(false);
  }

  const Stage& stage_;
  const InspectOptions& options_;
  std::vector<std::uint32_t> stackLayers_;  // stage layer index of each listed layer
  std::uint32_t active_ = kNoLayer;
  std::vector<PrimFacts> facts_;
  std::vector<UsdAsset> assets_;
  std::vector<bool> boundsKnown_;
  std::unordered_set<std::string> seenAssets_;
  std::vector<std::string> assetKeys_;  // what told each asset apart from the others
  std::vector<std::string> stageProblems_;
  std::uint32_t stageProblemPrim_ = kNoPrim;
};

}  // namespace

InspectResult inspectStage(const Stage& stage, const InspectOptions& options) {
  return Inspector(stage, options).run();
}

std::string encodeInspection(const InspectResult& result) {
  std::string out;
  InspectionAssetsHook hook{result.assetBoundsKnown};
  editor::appendJsonWith(out, result.inspection, hook);
  return out;
}

std::optional<std::string> writeInspectionJson(const Stage& stage, const InspectOptions& options,
                                               const JsonSink& sink) {
  return Inspector(stage, options).write(sink);
}

std::optional<std::string> writeInspectionJson(const Stage& stage, const InspectOptions& options,
                                               std::string& out) {
  return writeInspectionJson(stage, options, [&out](std::string_view piece) {
    out += piece;
    return true;
  });
}

namespace inspection {

struct PrimPartsEncoder::Impl {
  Impl(const Stage& stage, const InspectOptions& wanted)
      : options(wanted), inspector(stage, options) {}

  InspectOptions options;  // before the inspector, which holds on to it
  Inspector inspector;
  InspectResult stageFields;
  std::string scratch;  // texts are made here, then kept at their size
};

namespace {

// Writes the stage's three lists as empty ones and notes where their elements would go.
struct FrameHook {
  std::vector<std::size_t> cuts;

  template <typename Member>
  editor::json::FieldChoice choose(std::string_view, const Member&) const {
    constexpr bool listed = std::is_same_v<Member, std::vector<UsdPrimDetail>> ||
                            std::is_same_v<Member, std::vector<UsdPrimNode>> ||
                            std::is_same_v<Member, std::vector<UsdAsset>>;
    return listed ? editor::json::FieldChoice::kCustom : editor::json::FieldChoice::kEncode;
  }
  template <typename Member>
  void write(std::string& out, const Member&) {
    out += '[';
    cuts.push_back(out.size());
    out += ']';
  }
};

}  // namespace

PrimPartsEncoder::PrimPartsEncoder(const Stage& stage, const InspectOptions& options)
    : impl_(std::make_unique<Impl>(stage, options)) {}

PrimPartsEncoder::~PrimPartsEncoder() = default;

std::optional<std::string> PrimPartsEncoder::prepare() {
  if (!impl_->inspector.prepare(impl_->stageFields))
    return impl_->stageFields.error;
  return std::nullopt;
}

DocumentFrame PrimPartsEncoder::frame() const {
  std::string text;
  FrameHook hook;
  editor::appendJsonWith(text, impl_->stageFields.inspection, hook);
  DocumentFrame frame;
  std::size_t begin = 0;
  for (std::size_t i = 0; i < hook.cuts.size() && i + 1 < frame.size(); ++i) {
    frame[i] = text.substr(begin, hook.cuts[i] - begin);
    begin = hook.cuts[i];
  }
  frame.back() = text.substr(begin);
  return frame;
}

std::uint32_t PrimPartsEncoder::activeLayer() const {
  return impl_->inspector.active_;
}

std::uint32_t PrimPartsEncoder::stageProblemPrim() const {
  return impl_->inspector.stageProblemPrim_;
}

const std::vector<std::string>& PrimPartsEncoder::stageProblems() const {
  return impl_->inspector.stageProblems_;
}

PrimParts PrimPartsEncoder::encode(std::uint32_t index, std::string_view parentEntityPath,
                                   std::uint64_t parentEntityId) {
  Inspector& inspector = impl_->inspector;
  const std::uint32_t parent = inspector.stage_.prims[index].parent;
  if (parent != kNoPrim) {
    inspector.facts_[parent].entityPath = std::string(parentEntityPath);
    inspector.facts_[parent].entityId = parentEntityId;
  }
  // Each prim's assets are kept apart; the stage's list drops repeats when it is put together.
  inspector.assets_.clear();
  inspector.boundsKnown_.clear();
  inspector.seenAssets_.clear();
  inspector.assetKeys_.clear();

  std::string& scratch = impl_->scratch;
  PrimParts parts;
  scratch = ",";
  editor::appendJson(scratch, inspector.detail(index));
  parts.detail = scratch;
  scratch = ",";
  editor::appendJson(scratch, inspector.shallowNode(index));
  // The node's children list comes last and is empty here: "]}" closes it and the node.
  parts.nodeHead.assign(scratch, 0, scratch.size() - 2);
  const PrimFacts& facts = inspector.facts_[index];
  parts.entityPath = facts.entityPath;
  parts.entityId = facts.entityId;
  for (std::size_t i = 0; i < inspector.assets_.size(); ++i) {
    AssetPart asset{inspector.assetKeys_[i], ","};
    AssetBoundsHook hook{inspector.boundsKnown_[i]};
    editor::appendJsonWith(asset.text, inspector.assets_[i], hook);
    parts.assets.push_back(std::move(asset));
  }
  return parts;
}

}  // namespace inspection

}  // namespace orvan::engine

#include "UsdText/StageComposer.h"

#include <algorithm>
#include <deque>
#include <filesystem>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "UsdText/Expressions.h"
#include "UsdText/LayerReader.h"
#include "UsdText/ListEdits.h"
#include "UsdText/PathMapping.h"

namespace orvan::engine {
namespace {

namespace fs = std::filesystem;

// Stand-in prim index for "the layer itself", whose children are the layer's root prims.
constexpr std::uint32_t kPseudoRoot = kNoPrim - 1;
constexpr int kMaxNamespaceDepth = 4096;

// Arc kinds in the order of their strength among siblings.
enum class ArcType : std::uint8_t { Root, Inherit, Variant, Reference, Payload, Specialize };

// One site that contributes opinions to a prim: a path in a layer stack, with the prim found there
// in each layer of the stack. Children are the arcs introduced at that site, strongest first.
struct Node {
  ArcType arc = ArcType::Root;
  std::uint32_t stack = 0;
  int introDepth = 0;
  std::string path;
  std::vector<std::uint32_t> layerPrims;
  std::shared_ptr<const PathMapping> mapping;
  std::vector<Node> children;
};

struct LayerStack {
  std::vector<std::uint32_t> layers;
};

struct OpinionRef {
  std::uint32_t layer;
  std::uint32_t layerPrim;
  const Node* node;
};

struct ChildKey {
  std::uint32_t parent;
  std::string_view name;
  bool operator==(const ChildKey&) const = default;
};

struct ChildKeyHash {
  std::size_t operator()(const ChildKey& key) const {
    return std::hash<std::string_view>()(key.name) ^
           (static_cast<std::size_t>(key.parent) * 0x9E3779B97F4A7C15ull);
  }
};

using ChildIndex = std::unordered_map<ChildKey, std::uint32_t, ChildKeyHash>;

// What expanding the arcs of one prim learned beside the nodes themselves.
struct PrimArcs {
  std::vector<std::string> problems;
  std::vector<std::pair<std::string, std::string>> selections;
  bool hasArcs = false;
  bool hasPayload = false;
  bool payloadLoaded = false;
};

// A prim moved to another path by `relocates`.
struct Relocation {
  std::string from;
  std::string to;
  std::string_view name;  // the last name of `to`, in the layer's text
};

struct ArcItem {
  const Value* value;
  std::uint32_t layer;
  const MetadataEntry* entry;  // the statement that authored it
};

std::string normalisedPath(const std::string& path) {
  std::error_code error;
  fs::path absolute = fs::absolute(fs::path(path), error);
  if (error)
    absolute = fs::path(path);
  return absolute.lexically_normal().string();
}

std::string fileNameOf(const std::string& path) {
  return fs::path(path).filename().string();
}

const char* foreignFormat(const std::string& path) {
  const std::string extension = fs::path(path).extension().string();
  if (extension == ".usdc")
    return "a binary layer";
  if (extension == ".usdz")
    return "a zipped package";
  if (extension == ".fbx" || extension == ".obj" || extension == ".abc" || extension == ".gltf" ||
      extension == ".glb") {
    return "not a USD text layer";
  }
  return nullptr;
}

class Composer {
 public:
  explicit Composer(const ComposeOptions& options) : options_(options) {
    for (const std::string& muted : options.mutedLayers)
      muted_.insert(normalisedPath(muted));
    if (!options.confinementRoot.empty()) {
      std::error_code error;
      confinementRoot_ = fs::weakly_canonical(fs::absolute(options.confinementRoot), error);
      if (error)
        confinementRoot_ = fs::path(normalisedPath(options.confinementRoot));
    }
  }

  // Why the stage could not be made within its limits; empty while it could.
  const std::string& failure() const { return failure_; }

  // Whether a file lies outside the confinement root once its symbolic links are followed.
  bool outsideConfinement(const std::string& path) {
    if (confinementRoot_.empty())
      return false;
    if (const auto known = outside_.find(path); known != outside_.end())
      return known->second;
    std::error_code error;
    const fs::path real = fs::weakly_canonical(fs::path(path), error);
    const fs::path relative = error ? fs::path() : real.lexically_relative(confinementRoot_);
    const bool outside = relative.empty() || *relative.begin() == "..";
    outside_.emplace(path, outside);
    return outside;
  }

  std::shared_ptr<Stage> compose(std::shared_ptr<const Layer> root, const std::string& rootPath) {
    stage_ = std::make_shared<Stage>();
    const std::uint32_t rootIndex = addLayer(rootPath, std::move(root), "", 0, true);
    stage_->layers[rootIndex].root = true;
    addExpressionVariables(layerAt(rootIndex), rootVariables_);
    const std::uint32_t rootStack = layerStackFor(rootIndex, true);
    for (const std::uint32_t layer : stacks_[rootStack].layers) {
      if (const MetadataEntry* relocates = layerAt(layer).findMetadata("relocates"))
        addRelocations(relocates->value, "/");
    }

    std::size_t layerPrims = 0;
    for (const std::uint32_t layer : stacks_[rootStack].layers)
      layerPrims += layerAt(layer).prims.size();
    stage_->prims.reserve(layerPrims);
    stage_->primOpinions.reserve(layerPrims);

    Node pseudoRoot;
    pseudoRoot.stack = rootStack;
    pseudoRoot.path = "/";
    pseudoRoot.layerPrims.assign(stacks_[rootStack].layers.size(), kPseudoRoot);
    std::vector<OpinionRef> opinions;
    for (const std::uint32_t layer : stacks_[rootStack].layers)
      opinions.push_back({layer, kPseudoRoot, &pseudoRoot});
    pseudoRoot_ = &pseudoRoot;
    composeChildren(pseudoRoot, opinions, kNoPrim, "", 0, false);
    pseudoRoot_ = nullptr;
    if (!failure_.empty())
      return nullptr;
    stage_->buildPathIndex();
    return std::move(stage_);
  }

 private:
  // ---- layers and layer stacks ----

  std::uint32_t addLayer(const std::string& path, std::shared_ptr<const Layer> layer,
                         std::string error, int depth, bool inRoot) {
    const auto index = static_cast<std::uint32_t>(stage_->layers.size());
    StageLayer entry;
    entry.identifier = path;
    entry.name = fileNameOf(path);
    entry.layer = std::move(layer);
    entry.depth = depth;
    entry.inRootLayerStack = inRoot;
    entry.error = std::move(error);
    stage_->layers.push_back(std::move(entry));
    layerByPath_.emplace(path, index);
    childIndexes_.emplace_back();
    return index;
  }

  const Layer& layerAt(std::uint32_t index) const { return *stage_->layers[index].layer; }

  // The index of a readable layer, or nullopt with the reason in `error`.
  std::optional<std::uint32_t> loadLayer(const std::string& path, int depth, bool inRoot,
                                         std::string& error) {
    // Such a file is never listed, looked at or watched: the message is the same whether it
    // exists or not.
    if (outsideConfinement(path)) {
      error = "it is outside the project folder";
      return std::nullopt;
    }
    if (const auto found = layerByPath_.find(path); found != layerByPath_.end()) {
      const StageLayer& known = stage_->layers[found->second];
      if (known.layer)
        return found->second;
      error = known.error.empty() ? "the layer is muted" : known.error;
      return std::nullopt;
    }
    if (options_.layerProvider) {
      if (std::shared_ptr<const Layer> provided = options_.layerProvider(path))
        return addLayer(path, std::move(provided), "", depth, inRoot);
    }
    std::shared_ptr<const Layer> layer;
    if (const char* format = foreignFormat(path)) {
      error = std::string("'") + fileNameOf(path) + "' is " + format +
              ", which this engine cannot compose";
    } else if (std::error_code exists; !fs::exists(path, exists)) {
      error = "the file " + path + " does not exist";
    } else if (FileText file = readRegularFile(path, options_.limits.maxLayerBytes); file.error) {
      error = "'" + fileNameOf(path) + "' " + *file.error;
    } else if (isBinary(file.text)) {
      error = "'" + fileNameOf(path) + "' is a binary layer, which this engine cannot compose";
    } else if (LayerReadResult read = readLayerText(path, std::move(file.text)); read.ok()) {
      layer = std::move(read.layer);
    } else {
      error = read.error->describe();
    }
    const std::uint32_t index = addLayer(path, layer, error, depth, inRoot);
    if (!layer)
      return std::nullopt;
    return index;
  }

  // A text layer never holds a NUL byte; a binary layer has one within its first bytes.
  static bool isBinary(std::string_view text) {
    return text.substr(0, 512).find('\0') != std::string_view::npos;
  }

  // The file an asset path names, relative to the layer that authored it; an expression is
  // evaluated first. Empty, with the reason in `error`, when the expression cannot be.
  std::string resolveAsset(std::uint32_t anchorLayer, const std::string& written,
                           std::string& error) const {
    if (!isExpression(written))
      return resolvePath(anchorLayer, written);
    // The root layer's variables win over those of the layer that uses them.
    ExpressionVariables variables = rootVariables_;
    if (stage_->layers[anchorLayer].layer)
      addExpressionVariables(layerAt(anchorLayer), variables);
    const auto value = evaluateExpression(written, variables, error);
    if (!value || value->empty()) {
      if (error.empty())
        error = "the expression " + written + " gives an empty path";
      return {};
    }
    return resolvePath(anchorLayer, *value);
  }

  std::string resolvePath(std::uint32_t anchorLayer, const std::string& asset) const {
    const fs::path path(asset);
    if (path.is_absolute())
      return path.lexically_normal().string();
    const fs::path anchor(stage_->layers[anchorLayer].identifier);
    return (anchor.parent_path() / path).lexically_normal().string();
  }

  std::uint32_t layerStackFor(std::uint32_t rootLayer, bool inRoot) {
    if (const auto found = stackByRoot_.find(rootLayer); found != stackByRoot_.end())
      return found->second;
    LayerStack stack;
    std::vector<std::uint32_t> visiting;
    appendToStack(stack, rootLayer, 0, inRoot, visiting);
    const auto index = static_cast<std::uint32_t>(stacks_.size());
    stacks_.push_back(std::move(stack));
    stackByRoot_.emplace(rootLayer, index);
    return index;
  }

  void appendToStack(LayerStack& stack, std::uint32_t layerIndex, int depth, bool inRoot,
                     std::vector<std::uint32_t>& visiting) {
    stack.layers.push_back(layerIndex);
    visiting.push_back(layerIndex);
    const std::vector<std::string> subLayers = layerAt(layerIndex).subLayerPaths();
    const MetadataEntry* statement = layerAt(layerIndex).findMetadata("subLayers");
    const std::string where = statement ? stage_->layers[layerIndex].name + ":" +
                                              std::to_string(statement->line) + ":" +
                                              std::to_string(statement->column) + ": "
                                        : std::string();
    for (const std::string& subLayer : subLayers) {
      std::string error;
      const std::string path = resolveAsset(layerIndex, subLayer, error);
      if (path.empty()) {
        addProblem("", where + "The sublayer '" + subLayer + "' of " +
                           stage_->layers[layerIndex].name + " is left out: " + error);
        continue;
      }
      if (muted_.count(path) != 0) {
        if (layerByPath_.count(path) == 0) {
          const std::uint32_t mutedIndex = addLayer(path, nullptr, "", depth + 1, inRoot);
          stage_->layers[mutedIndex].muted = true;
        }
        continue;
      }
      const auto index = loadLayer(path, depth + 1, inRoot, error);
      if (!index) {
        addProblem("", where + "The sublayer '" + subLayer + "' of " +
                           stage_->layers[layerIndex].name + " is left out: " + error);
        continue;
      }
      if (std::find(visiting.begin(), visiting.end(), *index) != visiting.end()) {
        addProblem("", where + "The sublayer '" + subLayer + "' of " +
                           stage_->layers[layerIndex].name + " is left out: it includes itself");
        continue;
      }
      appendToStack(stack, *index, depth + 1, inRoot, visiting);
    }
    visiting.pop_back();
  }

  std::uint32_t addProblem(std::string primPath, std::string message) {
    stage_->problems.push_back({std::move(primPath), escapeForMessage(message)});
    return static_cast<std::uint32_t>(stage_->problems.size() - 1);
  }

  // ---- authored prims ----

  const std::vector<std::uint32_t>& childrenOf(std::uint32_t layer, std::uint32_t layerPrim) const {
    const Layer& l = layerAt(layer);
    return layerPrim == kPseudoRoot ? l.rootPrims : l.prims[layerPrim].children;
  }

  std::uint32_t childPrim(std::uint32_t layer, std::uint32_t layerPrim, std::string_view name) {
    // The child being composed is usually known already from listing the names.
    if (hint_.layer == layer && hint_.parent == layerPrim)
      return hint_.child;
    const std::vector<std::uint32_t>& children = childrenOf(layer, layerPrim);
    const Layer& l = layerAt(layer);
    if (children.size() <= 8) {
      for (const std::uint32_t child : children) {
        if (l.prims[child].name == name)
          return child;
      }
      return kNoPrim;
    }
    ChildIndex& index = childIndexes_[layer];
    if (index.empty()) {
      index.reserve(l.prims.size());
      for (std::uint32_t i = 0; i < l.prims.size(); ++i) {
        if (!l.prims[i].isVariantBody)
          index.emplace(ChildKey{l.prims[i].parent, l.prims[i].name}, i);
      }
    }
    const auto found = index.find(ChildKey{layerPrim == kPseudoRoot ? kNoPrim : layerPrim, name});
    return found == index.end() ? kNoPrim : found->second;
  }

  std::uint32_t findAuthoredPrim(std::uint32_t layer, std::string_view path) {
    if (path.empty() || path.front() != '/')
      return kNoPrim;
    std::uint32_t layerPrim = kPseudoRoot;
    std::size_t position = 1;
    while (position < path.size()) {
      const std::size_t slash = path.find('/', position);
      const std::string_view name =
          path.substr(position, slash == std::string_view::npos ? slash : slash - position);
      layerPrim = childPrim(layer, layerPrim, name);
      if (layerPrim == kNoPrim)
        return kNoPrim;
      if (slash == std::string_view::npos)
        break;
      position = slash + 1;
    }
    return layerPrim == kPseudoRoot ? kNoPrim : layerPrim;
  }

  std::vector<std::uint32_t> primsAt(std::uint32_t stack, std::string_view path, bool& any) {
    const auto& layers = stacks_[stack].layers;
    std::vector<std::uint32_t> layerPrims(layers.size(), kNoPrim);
    any = false;
    for (std::size_t i = 0; i < layers.size(); ++i) {
      layerPrims[i] = findAuthoredPrim(layers[i], path);
      any = any || layerPrims[i] != kNoPrim;
    }
    return layerPrims;
  }

  // ---- the node tree of one prim ----

  // The node for a child prim, following every node of the parent; false when nothing is authored
  // below it.
  bool mapNode(const Node& from, std::string_view name, Node& out) {
    out.arc = from.arc;
    out.stack = from.stack;
    out.introDepth = from.introDepth;
    out.mapping = from.mapping;
    out.path.reserve(from.path.size() + name.size() + 1);
    out.path = from.path;
    if (out.path != "/")
      out.path += '/';
    out.path += name;
    const auto& layers = stacks_[from.stack].layers;
    out.layerPrims.assign(from.layerPrims.size(), kNoPrim);
    bool any = false;
    for (std::size_t i = 0; i < from.layerPrims.size(); ++i) {
      if (from.layerPrims[i] == kNoPrim)
        continue;
      out.layerPrims[i] = childPrim(layers[i], from.layerPrims[i], name);
      any = any || out.layerPrims[i] != kNoPrim;
    }
    for (const Node& child : from.children) {
      Node mapped;
      if (mapNode(child, name, mapped)) {
        out.children.push_back(std::move(mapped));
        any = true;
      }
    }
    return any;
  }

  void collectOpinions(const Node& node, std::vector<OpinionRef>& out) const {
    const auto& layers = stacks_[node.stack].layers;
    for (std::size_t i = 0; i < node.layerPrims.size(); ++i) {
      if (node.layerPrims[i] != kNoPrim)
        out.push_back({layers[i], node.layerPrims[i], &node});
    }
    for (const Node& child : node.children)
      collectOpinions(child, out);
  }

  std::string selectionFor(const Node& node, std::string_view setName) const {
    const auto& layers = stacks_[node.stack].layers;
    for (std::size_t i = 0; i < node.layerPrims.size(); ++i) {
      if (node.layerPrims[i] == kNoPrim)
        continue;
      for (const MetadataEntry& entry : layerAt(layers[i]).prims[node.layerPrims[i]].metadata) {
        if (entry.key != "variants")
          continue;
        if (const Value* selection = entry.value.findEntry(setName);
            selection && selection->itemCount > 0) {
          std::string chosen = selection->items()[0].decoded();
          if (isExpression(chosen)) {
            std::string error;
            chosen = evaluateExpression(chosen, rootVariables_, error).value_or("");
          }
          return chosen;
        }
      }
    }
    for (const Node& child : node.children) {
      std::string found = selectionFor(child, setName);
      if (!found.empty())
        return found;
    }
    return {};
  }

  std::vector<ArcItem> composeArcList(const Node& node, std::string_view key) const {
    std::vector<ArcItem> result;
    const auto& layers = stacks_[node.stack].layers;
    for (std::size_t i = node.layerPrims.size(); i-- > 0;) {
      if (node.layerPrims[i] == kNoPrim)
        continue;
      for (const MetadataEntry& entry : layerAt(layers[i]).prims[node.layerPrims[i]].metadata) {
        if (entry.key != key)
          continue;
        std::vector<ArcItem> items;
        for (const Value* value : listItems(entry.value))
          items.push_back({value, layers[i], &entry});
        applyListOp(result, entry.op, items,
                    [](const ArcItem& a, const ArcItem& b) { return *a.value == *b.value; });
      }
    }
    return result;
  }

  struct ExpandContext {
    const Node* root;
    std::string_view primPath;
    int depth;
    PrimArcs* arcs;
    std::vector<const Node*> ancestors;
    std::size_t sites = 0;  // nodes in the prim's tree
    bool reportedDepth = false;
    bool reportedSites = false;
  };

  static std::size_t countNodes(const Node& node) {
    std::size_t count = 1;
    for (const Node& child : node.children)
      count += countNodes(child);
    return count;
  }

  // Whether one path is the other or lies below it.
  static bool namespaceRelated(std::string_view a, std::string_view b) {
    const std::string_view shorter = a.size() < b.size() ? a : b;
    const std::string_view longer = a.size() < b.size() ? b : a;
    if (!longer.starts_with(shorter))
      return false;
    return longer.size() == shorter.size() || shorter == "/" || longer[shorter.size()] == '/';
  }

  void arcProblem(ExpandContext& context, const ArcItem& item, std::string message) {
    const StageLayer& authored = stage_->layers[item.layer];
    context.arcs->problems.push_back(authored.name + ":" + std::to_string(item.entry->line) + ":" +
                                     std::to_string(item.entry->column) + ": " +
                                     std::move(message));
  }

  // Whether an arc from `node` to a site may join the prim's tree; when not, the problem is
  // recorded (once per prim for the limits, which a wide or deep tree would hit again and again).
  bool admitArc(ExpandContext& context, const Node& node, const ArcItem& item,
                const std::string& what, std::uint32_t stack, const std::string& target) {
    if (formsCycle(context, node, stack, target)) {
      arcProblem(context, item,
                 "The " + what + " at <" + target + "> leads back to itself and is left out");
      return false;
    }
    if (context.ancestors.size() + 1 >= kMaxArcDepth) {
      if (!std::exchange(context.reportedDepth, true)) {
        arcProblem(context, item,
                   "The " + what + " is left out: arcs nest more than " +
                       std::to_string(kMaxArcDepth) + " deep here");
      }
      return false;
    }
    if (context.sites >= kMaxPrimSites) {
      if (!std::exchange(context.reportedSites, true)) {
        arcProblem(context, item,
                   "The " + what + " is left out: the prim is composed from more than " +
                       std::to_string(kMaxPrimSites) + " sites");
      }
      return false;
    }
    ++context.sites;
    return true;
  }

  void expand(Node& node, ExpandContext& context) {
    addArcs(node, context);
    context.ancestors.push_back(&node);
    for (std::size_t i = 0; i < node.children.size(); ++i)
      expand(node.children[i], context);
    if (!implied_.empty())
      addImpliedArcs(node, context);
    context.ancestors.pop_back();
  }

  // Adds and expands the class arcs implied at `node`, then puts its arcs back in strength order.
  void addImpliedArcs(Node& node, ExpandContext& context) {
    bool added = false;
    for (;;) {
      const std::size_t first = node.children.size();
      for (auto it = implied_.begin(); it != implied_.end();) {
        if (it->first != &node) {
          ++it;
          continue;
        }
        const Node& arc = it->second;
        const bool known =
            std::any_of(node.children.begin(), node.children.end(), [&](const Node& c) {
              return c.arc == arc.arc && c.stack == arc.stack && c.path == arc.path;
            });
        if (!known)
          node.children.push_back(std::move(it->second));
        it = implied_.erase(it);
      }
      if (node.children.size() == first)
        break;
      added = true;
      for (std::size_t i = first; i < node.children.size(); ++i)
        expand(node.children[i], context);
    }
    if (!added)
      return;
    context.arcs->hasArcs = true;
    std::stable_sort(node.children.begin(), node.children.end(), [](const Node& a, const Node& b) {
      if (a.arc != b.arc)
        return a.arc < b.arc;
      return a.introDepth > b.introDepth;
    });
  }

  // A class arc inside a referenced asset reaches out of it: the class's path, carried across the
  // reference (a root prim keeps its path), names the class at the site that referenced the
  // asset, and the opinions found there on it are stronger than the asset's own. So a stage's
  // `over` on a class changes every asset that inherits that class.
  void implyClassArc(const Node& node, ExpandContext& context, ArcType arc, std::string classPath) {
    const Node* at = &node;
    // The tree's parent of each node is the site whose arc brought it in.
    for (std::size_t level = context.ancestors.size(); level > 0; --level) {
      const Node* site = context.ancestors[level - 1];
      if (at->mapping && at->mapping != site->mapping) {
        const PathMapping& mapping = *at->mapping;
        if (hasPrefixPath(classPath, mapping.from)) {
          classPath = mapping.to + classPath.substr(mapping.from.size());
        } else if (mapping.from.find('/', 1) != std::string::npos) {
          return;  // an arc to a prim below the root carries only its own namespace
        }
      }
      const auto related = [&](const Node* other) {
        return other->stack == site->stack && namespaceRelated(other->path, classPath);
      };
      if (std::any_of(context.ancestors.begin(),
                      context.ancestors.begin() + static_cast<std::ptrdiff_t>(level), related)) {
        return;  // the class is what brought the asset in: implying it again would be a cycle
      }
      if (site->stack != at->stack && context.sites < kMaxPrimSites && level < kMaxArcDepth) {
        bool any = false;
        auto layerPrims = primsAt(site->stack, classPath, any);
        if (any) {
          ++context.sites;
          implied_.emplace_back(site, makeArcNode(*site, arc, site->stack, classPath,
                                                  std::move(layerPrims), context.depth));
        }
      }
      at = site;
    }
  }

  // An arc closes a cycle when its site is, or lies above or below, a site already on the way
  // to it in the same layer stack: composing either would need the other first. The prim's own
  // site is on every way, so an arc to an ancestor of the prim is a cycle too.
  static bool formsCycle(const ExpandContext& context, const Node& node, std::uint32_t stack,
                         std::string_view path) {
    const auto related = [&](const Node* site) {
      return site->stack == stack && namespaceRelated(site->path, path);
    };
    return related(&node) ||
           std::any_of(context.ancestors.begin(), context.ancestors.end(), related);
  }

  Node makeArcNode(const Node& from, ArcType arc, std::uint32_t stack, std::string target,
                   std::vector<std::uint32_t> layerPrims, int depth) {
    Node node;
    node.arc = arc;
    node.stack = stack;
    node.introDepth = depth;
    node.layerPrims = std::move(layerPrims);
    if (target != from.path || from.mapping) {
      node.mapping = std::make_shared<PathMapping>(PathMapping{target, from.path, from.mapping});
    }
    node.path = std::move(target);
    return node;
  }

  void addArcs(Node& node, ExpandContext& context) {
    std::vector<Node> added;
    addClassArcs(node, context, "inherits", ArcType::Inherit, added);
    addVariantArcs(node, context, added);
    addReferenceArcs(node, context, "references", ArcType::Reference, added);
    addReferenceArcs(node, context, "payload", ArcType::Payload, added);
    addClassArcs(node, context, "specializes", ArcType::Specialize, added);
    if (added.empty())
      return;
    context.arcs->hasArcs = true;
    for (Node& child : added)
      node.children.push_back(std::move(child));
    std::stable_sort(node.children.begin(), node.children.end(), [](const Node& a, const Node& b) {
      if (a.arc != b.arc)
        return a.arc < b.arc;
      return a.introDepth > b.introDepth;  // arcs authored on the prim itself beat inherited ones
    });
  }

  void addClassArcs(const Node& node, ExpandContext& context, std::string_view key, ArcType arc,
                    std::vector<Node>& added) {
    for (const ArcItem& item : composeArcList(node, key)) {
      const auto target = item.value->targetPath();
      if (!target)
        continue;
      std::string path = absolutePath(*target, node.path);
      bool any = false;
      auto layerPrims = primsAt(node.stack, path, any);
      // Inside an asset the class may be written only where the asset is used.
      if (node.arc != ArcType::Root)
        implyClassArc(node, context, arc, path);
      if (!any)
        continue;  // a class nobody wrote yet is no error
      const std::string what = std::string(arc == ArcType::Inherit ? "inherit" : "specialize") +
                               " arc to <" + *target + ">";
      if (!admitArc(context, node, item, what, node.stack, path))
        continue;
      added.push_back(makeArcNode(node, arc, node.stack, std::move(path), std::move(layerPrims),
                                  context.depth));
    }
  }

  void addVariantArcs(const Node& node, ExpandContext& context, std::vector<Node>& added) {
    const auto& layers = stacks_[node.stack].layers;
    std::vector<std::string_view> seen;
    for (std::size_t i = 0; i < node.layerPrims.size(); ++i) {
      if (node.layerPrims[i] == kNoPrim)
        continue;
      for (const LayerVariantSet& set : layerAt(layers[i]).prims[node.layerPrims[i]].variantSets) {
        if (std::find(seen.begin(), seen.end(), set.name) != seen.end())
          continue;
        seen.push_back(set.name);
        const std::string selection = selectionFor(*context.root, set.name);
        auto& selections = context.arcs->selections;
        if (std::none_of(selections.begin(), selections.end(),
                         [&](const auto& s) { return s.first == set.name; })) {
          selections.emplace_back(std::string(set.name), selection);
        }
        if (selection.empty())
          continue;
        Node variant;
        variant.arc = ArcType::Variant;
        variant.stack = node.stack;
        variant.introDepth = context.depth;
        variant.path = node.path;
        variant.mapping = node.mapping;
        variant.layerPrims.assign(node.layerPrims.size(), kNoPrim);
        bool any = false;
        for (std::size_t j = 0; j < node.layerPrims.size(); ++j) {
          if (node.layerPrims[j] == kNoPrim)
            continue;
          const LayerVariantSet* inLayer =
              layerAt(layers[j]).prims[node.layerPrims[j]].findVariantSet(set.name);
          if (!inLayer)
            continue;
          for (const LayerVariant& candidate : inLayer->variants) {
            if (candidate.name == selection) {
              variant.layerPrims[j] = candidate.body;
              any = true;
            }
          }
        }
        if (any && context.ancestors.size() + 1 < kMaxArcDepth && context.sites < kMaxPrimSites) {
          ++context.sites;
          added.push_back(std::move(variant));
        }
      }
    }
  }

  void addReferenceArcs(const Node& node, ExpandContext& context, std::string_view key, ArcType arc,
                        std::vector<Node>& added) {
    const char* what = arc == ArcType::Payload ? "payload" : "reference";
    for (const ArcItem& item : composeArcList(node, key)) {
      // Problems name the statement that authored the arc: "layer.usda:12:9: ...".
      const auto problem = [&](std::string message) {
        arcProblem(context, item, std::move(message));
      };
      const std::string asset = item.value->assetPath().value_or("");
      std::string target = item.value->targetPath().value_or("");
      const std::string shown = asset.empty() ? "<" + target + ">" : asset;
      if (arc == ArcType::Payload) {
        context.arcs->hasPayload = true;
        if (!options_.loadPayloads)
          continue;
      }
      std::uint32_t stack = node.stack;
      if (!asset.empty()) {
        std::string error;
        const std::string path = resolveAsset(item.layer, asset, error);
        const auto layer = path.empty() ? std::nullopt : loadLayer(path, 0, false, error);
        if (!layer) {
          problem(std::string("The ") + what + " to '" + asset + "' is left out: " + error);
          continue;
        }
        stack = layerStackFor(*layer, false);
        if (target.empty()) {
          target = layerAt(*layer).defaultPrim();
          if (target.empty()) {
            problem(std::string("The ") + what + " to '" + asset +
                    "' names no prim and the layer has no defaultPrim");
            continue;
          }
          if (target.front() != '/')
            target.insert(target.begin(), '/');
        }
      } else if (target.empty()) {
        problem(std::string("An internal ") + what + " names no prim");
        continue;
      } else {
        target = absolutePath(target, node.path);
      }
      bool any = false;
      auto layerPrims = primsAt(stack, target, any);
      if (!any) {
        problem(std::string("The ") + what + " to '" + shown + "' is left out: no prim <" + target +
                "> there");
        continue;
      }
      if (!admitArc(context, node, item, std::string(what) + " to '" + shown + "'", stack, target))
        continue;
      if (arc == ArcType::Payload)
        context.arcs->payloadLoaded = true;
      added.push_back(
          makeArcNode(node, arc, stack, std::move(target), std::move(layerPrims), context.depth));
    }
  }

  // ---- composing prims ----

  struct ChildName {
    std::string_view name;
    // The child's index in its layer when a single opinion names every child, else kNoPrim.
    std::uint32_t layerPrim;
  };

  void composeChildren(const Node& tree, const std::vector<OpinionRef>& opinions,
                       std::uint32_t parentIndex, const std::string& parentPath, int depth,
                       bool proxy) {
    const OpinionRef* only = nullptr;
    if (!relocations_.empty()) {
      composeRelocatedChildren(tree, childNames(opinions, only), only, parentIndex, parentPath,
                               depth, proxy);
      return;
    }
    for (const ChildName& child : childNames(opinions, only)) {
      if (!failure_.empty())
        return;
      if (only)
        hint_ = {only->layer, only->layerPrim, child.layerPrim};
      Node node;
      const bool mapped = mapNode(tree, child.name, node);
      hint_ = {};
      if (!mapped)
        continue;
      composePrim(std::move(node), child.name, parentIndex, parentPath, depth + 1, proxy);
    }
  }

  // ---- relocations ----

  // composeChildren on a stage with relocations: moved prims leave and arrive.
  void composeRelocatedChildren(const Node& tree, std::vector<ChildName> names,
                                const OpinionRef* only, std::uint32_t parentIndex,
                                const std::string& parentPath, int depth, bool proxy) {
    relocateNames(parentPath, names);
    for (const ChildName& child : names) {
      if (!failure_.empty())
        return;
      Node node;
      bool mapped = false;
      if (const Relocation* moved = relocationTo(parentPath, child.name)) {
        mapped = relocatedTree(*moved, node);
      } else {
        if (only)
          hint_ = {only->layer, only->layerPrim, child.layerPrim};
        mapped = mapNode(tree, child.name, node);
        hint_ = {};
      }
      if (!mapped)
        continue;
      composePrim(std::move(node), child.name, parentIndex, parentPath, depth + 1, proxy);
    }
  }

  // Relocations of a `relocates` value, its paths relative to `anchor`. The moved prim's name is
  // kept as a view of the layer's text, which the stage holds.
  void addRelocations(const Value& value, std::string_view anchor) {
    if (value.kind != ValueKind::PathMap)
      return;
    for (const Value& entry : value.items()) {
      if (entry.itemCount == 0)
        continue;
      const std::string_view written = entry.items()[0].text;
      std::string from = absolutePath(Value::ofKind(ValueKind::Path, entry.text).decoded(), anchor);
      std::string to = absolutePath(entry.items()[0].decoded(), anchor);
      const std::size_t slash = to.rfind('/');
      const std::string_view name =
          written.substr(0, written.size() - 1).substr(written.find_last_of("/<") + 1);
      if (from.size() < 2 || to.size() < 2 || slash == std::string::npos || name.empty() ||
          hasPrefixPath(to, from) || hasPrefixPath(from, to) ||
          std::string_view(to).substr(slash + 1) != name) {
        continue;
      }
      relocations_.push_back({std::move(from), std::move(to), name});
    }
  }

  // A relocated prim leaves its old place and appears, last among its new siblings, at the new.
  void relocateNames(const std::string& parentPath, std::vector<ChildName>& names) const {
    std::erase_if(names, [&](const ChildName& child) {
      const std::string path = parentPath + "/" + std::string(child.name);
      return std::any_of(relocations_.begin(), relocations_.end(),
                         [&](const Relocation& moved) { return moved.from == path; });
    });
    for (const Relocation& moved : relocations_) {
      const std::string_view parent(moved.to.data(), moved.to.size() - moved.name.size() - 1);
      if (parent != parentPath)
        continue;
      if (std::none_of(names.begin(), names.end(),
                       [&](const ChildName& child) { return child.name == moved.name; })) {
        names.push_back({moved.name, kNoPrim});
      }
    }
  }

  const Relocation* relocationTo(const std::string& parentPath, std::string_view name) const {
    if (relocations_.empty())
      return nullptr;
    for (const Relocation& moved : relocations_) {
      if (moved.name == name && moved.to.size() == parentPath.size() + name.size() + 1 &&
          std::string_view(moved.to).starts_with(parentPath)) {
        return &moved;
      }
    }
    return nullptr;
  }

  // The sites of a prim at `path` as its ancestors' arcs make them, before its own arcs.
  bool treeAt(std::string_view path, Node& out) {
    Node tree = *pseudoRoot_;
    std::string soFar;
    int depth = 0;
    for (std::size_t position = 1; position < path.size();) {
      const std::size_t slash = path.find('/', position);
      const std::string_view name =
          path.substr(position, slash == std::string_view::npos ? slash : slash - position);
      Node next;
      if (!mapNode(tree, name, next))
        return false;
      soFar += '/';
      soFar += name;
      ++depth;
      if (slash == std::string_view::npos) {
        out = std::move(next);
        return true;
      }
      PrimArcs arcs;
      ExpandContext context{&next, soFar, depth, &arcs, {}, countNodes(next), false, false};
      expand(next, context);
      implied_.clear();
      tree = std::move(next);
      position = slash + 1;
    }
    return false;
  }

  // The sites of a relocated prim: what its ancestors' arcs bring in at the old path, and the
  // root layer stack's own opinions at the new one (those at the old path no longer count).
  // Paths of what was brought in map to the new path.
  bool relocatedTree(const Relocation& moved, Node& out) {
    Node source;
    if (!treeAt(moved.from, source))
      return false;
    auto relocation = std::make_shared<const PathMapping>(PathMapping{moved.from, moved.to, {}});
    std::unordered_map<const PathMapping*, std::shared_ptr<const PathMapping>> remapped;
    remapped.emplace(nullptr, relocation);
    for (Node& child : source.children)
      remapOutermost(child, remapped);
    bool any = false;
    out.arc = ArcType::Root;
    out.stack = pseudoRoot_->stack;
    out.path = moved.to;
    out.layerPrims = primsAt(out.stack, moved.to, any);
    out.mapping = std::move(relocation);
    out.children = std::move(source.children);
    return any || !out.children.empty();
  }

  // Gives every mapping chain of a tree one more outermost step, keeping shared steps shared.
  static void remapOutermost(
      Node& node,
      std::unordered_map<const PathMapping*, std::shared_ptr<const PathMapping>>& remapped) {
    node.mapping = remapChain(node.mapping.get(), remapped);
    for (Node& child : node.children)
      remapOutermost(child, remapped);
  }

  static std::shared_ptr<const PathMapping> remapChain(
      const PathMapping* mapping,
      std::unordered_map<const PathMapping*, std::shared_ptr<const PathMapping>>& remapped) {
    if (const auto found = remapped.find(mapping); found != remapped.end())
      return found->second;
    auto copy = std::make_shared<const PathMapping>(
        PathMapping{mapping->from, mapping->to, remapChain(mapping->outer.get(), remapped)});
    remapped.emplace(mapping, copy);
    return copy;
  }

  // The children's names in composed order. When a single opinion names them all, `only` points
  // to it and each name comes with its index, so no lookup by name is needed.
  std::vector<ChildName> childNames(const std::vector<OpinionRef>& opinions,
                                    const OpinionRef*& only) {
    std::vector<ChildName> names;
    std::size_t contributing = 0;
    for (const OpinionRef& opinion : opinions) {
      if (childrenOf(opinion.layer, opinion.layerPrim).empty())
        continue;
      ++contributing;
      only = &opinion;
    }
    if (contributing != 1)
      only = nullptr;
    if (contributing == 0)
      return names;
    if (only) {
      const Layer& layer = layerAt(only->layer);
      const auto& children = childrenOf(only->layer, only->layerPrim);
      names.reserve(children.size());
      for (const std::uint32_t child : children)
        names.push_back({layer.prims[child].name, child});
    } else {
      // Weaker opinions name their children first; stronger ones add theirs after.
      std::unordered_set<std::string_view> seen;
      for (auto it = opinions.rbegin(); it != opinions.rend(); ++it) {
        for (const std::uint32_t child : childrenOf(it->layer, it->layerPrim)) {
          const std::string_view name = layerAt(it->layer).prims[child].name;
          if (seen.insert(name).second)
            names.push_back({name, kNoPrim});
        }
      }
    }
    applyReorder(opinions, names);
    return names;
  }

  void applyReorder(const std::vector<OpinionRef>& opinions, std::vector<ChildName>& names) const {
    for (const OpinionRef& opinion : opinions) {
      const Layer& layer = layerAt(opinion.layer);
      const bool root = opinion.layerPrim == kPseudoRoot;
      for (const MetadataEntry& reorder :
           root ? layer.reorders : layer.prims[opinion.layerPrim].reorders) {
        if (reorder.key !=
            (root ? std::string_view("rootPrims") : std::string_view("nameChildren")))
          continue;
        std::vector<std::string> order;
        for (const Value& item : reorder.value.items())
          order.push_back(item.decoded());
        const auto rank = [&](std::string_view name) {
          const auto at = std::find(order.begin(), order.end(), name);
          return static_cast<std::size_t>(at - order.begin());
        };
        std::stable_sort(names.begin(), names.end(), [&](const ChildName& a, const ChildName& b) {
          return rank(a.name) < rank(b.name);
        });
        return;  // the strongest reorder statement decides
      }
    }
  }

  void composePrim(Node tree, std::string_view name, std::uint32_t parentIndex,
                   const std::string& parentPath, int depth, bool proxy) {
    std::string path;
    path.reserve(parentPath.size() + name.size() + 1);
    path = parentPath;
    path += '/';
    path += name;
    if (depth > kMaxNamespaceDepth) {
      addProblem(path, "The prim is nested too deeply and is left out");
      return;
    }
    PrimArcs arcs;
    ExpandContext context{&tree, path, depth, &arcs, {}, countNodes(tree), false, false};
    expand(tree, context);
    implied_.clear();
    sites_ += context.sites;
    if (sites_ > options_.limits.maxSites) {
      failure_ = "composing the stage takes more than " + std::to_string(options_.limits.maxSites) +
                 " sites, the limit of one stage";
      return;
    }
    std::vector<OpinionRef> opinions;
    collectOpinions(tree, opinions);
    if (opinions.empty())
      return;
    if (stage_->prims.size() >= options_.limits.maxPrims) {
      failure_ = "the stage has more than " + std::to_string(options_.limits.maxPrims) +
                 " prims, the limit of one stage";
      return;
    }

    const auto index = static_cast<std::uint32_t>(stage_->prims.size());
    stage_->prims.emplace_back();
    if (parentIndex == kNoPrim) {
      stage_->rootPrims.push_back(index);
    } else {
      stage_->prims[parentIndex].children.push_back(index);
    }
    {
      ComposedPrim& prim = stage_->prims[index];
      prim.path = std::move(path);
      prim.name = name;
      prim.parent = parentIndex;
      prim.instanceProxy = proxy;
      prim.hasArcs = arcs.hasArcs;
      prim.hasPayload = arcs.hasPayload;
      prim.payloadLoaded = arcs.payloadLoaded;
      prim.variantSelections = std::move(arcs.selections);
      for (std::string& problem : arcs.problems)
        prim.problems.push_back(addProblem(prim.path, std::move(problem)));
      composePrimFields(prim, opinions);
      prim.isInstance = prim.instanceable && !tree.children.empty();
    }
    const ComposedPrim& prim = stage_->prims[index];
    if (!prim.active)
      return;  // an inactive prim hides its whole subtree
    const bool childProxy = proxy || prim.isInstance;
    const std::string primPath = prim.path;
    composeChildren(tree, opinions, index, primPath, depth, childProxy);
  }

  void composePrimFields(ComposedPrim& prim, const std::vector<OpinionRef>& opinions) {
    prim.firstOpinion = static_cast<std::uint32_t>(stage_->primOpinions.size());
    prim.opinionCount = static_cast<std::uint32_t>(opinions.size());
    bool haveActive = false;
    bool haveInstanceable = false;
    bool haveKind = false;
    bool haveSpecifier = false;
    for (const OpinionRef& opinion : opinions) {
      std::uint32_t site = kLocalSite;
      if (opinion.node->mapping || opinion.node->path != prim.path) {
        site = static_cast<std::uint32_t>(stage_->sites.size());
        stage_->sites.push_back({opinion.node->path, opinion.node->mapping});
      }
      stage_->primOpinions.push_back({opinion.layer, opinion.layerPrim, site});
      const LayerPrim& layerPrim = layerAt(opinion.layer).prims[opinion.layerPrim];
      if (!haveSpecifier && !layerPrim.isVariantBody && layerPrim.specifier != Specifier::Over) {
        prim.specifier = layerPrim.specifier;
        haveSpecifier = true;
      }
      if (prim.typeName.empty())
        prim.typeName = layerPrim.typeName;
      for (const MetadataEntry& entry : layerPrim.metadata) {
        if (!haveActive && entry.key == "active") {
          prim.active = entry.value.toBool().value_or(true);
          haveActive = true;
        } else if (!haveInstanceable && entry.key == "instanceable") {
          prim.instanceable = entry.value.toBool().value_or(false);
          haveInstanceable = true;
        } else if (!haveKind && entry.key == "kind") {
          prim.kind = entry.value.decoded();
          haveKind = true;
        } else if (entry.key == "relocates" && opinion.node->path == prim.path &&
                   stage_->layers[opinion.layer].inRootLayerStack) {
          addRelocations(entry.value, prim.path);
        }
      }
    }
    prim.defined = haveSpecifier;
  }

  const ComposeOptions& options_;
  ExpressionVariables rootVariables_;
  std::deque<Relocation> relocations_;  // of the root layer stack, in stage namespace
  // Class arcs that a class arc inside an asset implies at the site that brought the asset in,
  // waiting until that site's arcs have been expanded (one prim's expansion at a time).
  std::vector<std::pair<const Node*, Node>> implied_;
  const Node* pseudoRoot_ = nullptr;  // while composing
  fs::path confinementRoot_;
  std::unordered_map<std::string, bool> outside_;
  std::string failure_;
  std::size_t sites_ = 0;
  std::unordered_set<std::string> muted_;
  std::shared_ptr<Stage> stage_;
  std::unordered_map<std::string, std::uint32_t> layerByPath_;
  std::vector<ChildIndex> childIndexes_;
  std::vector<LayerStack> stacks_;
  std::unordered_map<std::uint32_t, std::uint32_t> stackByRoot_;
  struct ChildHint {
    std::uint32_t layer = kNoPrim;
    std::uint32_t parent = kNoPrim;
    std::uint32_t child = kNoPrim;
  } hint_;
};

}  // namespace

StageOpenResult openStage(const std::string& rootLayerPath, const ComposeOptions& options) {
  StageOpenResult result;
  const std::string path = normalisedPath(rootLayerPath);
  if (const char* format = foreignFormat(path)) {
    result.error = ReadError{rootLayerPath, 0, 0,
                             std::string("the scene is ") + format + ", not a USD text layer"};
    return result;
  }
  Composer composer(options);
  if (composer.outsideConfinement(path)) {
    result.error = ReadError{rootLayerPath, 0, 0, "the scene is outside the project folder"};
    return result;
  }
  LayerReadResult read = readLayerFile(path, options.limits.maxLayerBytes);
  if (!read.ok()) {
    read.error->file = rootLayerPath;
    result.error = std::move(read.error);
    return result;
  }
  result.stage = composer.compose(std::move(read.layer), path);
  if (!result.stage)
    result.error = ReadError{rootLayerPath, 0, 0, composer.failure()};
  return result;
}

StageOpenResult composeStage(std::shared_ptr<const Layer> rootLayer,
                             const ComposeOptions& options) {
  StageOpenResult result;
  const std::string path = normalisedPath(rootLayer->identifier());
  Composer composer(options);
  result.stage = composer.compose(std::move(rootLayer), path);
  if (!result.stage)
    result.error = ReadError{path, 0, 0, composer.failure()};
  return result;
}

}  // namespace orvan::engine

// The prim operations: add, reference, payload, delete, reset, duplicate, reparent, rename and
// set-instanceable, each as changes of the active layer (and, for moves, of every layer of the
// stack that holds the prim).
#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <functional>
#include <unordered_set>

#include "Authoring/LayerFragments.h"
#include "Authoring/PlanContext.h"
#include "Authoring/ValueText.h"
#include "Inspector/ComponentModel.h"
#include "UsdText/LayerWriter.h"
#include "UsdText/ListEdits.h"
#include "UsdText/PathMapping.h"

namespace orvan::engine {
namespace {

constexpr std::string_view kDisplayColor = "color3f[] primvars:displayColor = [(0.8, 0.8, 0.8)]\n";

// What `primitiveKind` makes: the prim type and the attributes a new one starts with.
struct PrimitiveKind {
  std::string_view word;  // lower case, without separators
  std::string_view type;
  std::string_view attributes;
  bool shape = false;     // gets the default display colour
  bool xformable = true;  // gets the transform operations
};

constexpr std::array<PrimitiveKind, 17> kPrimitiveKinds{{
    {"cube", "Cube", "double size = 1\n", true},
    {"sphere", "Sphere", "double radius = 0.5\n", true},
    {"cylinder", "Cylinder", "uniform token axis = \"Y\"\ndouble height = 1\ndouble radius = 0.5\n",
     true},
    {"cone", "Cone", "uniform token axis = \"Y\"\ndouble height = 1\ndouble radius = 0.5\n", true},
    {"capsule", "Capsule", "uniform token axis = \"Y\"\ndouble height = 1\ndouble radius = 0.25\n",
     true},
    {"plane", "Plane", "uniform token axis = \"Y\"\ndouble length = 1\ndouble width = 1\n", true},
    {"xform", "Xform", ""},
    {"empty", "Xform", ""},
    {"group", "Xform", ""},
    {"scope", "Scope", "", false, false},
    {"distantlight", "DistantLight",
     "float inputs:angle = 0.53\ncolor3f inputs:color = (1, 1, 1)\nfloat inputs:intensity = 1\n"},
    {"spherelight", "SphereLight",
     "color3f inputs:color = (1, 1, 1)\nfloat inputs:intensity = 1\nfloat inputs:radius = 0.5\n"},
    {"pointlight", "SphereLight",
     "color3f inputs:color = (1, 1, 1)\nfloat inputs:intensity = 1\nfloat inputs:radius = 0.5\n"},
    {"rectlight", "RectLight",
     "color3f inputs:color = (1, 1, 1)\nfloat inputs:height = 1\nfloat inputs:intensity = 1\n"
     "float inputs:width = 1\n"},
    {"disklight", "DiskLight",
     "color3f inputs:color = (1, 1, 1)\nfloat inputs:intensity = 1\nfloat inputs:radius = 0.5\n"},
    {"camera", "Camera", "float focalLength = 35\n"},
    {"mesh", "Mesh", ""},
}};

const PrimitiveKind* primitiveKindOf(std::string_view word) {
  std::string key;
  for (const char c : word) {
    if (c == '-' || c == '_' || c == ' ')
      continue;
    key += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  if (key.empty())
    key = "xform";
  for (const PrimitiveKind& kind : kPrimitiveKinds) {
    if (kind.word == key)
      return &kind;
  }
  return nullptr;
}

// ---- transforms: where a world position lies in a parent's space ----

struct Affine {
  double m[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  double t[3] = {0, 0, 0};
};

Affine multiply(const Affine& a, const Affine& b) {
  Affine out;
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c)
      out.m[r][c] = a.m[r][0] * b.m[0][c] + a.m[r][1] * b.m[1][c] + a.m[r][2] * b.m[2][c];
    out.t[r] = a.m[r][0] * b.t[0] + a.m[r][1] * b.t[1] + a.m[r][2] * b.t[2] + a.t[r];
  }
  return out;
}

Affine rotation(int axis, double degrees) {
  const double radians = degrees * 3.14159265358979323846 / 180.0;
  const double c = std::cos(radians);
  const double s = std::sin(radians);
  Affine out;
  const int i = (axis + 1) % 3;
  const int j = (axis + 2) % 3;
  out.m[i][i] = c;
  out.m[i][j] = -s;
  out.m[j][i] = s;
  out.m[j][j] = c;
  return out;
}

std::optional<Affine> inverse(const Affine& a) {
  const auto& m = a.m;
  const double det = m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
                     m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
                     m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
  if (std::abs(det) < 1e-12)
    return std::nullopt;
  Affine out;
  out.m[0][0] = (m[1][1] * m[2][2] - m[1][2] * m[2][1]) / det;
  out.m[0][1] = (m[0][2] * m[2][1] - m[0][1] * m[2][2]) / det;
  out.m[0][2] = (m[0][1] * m[1][2] - m[0][2] * m[1][1]) / det;
  out.m[1][0] = (m[1][2] * m[2][0] - m[1][0] * m[2][2]) / det;
  out.m[1][1] = (m[0][0] * m[2][2] - m[0][2] * m[2][0]) / det;
  out.m[1][2] = (m[0][2] * m[1][0] - m[0][0] * m[1][2]) / det;
  out.m[2][0] = (m[1][0] * m[2][1] - m[1][1] * m[2][0]) / det;
  out.m[2][1] = (m[0][1] * m[2][0] - m[0][0] * m[2][1]) / det;
  out.m[2][2] = (m[0][0] * m[1][1] - m[0][1] * m[1][0]) / det;
  for (int r = 0; r < 3; ++r)
    out.t[r] = -(out.m[r][0] * a.t[0] + out.m[r][1] * a.t[1] + out.m[r][2] * a.t[2]);
  return out;
}

// The prim's own transform from its translate, rotateXYZ and scale operations, in the order
// xformOpOrder lists them (the first is the outermost).
Affine localTransform(const Stage& stage, const ComposedPrim& prim) {
  Affine local;
  const auto order = stage.findProperty(prim, "xformOpOrder");
  if (!order || !order->value)
    return local;
  for (const Value* item : listItems(*order->value)) {
    const std::string op = item->decoded();
    const auto property = stage.findProperty(prim, op);
    if (!property || !property->value)
      continue;
    const std::vector<double> numbers = numbersOf(*property->value);
    if (numbers.size() != 3)
      continue;
    Affine step;
    if (op.starts_with("xformOp:translate") && op.find(":pivot") == std::string::npos) {
      step.t[0] = numbers[0];
      step.t[1] = numbers[1];
      step.t[2] = numbers[2];
    } else if (op.starts_with("xformOp:scale")) {
      for (int i = 0; i < 3; ++i)
        step.m[i][i] = numbers[static_cast<std::size_t>(i)];
    } else if (op.starts_with("xformOp:rotateXYZ")) {
      step = multiply(rotation(2, numbers[2]),
                      multiply(rotation(1, numbers[1]), rotation(0, numbers[0])));
    } else {
      continue;
    }
    local = multiply(local, step);
  }
  return local;
}

// A world position in the space of the prim at `parentPath`.
std::vector<double> toParentSpace(const EditableScene& scene, std::string_view parentPath,
                                  std::vector<double> world) {
  std::vector<std::string_view> chain;
  for (std::string_view at = parentPath; at != "/" && !at.empty(); at = parentPathOf(at))
    chain.push_back(at);
  Affine transform;
  for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
    const ComposedPrim* prim = scene.composedPrim(*it);
    if (!prim)
      return world;
    transform = multiply(transform, localTransform(scene.keptStage(), *prim));
  }
  const auto inverted = inverse(transform);
  if (!inverted)
    return world;
  std::vector<double> local(3);
  for (int r = 0; r < 3; ++r) {
    local[static_cast<std::size_t>(r)] = inverted->m[r][0] * world[0] +
                                         inverted->m[r][1] * world[1] +
                                         inverted->m[r][2] * world[2] + inverted->t[r];
    if (std::abs(local[static_cast<std::size_t>(r)]) < 1e-12)
      local[static_cast<std::size_t>(r)] = 0;
  }
  return local;
}

// ---- helpers shared by the operations ----

std::string normalisedParent(std::string_view parentPath) {
  if (parentPath.empty())
    return "/";
  return std::string(parentPath);
}

bool isPrimPath(std::string_view path) {
  if (path.size() < 2 || path.front() != '/' || path.back() == '/')
    return false;
  std::size_t start = 1;
  while (start < path.size()) {
    const std::size_t slash = path.find('/', start);
    if (!isValidPrimName(path.substr(start, slash - start)))
      return false;
    if (slash == std::string_view::npos)
      break;
    start = slash + 1;
  }
  return true;
}

Refusal checkExisting(const PlanContext& context, std::string_view path) {
  if (!isPrimPath(path) || !context.primExists(path))
    return "No prim at " + std::string(path.empty() ? "(empty path)" : path);
  return std::nullopt;
}

Refusal checkParent(const PlanContext& context, std::string_view parent) {
  if (parent == "/")
    return std::nullopt;
  return checkExisting(context, parent);
}

Refusal checkNewName(const PlanContext& context, std::string_view parent, std::string_view name) {
  if (!isValidPrimName(name)) {
    if (name.empty())
      return std::string("Prim name cannot be empty");
    return "'" + std::string(name) + "' is not a valid prim name";
  }
  const std::string path = childPath(parent, name);
  if (context.primExists(path) || context.layerOf(context.layerId).findPrim(path) != kNoPrim) {
    return "Name already exists: " + std::string(name);
  }
  return std::nullopt;
}

bool isWorldOrRoot(std::string_view path) {
  return path == "/World" || path == "/";
}

std::string quoted(std::string_view text) {
  return encodeStringLiteral(text);
}

// The transform operations of a new entity, at a position in its parent's space.
std::string transformLines(const PlanContext& context, std::string_view parent,
                           const EditOperation& operation) {
  std::vector<double> at{0, 0, 0};
  if (operation.initialTranslation && operation.initialTranslation->size() >= 3) {
    at.assign(operation.initialTranslation->begin(), operation.initialTranslation->begin() + 3);
    if (std::all_of(at.begin(), at.end(), [](double v) { return std::isfinite(v); }))
      at = toParentSpace(context.scene, parent, at);
    else
      at = {0, 0, 0};
  }
  return "double3 xformOp:translate = " + formatTuple(at) +
         "\nuniform token[] xformOpOrder = [\"xformOp:translate\"]\n";
}

// The text of a new entity prim.
std::string entityText(std::string_view specifierAndType, std::string_view name,
                       const std::vector<std::string>& metadata, std::uint64_t id,
                       std::string_view displayName, std::string_view body) {
  std::string text =
      "#usda 1.0\n" + std::string(specifierAndType) + " \"" + std::string(name) + "\" (\n";
  for (const std::string& entry : metadata)
    text += entry + "\n";
  text += ")\n{\n";
  text += "custom uint64 orvan:entityId = " + std::to_string(id) + "\n";
  text += "custom string orvan:name = " + quoted(displayName) + "\n";
  text += body;
  text += "}\n";
  return canonicalLayerText(text);
}

PrimOperationRecord recordOf(const EditOperation& operation) {
  std::string kind(operationKindWord(operation.kind));
  if (operation.kindAs<PrimOperationKind>() == PrimOperationKind::Rename)
    kind = "reparent";
  return {kind, operation.parentPath, operation.primName, operation.primitiveKind,
          operation.sourcePath};
}

// ---- add, reference, payload ----

Refusal planAdd(PlanContext& context, const EditOperation& operation, std::string& message) {
  const std::string parent = normalisedParent(operation.parentPath);
  if (Refusal refused = checkParent(context, parent))
    return refused;
  if (Refusal refused = context.instanceInsertRefusal(parent))
    return refused;
  if (Refusal refused = checkNewName(context, parent, operation.primName))
    return refused;
  const auto kind = operation.kindAs<PrimOperationKind>();
  std::string header;
  std::vector<std::string> metadata{"kind = \"component\""};
  std::string body;
  if (kind == PrimOperationKind::Add) {
    const PrimitiveKind* primitive = primitiveKindOf(operation.primitiveKind);
    if (!primitive)
      return "Unknown primitive kind '" + operation.primitiveKind + "'";
    header = "def " + std::string(primitive->type);
    body = std::string(primitive->attributes);
    if (primitive->shape)
      body += kDisplayColor;
    if (primitive->xformable)
      body += transformLines(context, parent, operation);
    message = "Added " + operation.primName;
  } else {
    const bool reference = kind == PrimOperationKind::Reference;
    const std::string& uri = reference ? operation.referenceURI : operation.payloadURI;
    if (uri.empty())
      return std::string(reference ? "A reference" : "A payload") + " needs an asset path";
    header = "def";
    metadata.push_back(std::string(reference ? "prepend references = " : "prepend payload = ") +
                       encodeAssetLiteral(uri));
    body = transformLines(context, parent, operation);
    message = std::string(reference ? "Added reference " : "Added payload ") + operation.primName;
  }
  const std::uint64_t id = context.ids.take(context.scene);
  const std::string display =
      operation.assetName.empty() ? operation.primName : operation.assetName;
  const std::string text = entityText(header, operation.primName, metadata, id, display, body);
  if (Refusal refused = context.ensureAuthoredPrim(context.layerId, parent))
    return refused;
  const std::string path = childPath(parent, operation.primName);
  if (Refusal refused = context.insertPrim(context.layerId, path, text))
    return refused;
  context.createdPrims.push_back({path, id});
  return std::nullopt;
}

// ---- delete and reset ----

// Whether anything but the active layer's own authored makes the prim: other layers of the stack or
// arcs.
bool madeElsewhere(const PlanContext& context, std::string_view path) {
  const ComposedPrim* prim = context.scene.composedPrim(path);
  const Stage& stage = context.scene.keptStage();
  if (!prim)
    return false;
  for (std::uint32_t i = 0; i < prim->opinionCount; ++i) {
    const PrimOpinion& opinion = stage.primOpinions[prim->firstOpinion + i];
    if (opinion.site != kLocalSite || stage.layers[opinion.layer].identifier != context.layerId)
      return true;
  }
  return false;
}

Refusal planDelete(PlanContext& context, const EditOperation& operation, std::string& message) {
  const std::string& path = operation.sourcePath;
  if (isWorldOrRoot(path))
    return path + " cannot be deleted";
  if (Refusal refused = checkExisting(context, path))
    return refused;
  if (Refusal refused = context.instanceProxyRefusal(path))
    return refused;
  const bool elsewhere = madeElsewhere(context, path);
  if (Refusal refused = context.removePrim(context.layerId, path))
    return refused;
  // What other layers or arcs still make is switched off in this layer instead.
  if (elsewhere) {
    if (Refusal refused =
            context.setPrimMetadata(context.layerId, path, "active", "active = false"))
      return refused;
  }
  message = "Deleted " + path;
  return std::nullopt;
}

Refusal planReset(PlanContext& context, const EditOperation& operation, std::string& message) {
  const std::string& path = operation.sourcePath;
  if (Refusal refused = checkExisting(context, path))
    return refused;
  const Layer& layer = context.layerOf(context.layerId);
  const std::uint32_t authored = layer.findPrim(path);
  if (authored == kNoPrim || !madeElsewhere(context, path)) {
    message = "Nothing to reset on " + path;
    return std::nullopt;
  }
  if (layer.prims[authored].children.empty()) {
    if (Refusal refused = context.removePrim(context.layerId, path))
      return refused;
    message = "Reset " + path;
    return std::nullopt;
  }
  LayerChange change;
  change.kind = ChangeKind::PrimFields;
  change.layer = context.relative(context.layerId);
  change.path = path;
  change.before = primFieldsText(layer, authored);
  change.after = canonicalLayerText("#usda 1.0\nover \"" + std::string(nameOf(path)) + "\" {\n}\n");
  if (Refusal refused = context.emit(std::move(change)))
    return refused;
  message = "Reset " + path;
  return std::nullopt;
}

// ---- duplicate ----

// A value with every target path that lies in `from` moved to `to`; relative targets are taken
// at `anchor`. `changed` tells whether any moved.
Value retargeted(Layer& storage, const Value& value, std::string_view anchor, std::string_view from,
                 std::string_view to, bool& changed) {
  if (value.kind == ValueKind::Path) {
    const std::string target = absolutePath(value.decoded(), anchor);
    if (!hasPrefixPath(target, from))
      return value;
    changed = true;
    const std::string moved = std::string(to) + target.substr(from.size());
    return Value::ofKind(ValueKind::Path, storage.storeText("<" + moved + ">"));
  }
  if (value.kind != ValueKind::List)
    return value;
  std::vector<Value> items;
  for (const Value& item : value.items())
    items.push_back(retargeted(storage, item, anchor, from, to, changed));
  return storage.makeValue(ValueKind::List, value.text, items);
}

// The property with its targets or connections that lie in `from` moved to `to`; nullopt when
// none does.
std::optional<LayerProperty> retargetedProperty(Layer& storage, const LayerProperty& property,
                                                std::string_view anchor, std::string_view from,
                                                std::string_view to) {
  const std::string_view field =
      property.kind == PropertyKind::Relationship ? std::string_view() : "connect";
  bool changed = false;
  LayerProperty out = property;
  for (PropertyField& f : out.fields) {
    if (f.suffix != field || !f.hasValue)
      continue;
    f.value = retargeted(storage, f.value, anchor, from, to, changed);
  }
  if (!changed)
    return std::nullopt;
  return out;
}

bool hasTargets(const LayerProperty& property) {
  if (property.kind == PropertyKind::Relationship)
    return true;
  return property.findField("connect") != nullptr;
}

Refusal planDuplicate(PlanContext& context, const EditOperation& operation, std::string& message) {
  const std::string& source = operation.sourcePath;
  if (isWorldOrRoot(source))
    return source + " cannot be duplicated";
  if (Refusal refused = checkExisting(context, source))
    return refused;
  if (Refusal refused = context.instanceProxyRefusal(source))
    return refused;
  const std::string parent = operation.parentPath.empty() ? std::string(parentPathOf(source))
                                                          : normalisedParent(operation.parentPath);
  if (Refusal refused = checkParent(context, parent))
    return refused;
  if (Refusal refused = context.instanceInsertRefusal(parent))
    return refused;
  if (Refusal refused = checkNewName(context, parent, operation.primName))
    return refused;
  const std::string destination = childPath(parent, operation.primName);
  if (hasPrefixPath(destination, source))
    return "Cannot duplicate " + source + " into itself";

  std::vector<AuthoredPrim> authored;
  for (const std::string& identifier : context.scene.layerStack()) {
    if (context.scene.isMuted(identifier))
      continue;
    const Layer* layer = context.scene.findLayer(identifier);
    const std::uint32_t prim = layer->findPrim(source);
    if (prim != kNoPrim)
      authored.push_back({layer, prim});
  }
  if (authored.empty())
    return source + " comes from another file and cannot be duplicated";
  Layer scratch;
  scratch.rootPrims.push_back(mergeAuthoredPrims(scratch, authored, kNoPrim));
  std::string error;
  const std::shared_ptr<Layer> copy = readFragment(writeLayer(scratch), error);
  if (!copy)
    return "The copy of " + source + " could not be made: " + error;

  // The copy is a prim of its own: defined, named as asked, with new entity ids and the targets
  // that pointed inside the original pointing inside the copy.
  LayerPrim& root = copy->prims[copy->rootPrims[0]];
  root.name = copy->storeText(operation.primName);
  if (root.specifier == Specifier::Over)
    root.specifier = Specifier::Def;
  std::function<void(std::uint32_t, const std::string&, const std::string&)> visit =
      [&](std::uint32_t index, const std::string& sourcePath, const std::string& copyPath) {
        for (LayerProperty& property : copy->prims[index].properties) {
          if (property.name == "orvan:entityId") {
            for (PropertyField& field : property.fields) {
              if (!field.suffix.empty() || !field.hasValue)
                continue;
              const std::uint64_t id = context.ids.take(context.scene);
              field.value = Value::ofKind(ValueKind::Number, copy->storeText(std::to_string(id)));
              context.createdPrims.push_back({copyPath, id});
            }
          } else if (hasTargets(property)) {
            if (auto moved = retargetedProperty(*copy, property, sourcePath, source, destination))
              property = std::move(*moved);
          }
        }
        const std::vector<std::uint32_t> children = copy->prims[index].children;
        for (const std::uint32_t child : children) {
          const std::string_view name = copy->prims[child].name;
          visit(child, childPath(sourcePath, name), childPath(copyPath, name));
        }
      };
  visit(copy->rootPrims[0], source, destination);
  const std::string text = writeLayer(*copy);
  if (Refusal refused = context.ensureAuthoredPrim(context.layerId, parent))
    return refused;
  if (Refusal refused = context.insertPrim(context.layerId, destination, text))
    return refused;
  message = "Duplicated " + source + " as " + destination;
  return std::nullopt;
}

// ---- reparent and rename ----

// Every target and connection in the layer stack that points into `from` now points into `to`.
Refusal rewireTargets(PlanContext& context, std::string_view from, std::string_view to) {
  for (const std::string& identifier : context.scene.layerStack()) {
    const Layer& layer = context.layerOf(identifier);
    struct Found {
      std::string owner;
      std::string name;
      std::string text;
    };
    std::vector<Found> found;
    Layer scratch;
    std::string path;
    std::function<void(std::uint32_t)> visit = [&](std::uint32_t index) {
      const LayerPrim& prim = layer.prims[index];
      const std::size_t mark = path.size();
      path += '/';
      path += prim.name;
      for (const LayerProperty& property : prim.properties) {
        if (!hasTargets(property))
          continue;
        if (auto moved = retargetedProperty(scratch, property, path, from, to))
          found.push_back({path, std::string(property.name), propertyText(*moved)});
      }
      for (const std::uint32_t child : prim.children)
        visit(child);
      path.resize(mark);
    };
    for (const std::uint32_t root : layer.rootPrims)
      visit(root);
    if (!found.empty() && !context.scene.isWritable(identifier))
      return context.layerName(identifier) + " is not writable";
    for (Found& property : found) {
      if (Refusal refused =
              context.putProperty(identifier, property.owner, property.name, property.text))
        return refused;
    }
  }
  return std::nullopt;
}

Refusal planMove(PlanContext& context, const EditOperation& operation, std::string& message) {
  const std::string& source = operation.sourcePath;
  const bool rename = operation.kindAs<PrimOperationKind>() == PrimOperationKind::Rename;
  if (isWorldOrRoot(source))
    return source + " cannot be " + (rename ? "renamed" : "moved");
  if (Refusal refused = checkExisting(context, source))
    return refused;
  if (Refusal refused = context.instanceProxyRefusal(source))
    return refused;
  const std::string parent = operation.parentPath.empty() ? std::string(parentPathOf(source))
                                                          : normalisedParent(operation.parentPath);
  const std::string destination = childPath(parent, operation.primName);
  if (destination == source) {
    message = "Nothing to change on " + source;
    return std::nullopt;
  }
  if (hasPrefixPath(parent, source))
    return "Cannot move " + source + " into itself";
  if (Refusal refused = checkParent(context, parent))
    return refused;
  if (Refusal refused = context.instanceInsertRefusal(parent))
    return refused;
  if (Refusal refused = checkNewName(context, parent, operation.primName))
    return refused;

  std::vector<std::string> holders;
  bool defined = false;
  for (const std::string& identifier : context.scene.layerStack()) {
    const Layer& layer = context.layerOf(identifier);
    const std::uint32_t prim = layer.findPrim(source);
    if (prim == kNoPrim)
      continue;
    holders.push_back(identifier);
    defined = defined || layer.prims[prim].specifier != Specifier::Over;
  }
  if (!defined)
    return source + " comes from another file and cannot be " + (rename ? "renamed" : "moved");
  for (const std::string& identifier : holders) {
    if (!context.scene.isWritable(identifier))
      return context.layerName(identifier) + " is not writable";
    if (context.layerOf(identifier).findPrim(destination) != kNoPrim)
      return "Name already exists: " + operation.primName;
  }
  // The prim moves in every layer that says something about it, so its opinions stay together.
  for (const std::string& identifier : holders) {
    if (Refusal refused = context.ensureAuthoredPrim(identifier, parent))
      return refused;
    const Layer& layer = context.layerOf(identifier);
    const std::uint32_t prim = layer.findPrim(source);
    const std::uint32_t oldParent = layer.prims[prim].parent;
    const auto& siblings = oldParent == kNoPrim ? layer.rootPrims : layer.prims[oldParent].children;
    const std::uint32_t newParent = parent == "/" ? kNoPrim : layer.findPrim(parent);
    const auto& destinationSiblings =
        newParent == kNoPrim ? layer.rootPrims : layer.prims[newParent].children;
    LayerChange change;
    change.kind = ChangeKind::PrimMove;
    change.layer = context.relative(identifier);
    change.path = source;
    change.target = destination;
    change.sourceIndex = static_cast<std::uint32_t>(
        std::find(siblings.begin(), siblings.end(), prim) - siblings.begin());
    change.index = static_cast<std::uint32_t>(destinationSiblings.size());
    if (newParent == oldParent)
      change.index = change.sourceIndex;  // a rename keeps its place among its siblings
    if (Refusal refused = context.emit(std::move(change)))
      return refused;
  }
  if (Refusal refused = rewireTargets(context, source, destination))
    return refused;
  message = rename ? "Renamed " + source + " to " + operation.primName
                   : "Moved " + source + " to " + destination;
  return std::nullopt;
}

// ---- set-instanceable ----

Refusal planSetInstanceable(PlanContext& context, const EditOperation& operation,
                            std::string& message) {
  const std::string& path = operation.sourcePath;
  if (isWorldOrRoot(path))
    return path + " cannot be an instance";
  if (Refusal refused = checkExisting(context, path))
    return refused;
  if (Refusal refused = context.instanceProxyRefusal(path))
    return refused;
  const std::string statement =
      std::string("instanceable = ") + (operation.instanceable ? "true" : "false");
  if (Refusal refused = context.setPrimMetadata(context.layerId, path, "instanceable", statement))
    return refused;
  message = (operation.instanceable ? "Made " : "Cleared instancing of ") + path;
  if (operation.instanceable)
    message += " instanceable";
  return std::nullopt;
}

}  // namespace

Refusal planPrimOperation(PlanContext& context, const EditOperation& operation,
                          std::string& message) {
  if (Refusal refused = context.activeLayerWritable())
    return refused;
  Refusal refused;
  switch (operation.kindAs<PrimOperationKind>()) {
    case PrimOperationKind::Add:
    case PrimOperationKind::Reference:
    case PrimOperationKind::Payload:
      refused = planAdd(context, operation, message);
      break;
    case PrimOperationKind::Delete:
      refused = planDelete(context, operation, message);
      break;
    case PrimOperationKind::Reset:
      refused = planReset(context, operation, message);
      break;
    case PrimOperationKind::Duplicate:
      refused = planDuplicate(context, operation, message);
      break;
    case PrimOperationKind::Reparent:
    case PrimOperationKind::Rename:
      refused = planMove(context, operation, message);
      break;
    case PrimOperationKind::SetInstanceable:
      refused = planSetInstanceable(context, operation, message);
      break;
  }
  if (!refused)
    context.primOperations.push_back(recordOf(operation));
  return refused;
}

}  // namespace orvan::engine

#include "Inspector/IncrementalInspector.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <unordered_map>
#include <unordered_set>

#include "Inspector/InspectionParts.h"

namespace orvan::engine {
namespace {

constexpr std::uint64_t kPrime1 = 0x9E3779B185EBCA87ull;
constexpr std::uint64_t kPrime2 = 0xC2B2AE3D27D4EB4Full;
constexpr std::uint64_t kPrime3 = 0x165667B19E3779F9ull;
constexpr std::uint64_t kEndOfList = ~0ull;  // no length is this long

// A streaming 64-bit hash that takes eight bytes per step, for fingerprints and digests. Words go
// round four lanes, so that the steps of consecutive words do not wait for each other. Each step
// is a bijection of its lane for a fixed word, so two inputs that differ in one word differ right
// after it. Texts carry their length, so that "ab"+"c" and "a"+"bc" differ.
class Hasher {
 public:
  explicit Hasher(std::uint64_t seed = 0)
      : lanes_{seed + kPrime1 + kPrime2, seed + kPrime2, seed, seed - kPrime1} {}

  void add(std::uint64_t word) {
    std::uint64_t& lane = lanes_[count_++ & 3];
    lane = std::rotl(lane + word * kPrime2, 31) * kPrime1;
  }
  // A text of up to seven bytes is one word, its length in the top byte; a longer one is its
  // length, marked in the top byte, then its bytes.
  void add(std::string_view text) {
    if (text.size() < 8) {
      std::uint64_t word = 0;
      std::memcpy(&word, text.data(), text.size());
      add(word | static_cast<std::uint64_t>(text.size()) << 56);
      return;
    }
    add(static_cast<std::uint64_t>(text.size()) | 0xFFull << 56);
    addBytes(text);
  }
  // The bytes alone, for texts whose length was added already.
  void addBytes(std::string_view text) {
    const char* data = text.data();
    std::size_t left = text.size();
    for (; left >= 8; left -= 8, data += 8) {
      std::uint64_t word = 0;
      std::memcpy(&word, data, 8);
      add(word);
    }
    if (left != 0) {
      std::uint64_t word = 0;
      std::memcpy(&word, data, left);
      add(word);
    }
  }
  std::uint64_t finish() const {
    std::uint64_t hash = std::rotl(lanes_[0], 1) + std::rotl(lanes_[1], 7) +
                         std::rotl(lanes_[2], 12) + std::rotl(lanes_[3], 18);
    for (const std::uint64_t lane : lanes_)
      hash = (hash ^ std::rotl(lane * kPrime2, 31) * kPrime1) * kPrime1 + kPrime3;
    hash += count_;
    hash ^= hash >> 33;
    hash *= kPrime2;
    hash ^= hash >> 29;
    hash *= kPrime3;
    hash ^= hash >> 32;
    return hash;
  }

 private:
  std::array<std::uint64_t, 4> lanes_;
  std::uint64_t count_ = 0;
};

std::uint64_t hashText(std::string_view text) {
  Hasher hasher;
  hasher.add(text);
  return hasher.finish();
}

std::uint64_t hashWords(std::uint64_t a, std::uint64_t b) {
  Hasher hasher(a);
  hasher.add(b);
  return hasher.finish();
}

// ---- fingerprints: everything a prim's parts are made from ----

void addValue(Hasher& hasher, const Value& value) {
  // Kind, item count and text length in one word; a text too long for it adds its length.
  constexpr std::uint64_t kLongText = 0xFFFFFF;
  const std::uint64_t size = value.text.size();
  hasher.add(static_cast<std::uint64_t>(value.kind) | std::uint64_t{value.itemCount} << 8 |
             std::min(size, kLongText) << 40);
  if (size >= kLongText)
    hasher.add(size);
  hasher.addBytes(value.text);
  for (const Value& item : value.items())
    addValue(hasher, item);
}

void addMetadata(Hasher& hasher, const std::vector<MetadataEntry>& entries) {
  hasher.add(entries.size());
  for (const MetadataEntry& entry : entries) {
    hasher.add(static_cast<std::uint64_t>(entry.op));
    hasher.add(entry.key);
    addValue(hasher, entry.value);
  }
}

void addProperty(Hasher& hasher, const LayerProperty& property) {
  hasher.add(static_cast<std::uint64_t>(property.kind) |
             static_cast<std::uint64_t>(property.custom) << 8 |
             static_cast<std::uint64_t>(property.variability) << 16);
  hasher.add(property.typeName);
  hasher.add(property.name);
  hasher.add(property.fields.size());
  for (const PropertyField& field : property.fields) {
    hasher.add(field.suffix);
    hasher.add(static_cast<std::uint64_t>(field.op) | static_cast<std::uint64_t>(field.hasValue)
                                                          << 8);
    addValue(hasher, field.value);
  }
  addMetadata(hasher, property.metadata);
}

// What one authored prim says. Its children are not part of it: the composed children are.
void addAuthoredPrim(Hasher& hasher, const LayerPrim& prim) {
  hasher.add(static_cast<std::uint64_t>(prim.specifier) |
             static_cast<std::uint64_t>(prim.isVariantBody) << 8);
  hasher.add(prim.typeName);
  hasher.add(prim.name);
  addMetadata(hasher, prim.metadata);
  hasher.add(prim.properties.size());
  for (const LayerProperty& property : prim.properties)
    addProperty(hasher, property);
  hasher.add(prim.variantSets.size());
  for (const LayerVariantSet& set : prim.variantSets) {
    hasher.add(set.name);
    hasher.add(set.variants.size());
    for (const LayerVariant& variant : set.variants)
      hasher.add(variant.name);
  }
  addMetadata(hasher, prim.reorders);
}

// Where an opinion came from through arcs: relationship targets are mapped from there.
void addSite(Hasher& hasher, const Stage& stage, std::uint32_t site) {
  if (site == kLocalSite || site >= stage.sites.size()) {
    hasher.add(kEndOfList);
    return;
  }
  const OpinionSite& found = stage.sites[site];
  hasher.add(found.path);
  for (const PathMapping* mapping = found.mapping.get(); mapping; mapping = mapping->outer.get()) {
    hasher.add(mapping->from);
    hasher.add(mapping->to);
  }
  hasher.add(kEndOfList);
}

// A layer as opinions see it: its names, whether it is in the root layer stack (override marks
// count only there), and whether it is the active layer.
std::vector<std::uint64_t> layerHashes(const Stage& stage, std::uint32_t active) {
  std::vector<std::uint64_t> hashes;
  hashes.reserve(stage.layers.size());
  for (std::uint32_t index = 0; index < stage.layers.size(); ++index) {
    const StageLayer& layer = stage.layers[index];
    Hasher hasher;
    hasher.add(layer.identifier);
    hasher.add(layer.name);
    hasher.add(static_cast<std::uint64_t>(layer.inRootLayerStack) |
               static_cast<std::uint64_t>(index == active) << 1 |
               static_cast<std::uint64_t>(layer.layer != nullptr) << 2);
    hashes.push_back(hasher.finish());
  }
  return hashes;
}

// Everything about a prim itself: what its record and node say before the entity it inherits.
std::uint64_t ownHash(const Stage& stage, const ComposedPrim& prim, std::uint64_t pathHash,
                      const std::vector<std::uint64_t>& layers) {
  Hasher hasher(pathHash);
  hasher.add(prim.name);
  hasher.add(prim.typeName);
  hasher.add(prim.kind);
  hasher.add(static_cast<std::uint64_t>(prim.specifier) |
             static_cast<std::uint64_t>(prim.defined) << 8 |
             static_cast<std::uint64_t>(prim.active) << 9 |
             static_cast<std::uint64_t>(prim.instanceable) << 10 |
             static_cast<std::uint64_t>(prim.isInstance) << 11 |
             static_cast<std::uint64_t>(prim.instanceProxy) << 12 |
             static_cast<std::uint64_t>(prim.hasPayload) << 13 |
             static_cast<std::uint64_t>(prim.payloadLoaded) << 14 |
             static_cast<std::uint64_t>(prim.hasArcs) << 15);
  hasher.add(prim.variantSelections.size());
  for (const auto& [set, variant] : prim.variantSelections) {
    hasher.add(set);
    hasher.add(variant);
  }
  hasher.add(prim.problems.size());
  for (const std::uint32_t problem : prim.problems)
    hasher.add(problem < stage.problems.size() ? stage.problems[problem].message : "");
  hasher.add(static_cast<std::uint64_t>(prim.opinionCount));
  for (std::uint32_t i = 0; i < prim.opinionCount; ++i) {
    const PrimOpinion& opinion = stage.primOpinions[prim.firstOpinion + i];
    hasher.add(layers[opinion.layer]);
    addAuthoredPrim(hasher, stage.authoredPrim(opinion));
    addSite(hasher, stage, opinion.site);
  }
  return hasher.finish();
}

// ---- the kept parts ----

struct AssetText {
  std::string key;
  std::string text;  // starts with ','
  std::uint64_t hash = 0;
};

struct PrimText {
  std::string detail;    // starts with ','
  std::string nodeHead;  // starts with ','
  std::vector<AssetText> assets;
};

std::shared_ptr<const PrimText> keepText(inspection::PrimParts& parts) {
  auto text = std::make_shared<PrimText>();
  text->detail = std::move(parts.detail);
  text->nodeHead = std::move(parts.nodeHead);
  text->assets.reserve(parts.assets.size());
  for (inspection::AssetPart& asset : parts.assets) {
    const std::uint64_t hash = hashText(asset.text);
    text->assets.push_back({std::move(asset.key), std::move(asset.text), hash});
  }
  return text;
}

// "]}" closes a node's children and the node; runs of them share one text.
const std::string& closers() {
  static const std::string text = [] {
    std::string closers;
    for (int i = 0; i < 128; ++i)
      closers += "]}";
    return closers;
  }();
  return text;
}

// One prim's parts as the last call left them, with the views the document is put together from,
// so that doing so reads this list in order.
struct KeptPrim {
  std::uint64_t pathHash = 0;
  std::uint64_t fingerprint = 0;
  std::uint64_t entityId = 0;
  std::string entityPath;
  std::shared_ptr<const PrimText> text;
  std::string_view detail;
  std::string_view nodeHead;
  bool hasAssets = false;
};

void keep(KeptPrim& kept, std::uint64_t pathHash, std::uint64_t fingerprint,
          inspection::PrimParts& parts) {
  kept.pathHash = pathHash;
  kept.fingerprint = fingerprint;
  kept.entityId = parts.entityId;
  kept.entityPath = std::move(parts.entityPath);
  kept.text = keepText(parts);
  kept.detail = kept.text->detail;
  kept.nodeHead = kept.text->nodeHead;
  kept.hasAssets = !kept.text->assets.empty();
}

}  // namespace

struct IncrementalInspector::Cache {
  std::vector<KeptPrim> prims;  // by the prim's index in the last stage
};

// ---- the document ----

std::string_view InspectionDocument::textAt(std::uint64_t offset) const {
  if (offset >= size_)
    return {};
  // The last piece that starts at or before the offset; empty pieces are skipped by starting
  // where the next one does.
  const auto after = std::upper_bound(starts_.begin(), starts_.end(), offset);
  const auto piece = static_cast<std::size_t>(after - starts_.begin()) - 1;
  return pieces_[piece].substr(offset - starts_[piece]);
}

std::string InspectionDocument::text() const {
  std::string out;
  appendTo(out);
  return out;
}

void InspectionDocument::appendTo(std::string& out) const {
  out.reserve(out.size() + size_);
  for (const std::string_view piece : pieces_)
    out += piece;
}

namespace {

// A prim's texts are made from what its fingerprint covers, so the digest takes the fingerprint
// for them rather than reading them: equal fingerprints, equal texts.
constexpr std::uint64_t kDetailTag = 1;
constexpr std::uint64_t kNodeTag = 2;
constexpr std::uint64_t kClosersTag = 3;
constexpr std::uint64_t kFirstTag = 4;

class DocumentBuilder {
 public:
  DocumentBuilder(std::vector<std::string_view>& pieces, std::vector<std::uint64_t>& starts,
                  std::uint64_t& size)
      : pieces_(pieces), starts_(starts), size_(size) {}

  // A list element's text, which starts with ',' unless it is the first of its list.
  void element(std::string_view text, std::uint64_t hash, bool first) {
    flushClosers();
    add(first ? text.substr(1) : text, first ? hashWords(hash, kFirstTag) : hash);
  }
  void text(std::string_view text) {
    flushClosers();
    add(text, hashText(text));
  }
  void closeNode() { ++closers_; }
  void flushClosers() {
    while (closers_ != 0) {
      const std::size_t count = std::min<std::size_t>(closers_, closers().size() / 2);
      add(std::string_view(closers().data(), 2 * count), hashWords(kClosersTag, count));
      closers_ -= count;
    }
  }
  std::uint64_t digest() const { return digest_.finish(); }

 private:
  void add(std::string_view piece, std::uint64_t hash) {
    pieces_.push_back(piece);
    starts_.push_back(size_);
    size_ += piece.size();
    digest_.add(hash);
  }

  std::vector<std::string_view>& pieces_;
  std::vector<std::uint64_t>& starts_;
  std::uint64_t& size_;
  Hasher digest_;
  std::size_t closers_ = 0;
};

}  // namespace

IncrementalInspector::IncrementalInspector() : cache_(std::make_unique<Cache>()) {}
IncrementalInspector::~IncrementalInspector() = default;
IncrementalInspector::IncrementalInspector(IncrementalInspector&&) noexcept = default;
IncrementalInspector& IncrementalInspector::operator=(IncrementalInspector&&) noexcept = default;

void IncrementalInspector::clear() {
  cache_ = std::make_unique<Cache>();
}

IncrementalInspector::Result IncrementalInspector::inspect(const Stage& stage,
                                                           const InspectOptions& options) {
  Result result;
  stats_ = {};
  if (!cache_)  // moved from
    cache_ = std::make_unique<Cache>();
  inspection::PrimPartsEncoder encoder(stage, options);
  if (auto error = encoder.prepare()) {
    result.error = std::move(error);
    return result;
  }
  const std::size_t count = stage.prims.size();
  stats_.prims = count;

  // What every prim's fingerprint shares.
  const std::vector<std::uint64_t> layers = layerHashes(stage, encoder.activeLayer());
  const std::uint32_t problemPrim = encoder.stageProblemPrim();
  Hasher problemsHasher;
  for (const std::string& message : encoder.stageProblems())
    problemsHasher.add(message);
  const std::uint64_t stageProblems = problemsHasher.finish();
  // A prim with problems leaves out the files that failed to load.
  Hasher loadedHasher;
  for (const StageLayer& layer : stage.layers) {
    loadedHasher.add(layer.identifier);
    loadedHasher.add(static_cast<std::uint64_t>(layer.layer != nullptr));
  }
  const std::uint64_t loadedLayers = loadedHasher.finish();

  std::vector<std::uint64_t> pathHashes(count);
  std::vector<std::uint64_t> own(count);
  for (std::size_t i = 0; i < count; ++i) {
    pathHashes[i] = hashText(stage.prims[i].path);
    own[i] = ownHash(stage, stage.prims[i], pathHashes[i], layers);
  }

  // While the stage has the prims of the last call in the same places, the kept parts are
  // updated where they are; otherwise they move to their prims' new places, found by path. A
  // prim's path is part of its fingerprint, so comparing the paths' hashes finds the candidate and
  // the fingerprint decides.
  std::vector<KeptPrim>& previous = cache_->prims;
  const bool samePlaces =
      previous.size() == count &&
      std::equal(pathHashes.begin(), pathHashes.end(), previous.begin(),
                 [](std::uint64_t hash, const KeptPrim& kept) { return hash == kept.pathHash; });
  std::vector<KeptPrim> moved;
  std::unordered_map<std::uint64_t, std::uint32_t> previousByPath;
  if (!samePlaces) {
    moved.resize(count);
    previousByPath.reserve(previous.size());
    for (std::uint32_t i = 0; i < previous.size(); ++i)
      previousByPath.emplace(previous[i].pathHash, i);
  }
  std::vector<KeptPrim>& entries = samePlaces ? previous : moved;

  for (std::uint32_t index = 0; index < count; ++index) {
    const ComposedPrim& prim = stage.prims[index];
    // Parents come before their children, so the parent's entity is known here.
    const KeptPrim* parent = prim.parent == kNoPrim ? nullptr : &entries[prim.parent];
    Hasher hasher(own[index]);
    hasher.add(prim.children.size());
    for (const std::uint32_t child : prim.children)
      hasher.add(own[child]);
    if (parent) {
      hasher.add(parent->entityPath);
      hasher.add(parent->entityId);
    } else {
      hasher.add(kEndOfList);
    }
    hasher.add(index == problemPrim ? stageProblems : 0);
    if (!prim.problems.empty())
      hasher.add(loadedLayers);
    const std::uint64_t fingerprint = hasher.finish();

    KeptPrim* kept = &entries[index];
    if (!samePlaces) {
      const auto found = previousByPath.find(pathHashes[index]);
      kept = found == previousByPath.end() ? nullptr : &previous[found->second];
    }
    if (kept && kept->text && kept->fingerprint == fingerprint) {
      if (!samePlaces)
        entries[index] = std::move(*kept);
      ++stats_.reused;
      continue;
    }
    inspection::PrimParts parts = parent
                                      ? encoder.encode(index, parent->entityPath, parent->entityId)
                                      : encoder.encode(index, {}, 0);
    keep(entries[index], pathHashes[index], fingerprint, parts);
    ++stats_.encoded;
  }
  if (!samePlaces)
    previous = std::move(moved);
  const std::vector<KeptPrim>& prims = cache_->prims;

  // The document: the frame around the flat list, the tree and the assets.
  InspectionDocument& document = result.document;
  auto frame = std::make_shared<const inspection::DocumentFrame>(encoder.frame());
  document.parts_.reserve(count + 1);
  document.parts_.push_back(frame);
  document.pieces_.reserve(3 * count + 8);
  document.starts_.reserve(3 * count + 8);
  DocumentBuilder builder(document.pieces_, document.starts_, document.size_);

  builder.text((*frame)[0]);
  for (std::size_t index = 0; index < count; ++index) {
    const KeptPrim& kept = prims[index];
    builder.element(kept.detail, hashWords(kept.fingerprint, kDetailTag), index == 0);
    document.parts_.push_back(kept.text);
  }
  builder.text((*frame)[1]);
  struct Level {
    const std::vector<std::uint32_t>* nodes;
    std::size_t next;
  };
  std::vector<Level> levels{{&stage.rootPrims, 0}};
  while (!levels.empty()) {
    Level& level = levels.back();
    if (level.next == level.nodes->size()) {
      levels.pop_back();
      if (!levels.empty())
        builder.closeNode();
      continue;
    }
    const std::uint32_t index = (*level.nodes)[level.next];
    const KeptPrim& kept = prims[index];
    builder.element(kept.nodeHead, hashWords(kept.fingerprint, kNodeTag), level.next == 0);
    ++level.next;
    levels.push_back({&stage.prims[index].children, 0});
  }
  builder.text((*frame)[2]);
  // An asset is listed where the first prim that brings it is.
  std::unordered_set<std::string_view> listed;
  for (const KeptPrim& kept : prims) {
    if (!kept.hasAssets)
      continue;
    for (const AssetText& asset : kept.text->assets) {
      if (listed.insert(asset.key).second)
        builder.element(asset.text, asset.hash, listed.size() == 1);
    }
  }
  builder.text((*frame)[3]);
  document.digest_ = builder.digest();

  if (document.size_ > options.maxOutputBytes) {
    result.error = "the stage's inspection is larger than the limit of " +
                   std::to_string(options.maxOutputBytes) + " bytes";
  }
  return result;
}

}  // namespace orvan::engine

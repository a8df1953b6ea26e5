#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Inspector/StageInspector.h"
#include "UsdText/Stage.h"

namespace orvan::engine {

// The text of one inspection as a list of pieces. The pieces are views of parts that documents of
// the same scene share with each other, so handing the document out (or keeping an older one
// while a newer one is made) copies none of the text. A document keeps its parts alive; it may be
// moved and read from several threads.
class InspectionDocument {
 public:
  const std::vector<std::string_view>& pieces() const { return pieces_; }
  std::uint64_t size() const { return size_; }
  // A 64-bit digest of the document, made from the prims' fingerprints and the text around them
  // without reading the prims' texts: documents that differ have different digests, and documents
  // made from one scene state have the same one, so it serves as an entity tag.
  std::uint64_t digest() const { return digest_; }

  // The text from `offset` to the end of the piece that holds it; empty at or beyond the end.
  // For writers that are asked for the document at an offset, such as an HTTP body provider.
  std::string_view textAt(std::uint64_t offset) const;
  std::string text() const;
  void appendTo(std::string& out) const;

 private:
  friend class IncrementalInspector;

  std::vector<std::string_view> pieces_;
  std::vector<std::uint64_t> starts_;               // where each piece starts in the text
  std::vector<std::shared_ptr<const void>> parts_;  // what the pieces are views of
  std::uint64_t size_ = 0;
  std::uint64_t digest_ = 0;
};

// What the last inspection did.
struct ReinspectStats {
  std::size_t prims = 0;    // prims of the stage
  std::size_t encoded = 0;  // prims whose parts were made anew
  std::size_t reused = 0;   // prims whose parts were kept from the call before
};

// Inspects one scene again and again, re-encoding only the prims whose inputs changed since the
// last call and splicing the kept text of all the others into the new document: the same bytes
// as writeInspectionJson on the same stage and options.
//
// A prim's inputs are fingerprinted on every call, from the stage alone: its path and composed
// flags, its problems, every authored opinion (the layer it sits in and that layer's place in
// the stack, the specifier, type, metadata, properties with their values, variant sets and
// reorder statements), the site and path mapping of opinions that came through arcs, the same of
// its children (a material reads its shader), and the entity its parent belongs to. The stage
// may be newly composed (after structural edits) or the one of the last call with its layers
// changed in place (after property edits): nothing needs to be told what changed.
//
// Not thread-safe: one caller at a time.
class IncrementalInspector {
 public:
  struct Result {
    InspectionDocument document;
    std::optional<std::string> error;  // the options do not fit the stage, or a limit was passed

    bool ok() const { return !error.has_value(); }
  };

  IncrementalInspector();
  ~IncrementalInspector();
  IncrementalInspector(IncrementalInspector&&) noexcept;
  IncrementalInspector& operator=(IncrementalInspector&&) noexcept;

  Result inspect(const Stage& stage, const InspectOptions& options = {});
  const ReinspectStats& lastStats() const { return stats_; }
  // Forgets every kept part: the next call encodes the whole stage.
  void clear();

 private:
  struct Cache;
  std::unique_ptr<Cache> cache_;
  ReinspectStats stats_;
};

}  // namespace orvan::engine

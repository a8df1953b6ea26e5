#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Inspector/StageInspector.h"
#include "UsdText/Stage.h"

// The inspection document cut into the parts that the incremental inspector keeps between calls:
// the text around the stage's lists, and per prim its record, its tree node and the assets it
// brings. Built by the same code as writeInspectionJson, so the parts joined are its document.
namespace orvan::engine::inspection {

// Every text of a list element below starts with ',', so that it follows the element before it
// as it is; the first element of a list goes without it.

// An asset a prim brings, before the stage's list drops those an earlier prim brought already.
struct AssetPart {
  std::string key;   // what tells two assets apart: the resolved file or the prim path
  std::string text;  // ',' and its JSON object
};

struct PrimParts {
  std::string detail;    // ',' and the prim's object in `prims`
  std::string nodeHead;  // ',' and its tree node up to and including the `[` of its children
  std::string entityPath;
  std::uint64_t entityId = 0;
  std::vector<AssetPart> assets;
};

// The document around the stage's three lists: before `prims`' elements, between them and the
// tree's, between the tree's and the assets', and after the assets.
using DocumentFrame = std::array<std::string, 4>;

class PrimPartsEncoder {
 public:
  PrimPartsEncoder(const Stage& stage, const InspectOptions& options);
  ~PrimPartsEncoder();
  PrimPartsEncoder(const PrimPartsEncoder&) = delete;
  PrimPartsEncoder& operator=(const PrimPartsEncoder&) = delete;

  // The stage-wide fields; the reason when the options do not fit the stage.
  std::optional<std::string> prepare();
  // Valid after a successful prepare().
  DocumentFrame frame() const;
  std::uint32_t activeLayer() const;  // a stage layer index, 0xFFFFFFFF when there is none
  // The prim that shows the layer stack's own problems, kNoPrim when there is none.
  std::uint32_t stageProblemPrim() const;
  const std::vector<std::string>& stageProblems() const;

  // One prim's parts, given the entity its parent belongs to (empty and 0 for a root prim or one
  // outside every entity).
  PrimParts encode(std::uint32_t index, std::string_view parentEntityPath,
                   std::uint64_t parentEntityId);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace orvan::engine::inspection

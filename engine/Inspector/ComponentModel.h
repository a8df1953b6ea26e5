#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "UsdText/Stage.h"
#include "orvan/wire/records/StageInspection.h"

namespace orvan::engine {

// One prim's composed properties, resolved once and looked up by name.
class PrimProperties {
 public:
  PrimProperties(const Stage& stage, const ComposedPrim& prim)
      : all_(stage.composeProperties(prim)) {}

  const ComposedProperty* find(std::string_view name) const;
  const std::vector<ComposedProperty>& all() const { return all_; }
  bool anyWithPrefix(std::string_view prefix) const;

 private:
  std::vector<ComposedProperty> all_;
};

// Writes the override marks of one authored property into a component property.
using MarkComponentProperty =
    std::function<void(const ComposedProperty&, editor::ComponentProperty&)>;

struct ComponentSource {
  const Stage& stage;
  const ComposedPrim& prim;
  const PrimProperties& properties;
  const MarkComponentProperty& mark;
  bool entity = false;  // Name and Transform belong to entities only
  bool world = false;   // "/World" carries the world settings
};

// The engine components a prim carries, decoded from its USD attributes (see engine/README.md,
// "The component model"): Name and Transform first, then the others in catalogue order.
std::vector<editor::UsdComponent> decodeComponents(const ComponentSource& source);

// Components an author may add to an entity, each with its default properties.
std::vector<editor::UsdComponent> componentCatalog();

// The numbers of a scalar, a tuple, or the first element of a list ("[(1, 0, 0)]" gives 1, 0, 0).
std::vector<double> numbersOf(const Value& value);
// Numbers as the editor writes them in its fields: "%.6g" each, joined by "," without blanks.
std::string formatNumbers(const std::vector<double>& numbers);

}  // namespace orvan::engine

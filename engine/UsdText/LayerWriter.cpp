#include "UsdText/LayerWriter.h"

namespace orvan::engine {
namespace {

class Writer {
 public:
  explicit Writer(const Layer& layer) : layer_(layer) {}

  std::string write() {
    out_.reserve(layer_.source().size() + 256);
    out_ += "#usda ";
    out_ += layer_.version;
    out_ += '\n';
    writeComments(layer_.headerComments);
    // The reader gives every comment before the first statement to the header, so an empty
    // metadata block marks where the header's comments end and the first prim's begin.
    const bool firstHasComments =
        !layer_.reorders.empty()   ? !layer_.reorders.front().comments.empty()
        : layer_.rootPrims.empty() ? !layer_.trailingComments.empty()
                                   : !layer_.prims[layer_.rootPrims.front()].comments.empty();
    if (!layer_.metadata.empty() || firstHasComments) {
      out_ += "(\n";
      writeMetadataEntries(layer_.metadata, 1);
      out_ += ")\n";
    }
    for (const MetadataEntry& reorder : layer_.reorders) {
      out_ += '\n';
      writeReorder(reorder);
    }
    for (const std::uint32_t root : layer_.rootPrims) {
      out_ += '\n';
      writePrim(root);
    }
    if (!layer_.trailingComments.empty())
      out_ += '\n';
    writeComments(layer_.trailingComments);
    return std::move(out_);
  }

  std::string formatOne(const Value& value) {
    writeValue(value);
    return std::move(out_);
  }

  void writeValue(const Value& value) {
    switch (value.kind) {
      case ValueKind::None:
        out_ += "None";
        return;
      case ValueKind::Tuple:
        writeSequence(value, '(', ')');
        return;
      case ValueKind::List:
        writeSequence(value, '[', ']');
        return;
      case ValueKind::Dictionary:
        writeDictionary(value);
        return;
      case ValueKind::PathMap:
      case ValueKind::TimeSamples:
        writeKeyedEntries(value);
        return;
      case ValueKind::Reference:
        writeReference(value);
        return;
      case ValueKind::Entry:
        out_ += value.text;
        if (value.itemCount > 0) {
          out_ += " = ";
          writeValue(value.items()[0]);
        }
        return;
      default:
        out_ += value.text;
        return;
    }
  }

 private:
  void indent() { out_.append(static_cast<std::size_t>(level_) * 4, ' '); }

  void writeComments(const Comments& comments) {
    for (const std::string_view comment : comments) {
      indent();
      out_ += comment;
      out_ += '\n';
    }
  }

  void writeSequence(const Value& value, char open, char close) {
    out_ += open;
    for (std::size_t i = 0; i < value.itemCount; ++i) {
      if (i > 0)
        out_ += ", ";
      writeValue(value.items()[i]);
    }
    out_ += close;
  }

  void writeDictionary(const Value& value) {
    if (value.itemCount == 0) {
      out_ += "{\n";
      indent();
      out_ += '}';
      return;
    }
    out_ += "{\n";
    ++level_;
    for (const Value& entry : value.items()) {
      indent();
      if (!entry.entryType().empty()) {
        out_ += entry.entryType();
        out_ += ' ';
      }
      writeValue(entry);
      out_ += '\n';
    }
    --level_;
    indent();
    out_ += '}';
  }

  void writeKeyedEntries(const Value& value) {
    out_ += "{\n";
    ++level_;
    for (const Value& entry : value.items()) {
      indent();
      out_ += entry.text;
      out_ += ": ";
      if (entry.itemCount > 0)
        writeValue(entry.items()[0]);
      out_ += ",\n";
    }
    --level_;
    indent();
    out_ += '}';
  }

  void writeArguments(const Value& args) {
    out_ += " (";
    for (std::size_t i = 0; i < args.itemCount; ++i) {
      if (i > 0)
        out_ += "; ";
      writeValue(args.items()[i]);
    }
    out_ += ')';
  }

  void writeReference(const Value& value) {
    out_ += value.text;
    for (const Value& item : value.items()) {
      if (item.kind == ValueKind::Path) {
        out_ += item.text;
      } else if (item.kind == ValueKind::Dictionary) {
        writeArguments(item);
      }
    }
  }

  void writeMetadataEntries(const std::vector<MetadataEntry>& entries, int level) {
    const int saved = level_;
    level_ = level;
    for (const MetadataEntry& entry : entries) {
      writeComments(entry.comments);
      indent();
      if (entry.op != ListOp::Explicit) {
        out_ += listOpKeyword(entry.op);
        out_ += ' ';
      }
      out_ += entry.key;
      out_ += " = ";
      if (isLayerList(entry.value)) {
        writeLayerList(entry.value);
      } else {
        writeValue(entry.value);
      }
      out_ += '\n';
    }
    level_ = saved;
  }

  // Sublayer and reference lists read best one layer per line.
  static bool isLayerList(const Value& value) {
    if (value.kind != ValueKind::List || value.itemCount == 0)
      return false;
    for (const Value& item : value.items()) {
      if (item.kind != ValueKind::Asset && item.kind != ValueKind::Reference)
        return false;
    }
    return true;
  }

  void writeLayerList(const Value& value) {
    out_ += "[\n";
    ++level_;
    for (std::size_t i = 0; i < value.itemCount; ++i) {
      indent();
      writeValue(value.items()[i]);
      if (i + 1 < value.itemCount)
        out_ += ',';
      out_ += '\n';
    }
    --level_;
    indent();
    out_ += ']';
  }

  void writeMetadataBlock(const std::vector<MetadataEntry>& entries) {
    out_ += " (\n";
    writeMetadataEntries(entries, level_ + 1);
    indent();
    out_ += ')';
  }

  void writePrim(std::uint32_t index) {
    const LayerPrim& prim = layer_.prims[index];
    writeComments(prim.comments);
    indent();
    out_ += specifierKeyword(prim.specifier);
    if (!prim.typeName.empty()) {
      out_ += ' ';
      out_ += prim.typeName;
    }
    out_ += " \"";
    out_ += prim.name;
    out_ += '"';
    if (!prim.metadata.empty())
      writeMetadataBlock(prim.metadata);
    out_ += '\n';
    indent();
    out_ += "{\n";
    writeBody(prim);
    indent();
    out_ += "}\n";
  }

  void writeBody(const LayerPrim& prim) {
    ++level_;
    bool first = true;
    auto separate = [&] {
      if (!first)
        out_ += '\n';
      first = false;
    };
    for (const MetadataEntry& reorder : prim.reorders) {
      first = false;
      writeReorder(reorder);
    }
    for (const LayerProperty& property : prim.properties) {
      first = false;
      writeProperty(property);
    }
    for (const std::uint32_t child : prim.children) {
      separate();
      writePrim(child);
    }
    for (const LayerVariantSet& set : prim.variantSets) {
      separate();
      writeVariantSet(set);
    }
    writeComments(prim.trailingComments);
    --level_;
  }

  void writeReorder(const MetadataEntry& reorder) {
    writeComments(reorder.comments);
    indent();
    out_ += "reorder ";
    out_ += reorder.key;
    out_ += " = ";
    writeValue(reorder.value);
    out_ += '\n';
  }

  void writeVariantSet(const LayerVariantSet& set) {
    writeComments(set.comments);
    indent();
    out_ += "variantSet \"";
    out_ += set.name;
    out_ += "\" = {\n";
    ++level_;
    for (const LayerVariant& variant : set.variants) {
      const LayerPrim& body = layer_.prims[variant.body];
      writeComments(variant.comments);
      indent();
      out_ += '"';
      out_ += variant.name;
      out_ += '"';
      if (!body.metadata.empty())
        writeMetadataBlock(body.metadata);
      out_ += " {\n";
      writeBody(body);
      indent();
      out_ += "}\n";
    }
    --level_;
    indent();
    out_ += "}\n";
  }

  void writeProperty(const LayerProperty& property) {
    writeComments(property.comments);
    bool metadataWritten = false;
    // A property made in memory without any statement is still declared.
    static const std::vector<PropertyField> kDeclarationOnly{PropertyField{}};
    for (const PropertyField& field :
         property.fields.empty() ? kDeclarationOnly : property.fields) {
      indent();
      if (field.op != ListOp::Explicit) {
        out_ += listOpKeyword(field.op);
        out_ += ' ';
      }
      if (property.custom)
        out_ += "custom ";
      if (property.variability == Variability::Uniform)
        out_ += "uniform ";
      if (property.variability == Variability::Config)
        out_ += "config ";
      if (property.kind == PropertyKind::Relationship) {
        out_ += "rel ";
      } else {
        out_ += property.typeName;
        out_ += ' ';
      }
      out_ += property.name;
      if (!field.suffix.empty()) {
        out_ += '.';
        out_ += field.suffix;
      }
      if (field.hasValue) {
        out_ += " = ";
        writeValue(field.value);
      }
      if (!metadataWritten && !property.metadata.empty())
        writeMetadataBlock(property.metadata);
      metadataWritten = true;
      out_ += '\n';
    }
  }

  const Layer& layer_;
  std::string out_;
  int level_ = 0;
};

}  // namespace

std::string writeLayer(const Layer& layer) {
  return Writer(layer).write();
}

std::string formatValue(const Value& value) {
  static const Layer kNoLayer;
  return Writer(kNoLayer).formatOne(value);
}

}  // namespace orvan::engine

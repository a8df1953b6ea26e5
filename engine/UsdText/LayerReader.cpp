#include "UsdText/LayerReader.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <unordered_map>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "UsdText/MetadataRules.h"
#include "UsdText/Tokenizer.h"

namespace orvan::engine {
namespace {

struct FileDescriptor {
  explicit FileDescriptor(int descriptor) : fd(descriptor) {}
  const int fd;
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor() { ::close(fd); }
};

struct ParseFailure {
  std::uint32_t line;
  std::uint32_t column;
  std::string message;
};

std::string describeToken(const Token& token) {
  if (token.kind == TokenKind::End)
    return "the end of the file";
  std::string_view text = token.text;
  if (text.size() > 24)
    text = text.substr(0, 24);
  std::string shown;
  for (const char c : text)
    shown += (c == '\n' || c == '\r') ? ' ' : c;
  return "'" + escapeForMessage(shown) + (token.text.size() > 24 ? "...'" : "'");
}

bool isListOpWord(std::string_view word, ListOp& op) {
  static constexpr std::array<std::pair<std::string_view, ListOp>, 5> kOps{{
      {"prepend", ListOp::Prepend},
      {"append", ListOp::Append},
      {"add", ListOp::Add},
      {"delete", ListOp::Delete},
      {"reorder", ListOp::Reorder},
  }};
  for (const auto& [name, value] : kOps) {
    if (word == name) {
      op = value;
      return true;
    }
  }
  return false;
}

bool isArcKey(std::string_view key) {
  return key == "references" || key == "payload" || key == "inherits" || key == "specializes" ||
         key == "subLayers";
}

// What shape a value of a declared type must have. Unknown types accept any value, so that
// layers with types this engine does not know still read and write back unchanged.
struct TypeShape {
  enum Kind { Any, Scalar, Text, Token, Asset, Tuple, Matrix, Dictionary } kind = Any;
  int arity = 0;
};

TypeShape shapeOf(std::string_view type) {
  static constexpr std::array<std::string_view, 10> kScalars{
      "bool", "uchar", "int", "uint", "int64", "uint64", "half", "float", "double", "timecode"};
  for (const auto scalar : kScalars) {
    if (type == scalar)
      return {TypeShape::Scalar, 1};
  }
  if (type == "string")
    return {TypeShape::Text, 1};
  if (type == "token")
    return {TypeShape::Token, 1};
  if (type == "asset")
    return {TypeShape::Asset, 1};
  if (type == "dictionary")
    return {TypeShape::Dictionary, 0};
  if (type == "matrix2d")
    return {TypeShape::Matrix, 2};
  if (type == "matrix3d")
    return {TypeShape::Matrix, 3};
  if (type == "matrix4d" || type == "frame4d")
    return {TypeShape::Matrix, 4};
  if (type.size() == 5 && type.substr(0, 4) == "quat")
    return {TypeShape::Tuple, 4};
  static constexpr std::array<std::string_view, 9> kTupleStems{
      "half", "float", "double", "int", "point", "normal", "vector", "color", "texCoord"};
  for (const auto stem : kTupleStems) {
    if (type.size() <= stem.size() || type.substr(0, stem.size()) != stem)
      continue;
    const char digit = type[stem.size()];
    if (digit < '2' || digit > '4')
      continue;
    const std::string_view rest = type.substr(stem.size() + 1);
    if (rest.empty() || rest == "h" || rest == "f" || rest == "d")
      return {TypeShape::Tuple, digit - '0'};
  }
  return {};
}

// The tokenizer has already checked the digits of a Number; only words need a closer look.
bool isNumeric(const Value& value) {
  return value.kind == ValueKind::Number ||
         (value.kind == ValueKind::Identifier && value.toNumber().has_value());
}

bool fitsTuple(const Value& value, int arity) {
  if (value.kind != ValueKind::Tuple || static_cast<int>(value.itemCount) != arity)
    return false;
  for (const Value& item : value.items()) {
    if (!isNumeric(item))
      return false;
  }
  return true;
}

bool fitsShape(const Value& value, const TypeShape& shape) {
  switch (shape.kind) {
    case TypeShape::Any:
      return true;
    case TypeShape::Scalar:
      return isNumeric(value);
    case TypeShape::Text:
      return value.kind == ValueKind::String;
    case TypeShape::Token:
      // Other readers write a path where a token names a prim; it reads as that token.
      return value.kind == ValueKind::String || value.kind == ValueKind::Path;
    case TypeShape::Asset:
      // A quoted string is an asset path too.
      return value.kind == ValueKind::Asset || value.kind == ValueKind::String;
    case TypeShape::Dictionary:
      return value.kind == ValueKind::Dictionary;
    case TypeShape::Tuple:
      return fitsTuple(value, shape.arity);
    case TypeShape::Matrix:
      if (value.kind != ValueKind::Tuple || static_cast<int>(value.itemCount) != shape.arity)
        return false;
      for (const Value& row : value.items()) {
        if (!fitsTuple(row, shape.arity))
          return false;
      }
      return true;
  }
  return true;
}

std::string describeShape(std::string_view type, const TypeShape& shape) {
  switch (shape.kind) {
    case TypeShape::Scalar:
      return "a number for " + std::string(type);
    case TypeShape::Text:
    case TypeShape::Token:
      return "a quoted string for " + std::string(type);
    case TypeShape::Asset:
      return "an asset path @...@ for " + std::string(type);
    case TypeShape::Dictionary:
      return "a dictionary { ... } for " + std::string(type);
    case TypeShape::Tuple:
      return "a tuple of " + std::to_string(shape.arity) + " numbers for " + std::string(type);
    case TypeShape::Matrix:
      return "a tuple of " + std::to_string(shape.arity) + " rows of " +
             std::to_string(shape.arity) + " numbers for " + std::string(type);
    case TypeShape::Any:
      break;
  }
  return "a value";
}

class Parser {
 public:
  Parser(Layer& layer, std::string_view source) : layer_(layer), tokens_(source) {
    // Roughly one prim per few hundred bytes of text: avoids most regrowth of the pool.
    layer_.prims.reserve(source.size() / 512 + 8);
    namePositions_.reserve(source.size() / 512 + 8);
  }

  void parseLayer() {
    readHeader();
    advance();
    layer_.headerComments = takeComments(current_);
    if (current_.is('('))
      layer_.metadata = parseMetadataBlock();
    while (current_.kind != TokenKind::End) {
      if (!separated("{}();"))
        fail(current_, "a new line or ';' before the next statement");
      Comments comments = takeComments(current_);
      if (current_.isWord("reorder") && peek().isWord("rootPrims")) {
        layer_.reorders.push_back(parseReorder(std::move(comments)));
        continue;
      }
      layer_.rootPrims.push_back(parsePrim(kNoPrim, std::move(comments)));
    }
    checkSiblingNames(layer_.rootPrims);
    layer_.trailingComments = takeComments(current_);
  }

 private:
  // Two siblings with one name would be one prim to everyone downstream: refuse the later one.
  void checkSiblingNames(const std::vector<std::uint32_t>& children) {
    if (children.size() < 2)
      return;
    std::size_t duplicate = children.size();
    if (children.size() <= 8) {
      for (std::size_t j = 1; j < children.size() && duplicate == children.size(); ++j) {
        for (std::size_t i = 0; i < j; ++i) {
          if (layer_.prims[children[i]].name == layer_.prims[children[j]].name) {
            duplicate = j;
            break;
          }
        }
      }
    } else {
      sortedNames_.clear();
      for (std::size_t i = 0; i < children.size(); ++i)
        sortedNames_.emplace_back(layer_.prims[children[i]].name, i);
      std::sort(sortedNames_.begin(), sortedNames_.end());
      for (std::size_t k = 1; k < sortedNames_.size(); ++k) {
        if (sortedNames_[k].first == sortedNames_[k - 1].first)
          duplicate = std::min(duplicate, sortedNames_[k].second);
      }
    }
    if (duplicate == children.size())
      return;
    const std::uint32_t prim = children[duplicate];
    throw ParseFailure{namePositions_[prim].first, namePositions_[prim].second,
                       "expected a name that no sibling prim has already, found '\"" +
                           std::string(layer_.prims[prim].name) + "\"'"};
  }

  [[noreturn]] void fail(const Token& at, const std::string& expected) {
    throw ParseFailure{at.line, at.column, "expected " + expected + ", found " + describeToken(at)};
  }

  // Fails at an item of a value already read when its text lies in the source (strings, assets,
  // paths, words, numbers), else at `fallback`, the token that started the value.
  [[noreturn]] void failAtItem(const Value& item, const Token& fallback,
                               const std::string& expected) {
    const std::string_view source = layer_.source();
    const char* at = item.text.data();
    if (item.text.empty() || at < source.data() || at >= source.data() + source.size())
      fail(fallback, expected);
    Token token;
    token.kind = TokenKind::String;
    token.text = item.text;
    const std::string_view before(source.data(), static_cast<std::size_t>(at - source.data()));
    token.line = static_cast<std::uint32_t>(std::count(before.begin(), before.end(), '\n')) + 1;
    const std::size_t lineStart = before.rfind('\n');
    token.column = static_cast<std::uint32_t>(
        lineStart == std::string_view::npos ? before.size() + 1 : before.size() - lineStart);
    fail(token, expected);
  }

  void readHeader() {
    const std::string_view source = layer_.source();
    const std::string_view magic = "#usda ";
    if (source.substr(0, magic.size()) != magic) {
      throw ParseFailure{1, 1, "expected the header '#usda 1.0' on the first line"};
    }
    std::string_view line = tokens_.takeLine();
    line.remove_prefix(magic.size());
    while (!line.empty() && (line.back() == ' ' || line.back() == '\r' || line.back() == '\t'))
      line.remove_suffix(1);
    const bool versionOk =
        !line.empty() && line.find_first_not_of("0123456789.") == std::string_view::npos;
    if (!versionOk)
      throw ParseFailure{1, 7, "expected a version number such as 1.0 after '#usda'"};
    layer_.version = line;
  }

  void advance() {
    // The line the current token ends on: only a string in triple quotes spans lines.
    previousLine_ = current_.line;
    if (current_.kind == TokenKind::String && current_.text.size() >= 6 &&
        current_.text[1] == current_.text[0]) [[unlikely]] {
      previousLine_ +=
          static_cast<std::uint32_t>(std::count(current_.text.begin(), current_.text.end(), '\n'));
    }
    if (peeked_) {
      current_ = *peeked_;
      peeked_.reset();
    } else {
      current_ = tokens_.next();
    }
    if (current_.kind == TokenKind::Invalid)
      fail(current_, current_.problem);
  }

  // Whether the current token starts on a line of its own, or follows one of `separators`: two
  // statements, metadata entries or dictionary entries on one line need a ';' between them.
  bool separated(std::string_view separators) const {
    if (current_.line != previousLine_)
      return true;
    // On one line only blanks lie between two tokens (a comment would run to the end of it).
    const char* begin = layer_.source().data();
    const char* at = current_.text.data();
    while (at > begin && (at[-1] == ' ' || at[-1] == '\t'))
      --at;
    return at == begin || separators.find(at[-1]) != std::string_view::npos;
  }

  const Token& peek() {
    if (!peeked_)
      peeked_ = tokens_.next();
    return *peeked_;
  }

  void expect(char punct, const char* what) {
    if (!current_.is(punct))
      fail(current_, what);
    advance();
  }

  std::string_view expectWord(const char* what) {
    if (current_.kind != TokenKind::Identifier)
      fail(current_, what);
    const std::string_view word = current_.text;
    advance();
    return word;
  }

  Comments takeComments(const Token& token) {
    Comments comments;
    const auto& all = tokens_.comments();
    for (std::uint32_t i = commentsTaken_; i < token.commentsBefore && i < all.size(); ++i) {
      comments.push_back(all[i]);
    }
    if (token.commentsBefore > commentsTaken_)
      commentsTaken_ = token.commentsBefore;
    return comments;
  }

  struct NestingGuard {
    explicit NestingGuard(Parser& parser, const Token& at) : parser(parser) {
      if (++parser.depth_ > kMaxLayerNesting)
        parser.fail(at, "at most 256 levels of nesting");
    }
    ~NestingGuard() { --parser.depth_; }
    Parser& parser;
  };

  // ( key = value ... ) after a layer header, a prim or a property.
  std::vector<MetadataEntry> parseMetadataBlock() {
    expect('(', "'('");
    std::vector<MetadataEntry> entries;
    while (!current_.is(')')) {
      if (current_.kind == TokenKind::End)
        fail(current_, "')' to close the metadata");
      if (!entries.empty() && !separated("(;"))
        fail(current_, "a new line or ';' between metadata entries");
      MetadataEntry entry;
      entry.comments = takeComments(current_);
      entry.line = current_.line;
      entry.column = current_.column;
      if (current_.kind == TokenKind::String) {
        entry.key = "doc";
        entry.value = Value::ofKind(ValueKind::String, current_.text);
        advance();
      } else {
        const Token opAt = current_;
        if (current_.kind == TokenKind::Identifier && isListOpWord(current_.text, entry.op) &&
            peek().kind == TokenKind::Identifier) {
          advance();
        } else {
          entry.op = ListOp::Explicit;
        }
        entry.key = expectWord("a metadata name or ')'");
        expect('=', "'=' after the metadata name");
        const Token valueAt = current_;
        entry.value = parseValue(isArcKey(entry.key));
        checkMetadata(entry, opAt, valueAt);
      }
      entries.push_back(std::move(entry));
      if (current_.is(';'))
        advance();
    }
    advance();
    return entries;
  }

  // Metadata the format knows must have its type, and only lists take list edits.
  void checkMetadata(const MetadataEntry& entry, const Token& opAt, const Token& valueAt) {
    const auto breach = checkMetadataEntry(entry);
    if (!breach)
      return;
    switch (breach->at) {
      case MetadataBreach::At::ListOp:
        fail(opAt, breach->expected);
      case MetadataBreach::At::Value:
        fail(valueAt, breach->expected);
      case MetadataBreach::At::Item:
        failAtItem(*breach->item, valueAt, breach->expected);
    }
  }

  Value parseValue(bool allowArcs = false) {
    NestingGuard guard(*this, current_);
    const Token token = current_;
    switch (token.kind) {
      case TokenKind::Number:
        advance();
        return Value::ofKind(ValueKind::Number, token.text);
      case TokenKind::String:
        advance();
        return Value::ofKind(ValueKind::String, token.text);
      case TokenKind::Identifier:
        if (token.text == "None") {
          advance();
          return Value::none();
        }
        // Any other bare word (true, inf, or a keyword of metadata this engine does not know) is
        // kept as written; typed attributes check below whether a word fits their type.
        advance();
        return Value::ofKind(ValueKind::Identifier, token.text);
      case TokenKind::Asset: {
        advance();
        Value value = Value::ofKind(ValueKind::Asset, token.text);
        if (!allowArcs)
          return value;
        const std::size_t start = scratch_.size();
        if (current_.kind == TokenKind::Path) {
          value.kind = ValueKind::Reference;
          scratch_.push_back(Value::ofKind(ValueKind::Path, current_.text));
          advance();
        }
        if (current_.is('(')) {
          value.kind = ValueKind::Reference;
          const Value args = parseArguments();
          scratch_.push_back(args);
        }
        return finishItems(value, start);
      }
      case TokenKind::Path: {
        advance();
        Value value = Value::ofKind(ValueKind::Path, token.text);
        if (allowArcs && current_.is('(')) {
          const std::size_t start = scratch_.size();
          scratch_.push_back(value);
          const Value args = parseArguments();
          scratch_.push_back(args);
          return finishItems(Value::ofKind(ValueKind::Reference, {}), start);
        }
        return value;
      }
      case TokenKind::Punct:
        if (token.is('('))
          return parseSequence(ValueKind::Tuple, ')', allowArcs);
        if (token.is('['))
          return parseSequence(ValueKind::List, ']', allowArcs);
        if (token.is('{'))
          return parseDictionary();
        break;
      default:
        break;
    }
    fail(token, "a value");
  }

  Value parseSequence(ValueKind kind, char close, bool allowArcs) {
    const std::size_t start = scratch_.size();
    advance();
    while (!current_.is(close)) {
      const Value item = parseValue(allowArcs);
      scratch_.push_back(item);
      if (current_.is(',')) {
        advance();
      } else if (!current_.is(close)) {
        fail(current_, close == ')' ? "',' or ')' in the tuple" : "',' or ']' in the list");
      }
    }
    advance();
    return finishItems(Value::ofKind(kind, {}), start);
  }

  // Moves the values pushed since `start` into the layer's arena as the items of `value`.
  Value finishItems(Value value, std::size_t start) {
    const std::span<const Value> items(scratch_.data() + start, scratch_.size() - start);
    value.itemData = layer_.values().store(items);
    value.itemCount = static_cast<std::uint32_t>(items.size());
    scratch_.resize(start);
    return value;
  }

  // { type key = value ... }
  Value parseDictionary() {
    const std::size_t start = scratch_.size();
    advance();
    if (current_.kind == TokenKind::Path)
      return parsePathMapping(start);
    while (!current_.is('}')) {
      if (!separated("{;,"))
        fail(current_, "a new line or ';' between dictionary entries");
      const std::string_view typeName = parseTypeName("a type name or '}' in the dictionary");
      if (current_.kind != TokenKind::Identifier && current_.kind != TokenKind::String) {
        fail(current_, "a key after the type in the dictionary");
      }
      const std::string_view key = current_.text;
      advance();
      expect('=', "'=' after the dictionary key");
      const Token valueToken = current_;
      const Value item = parseValue();
      checkValue(typeName, item, valueToken);
      const std::size_t entryStart = scratch_.size();
      scratch_.push_back(item);
      scratch_.push_back(Value::ofKind(ValueKind::Identifier, typeName));
      const Value entry = finishItems(Value::ofKind(ValueKind::Entry, key), entryStart);
      scratch_.push_back(entry);
      if (current_.is(';') || current_.is(','))
        advance();
    }
    advance();
    return finishItems(Value::ofKind(ValueKind::Dictionary, {}), start);
  }

  // { </From>: </To>, ... } as in relocates; the opening brace is already read.
  Value parsePathMapping(std::size_t start) {
    while (!current_.is('}')) {
      if (current_.kind != TokenKind::Path)
        fail(current_, "a path <...> or '}' in the path mapping");
      const std::string_view from = current_.text;
      advance();
      expect(':', "':' after the path");
      if (current_.kind != TokenKind::Path)
        fail(current_, "the path it maps to");
      const std::size_t entryStart = scratch_.size();
      scratch_.push_back(Value::ofKind(ValueKind::Path, current_.text));
      advance();
      const Value entry = finishItems(Value::ofKind(ValueKind::Entry, from), entryStart);
      scratch_.push_back(entry);
      if (current_.is(',')) {
        advance();
      } else if (!current_.is('}')) {
        fail(current_, "',' or '}' after the mapping");
      }
    }
    advance();
    return finishItems(Value::ofKind(ValueKind::PathMap, {}), start);
  }

  // (offset = 10; scale = 2) after a sublayer or reference.
  Value parseArguments() {
    const std::size_t start = scratch_.size();
    advance();
    while (!current_.is(')')) {
      const std::string_view key = expectWord("an argument name or ')'");
      expect('=', "'=' after the argument name");
      const Value item = parseValue();
      const std::size_t entryStart = scratch_.size();
      scratch_.push_back(item);
      const Value entry = finishItems(Value::ofKind(ValueKind::Entry, key), entryStart);
      scratch_.push_back(entry);
      if (current_.is(';') || current_.is(','))
        advance();
    }
    advance();
    return finishItems(Value::ofKind(ValueKind::Dictionary, {}), start);
  }

  std::string_view parseTypeName(const char* what) {
    if (current_.kind != TokenKind::Identifier)
      fail(current_, what);
    const Token type = current_;
    advance();
    if (!current_.is('['))
      return type.text;
    advance();
    if (!current_.is(']'))
      fail(current_, "']' after '[' in the array type");
    const char* end = current_.text.data() + 1;
    advance();
    const std::string_view contiguous(type.text.data(),
                                      static_cast<std::size_t>(end - type.text.data()));
    if (contiguous.size() == type.text.size() + 2)
      return contiguous;
    return layer_.storeText(std::string(type.text) + "[]");
  }

  void checkValue(std::string_view typeName, const Value& value, const Token& at) {
    if (value.isNone())
      return;
    const bool array = typeName.size() > 2 && typeName.substr(typeName.size() - 2) == "[]";
    const std::string_view base = array ? typeName.substr(0, typeName.size() - 2) : typeName;
    const TypeShape shape = cachedShapeOf(base);
    if (array) {
      if (value.kind != ValueKind::List)
        fail(at, "a list [ ... ] for " + std::string(typeName));
      for (const Value& item : value.items()) {
        if (!fitsShape(item, shape))
          fail(at, describeShape(base, shape) + " in every element");
      }
      return;
    }
    if (!fitsShape(value, shape))
      fail(at, describeShape(base, shape));
  }

  TypeShape cachedShapeOf(std::string_view type) {
    const auto found = shapes_.find(type);
    if (found != shapes_.end())
      return found->second;
    const TypeShape shape = shapeOf(type);
    shapes_.emplace(type, shape);
    return shape;
  }

  std::uint32_t newPrim(std::uint32_t parent) {
    const auto index = static_cast<std::uint32_t>(layer_.prims.size());
    layer_.prims.emplace_back();
    layer_.prims.back().parent = parent;
    namePositions_.emplace_back(0, 0);
    return index;
  }

  std::uint32_t parsePrim(std::uint32_t parent, Comments comments) {
    NestingGuard guard(*this, current_);
    Specifier specifier;
    if (current_.isWord("def")) {
      specifier = Specifier::Def;
    } else if (current_.isWord("over")) {
      specifier = Specifier::Over;
    } else if (current_.isWord("class")) {
      specifier = Specifier::Class;
    } else {
      fail(current_, parent == kNoPrim ? "'def', 'over' or 'class' to start a prim"
                                       : "a prim, a property, a variantSet or '}'");
    }
    advance();
    std::string_view typeName;
    if (current_.kind == TokenKind::Identifier) {
      typeName = current_.text;
      advance();
    }
    if (current_.kind != TokenKind::String)
      fail(current_, "the prim name in quotes");
    const std::string_view name = unquotedName(current_);
    const Token nameToken = current_;
    advance();
    const std::uint32_t index = newPrim(parent);
    namePositions_[index] = {nameToken.line, nameToken.column};
    {
      LayerPrim& prim = layer_.prims[index];
      prim.specifier = specifier;
      prim.typeName = typeName;
      prim.name = name;
      prim.comments = std::move(comments);
    }
    if (current_.is('(')) {
      auto metadata = parseMetadataBlock();
      layer_.prims[index].metadata = std::move(metadata);
    }
    const Token open = current_;
    expect('{', "'{' to open the prim body");
    parseBody(index, open);
    return index;
  }

  static std::string_view unquoted(const Token& token) {
    const std::size_t quote =
        token.text.size() >= 6 && token.text[1] == token.text[0] && token.text[2] == token.text[0]
            ? 3
            : 1;
    return token.text.substr(quote, token.text.size() - 2 * quote);
  }

  std::string_view unquotedName(const Token& token) {
    const std::string_view name = unquoted(token);
    if (!isIdentifier(name))
      fail(token, "a prim name made of letters, digits and '_'");
    return name;
  }

  std::string_view unquotedVariantName(const Token& token) {
    const std::string_view name = unquoted(token);
    if (!isVariantName(name))
      fail(token, "a name made of letters, digits, '_', '|', '-' and '.'");
    return name;
  }

  // Statements up to and including the closing brace.
  void parseBody(std::uint32_t index, const Token& open) {
    // Properties gather in a buffer kept per nesting level, so each prim's list is allocated once,
    // at its final size.
    const std::size_t level = bodyLevel_++;
    if (propertyBuffers_.size() <= level)
      propertyBuffers_.resize(level + 1);
    while (!current_.is('}')) {
      if (current_.kind == TokenKind::End) {
        fail(current_, "'}' to close the block opened at line " + std::to_string(open.line));
      }
      if (!separated("{};"))
        fail(current_, "a new line or ';' before the next statement");
      Comments comments = takeComments(current_);
      if (current_.isWord("def") || current_.isWord("over") || current_.isWord("class")) {
        const std::uint32_t child = parsePrim(index, std::move(comments));
        layer_.prims[index].children.push_back(child);
      } else if (current_.isWord("variantSet")) {
        parseVariantSet(index, std::move(comments));
      } else if (current_.isWord("reorder") &&
                 (peek().isWord("nameChildren") || peek().isWord("properties"))) {
        MetadataEntry entry = parseReorder(std::move(comments));
        layer_.prims[index].reorders.push_back(std::move(entry));
      } else {
        parseProperty(std::move(comments));
      }
    }
    auto& buffer = propertyBuffers_[level];
    layer_.prims[index].properties.assign(std::make_move_iterator(buffer.begin()),
                                          std::make_move_iterator(buffer.end()));
    buffer.clear();
    --bodyLevel_;
    checkSiblingNames(layer_.prims[index].children);
    layer_.prims[index].trailingComments = takeComments(current_);
    advance();
  }

  // reorder nameChildren|properties|rootPrims = ["a", "b"]
  MetadataEntry parseReorder(Comments comments) {
    advance();
    MetadataEntry entry;
    entry.op = ListOp::Reorder;
    entry.comments = std::move(comments);
    entry.line = current_.line;
    entry.column = current_.column;
    entry.key = current_.text;
    advance();
    expect('=', "'=' after the reorder statement");
    const Token at = current_;
    entry.value = parseValue();
    if (entry.value.kind != ValueKind::List)
      fail(at, "a list of names");
    for (const Value& item : entry.value.items()) {
      if (item.kind != ValueKind::String)
        failAtItem(item, at, "a list of names in quotes");
    }
    return entry;
  }

  void parseVariantSet(std::uint32_t owner, Comments comments) {
    NestingGuard guard(*this, current_);
    advance();
    if (current_.kind != TokenKind::String)
      fail(current_, "the variant set name in quotes");
    LayerVariantSet set;
    set.name = unquotedVariantName(current_);
    set.comments = std::move(comments);
    advance();
    expect('=', "'=' after the variant set name");
    expect('{', "'{' to open the variant set");
    while (!current_.is('}')) {
      LayerVariant variant;
      variant.comments = takeComments(current_);
      if (current_.kind != TokenKind::String)
        fail(current_, "a variant name in quotes or '}'");
      variant.name = unquotedVariantName(current_);
      advance();
      variant.body = newPrim(owner);
      {
        LayerPrim& body = layer_.prims[variant.body];
        body.specifier = Specifier::Over;
        body.name = variant.name;
        body.isVariantBody = true;
      }
      if (current_.is('(')) {
        auto metadata = parseMetadataBlock();
        layer_.prims[variant.body].metadata = std::move(metadata);
      }
      const Token open = current_;
      expect('{', "'{' to open the variant");
      parseBody(variant.body, open);
      set.variants.push_back(std::move(variant));
    }
    advance();
    layer_.prims[owner].variantSets.push_back(std::move(set));
  }

  void parseProperty(Comments comments) {
    const Token opAt = current_;
    ListOp op = ListOp::Explicit;
    if (current_.kind == TokenKind::Identifier && isListOpWord(current_.text, op) &&
        peek().kind == TokenKind::Identifier) {
      advance();
    } else {
      op = ListOp::Explicit;
    }
    bool custom = false;
    if (current_.isWord("custom") && peek().kind == TokenKind::Identifier) {
      custom = true;
      advance();
    }
    Variability variability = Variability::Varying;
    if ((current_.isWord("uniform") || current_.isWord("config") || current_.isWord("varying")) &&
        peek().kind == TokenKind::Identifier) {
      variability = current_.isWord("uniform")  ? Variability::Uniform
                    : current_.isWord("config") ? Variability::Config
                                                : Variability::Varying;
      advance();
    }
    PropertyKind kind = PropertyKind::Attribute;
    std::string_view typeName;
    const Token typeAt = current_;
    if (current_.isWord("rel")) {
      kind = PropertyKind::Relationship;
      advance();
    } else {
      typeName = parseTypeName("a prim, a property, a variantSet or '}'");
    }
    const Token nameAt = current_;
    const std::string_view name =
        expectWord(kind == PropertyKind::Relationship ? "the relationship name"
                                                      : "the attribute name after its type");
    PropertyField field;
    field.op = op;
    if (current_.is('.')) {
      advance();
      field.suffix = expectWord("'connect', 'timeSamples' or 'spline' after '.'");
    }
    // Only target lists are edited: a relationship's targets and an attribute's connections.
    if (op != ListOp::Explicit && kind == PropertyKind::Attribute && field.suffix != "connect")
      fail(opAt, "no list edit on the value of the attribute '" + std::string(name) + "'");
    if (current_.is('=')) {
      advance();
      field.hasValue = true;
      field.value = parseFieldValue(kind, typeName, field.suffix);
    }
    std::vector<MetadataEntry> metadata;
    if (current_.is('('))
      metadata = parseMetadataBlock();
    if (current_.is(';'))
      advance();
    mergeProperty(kind, custom, variability, typeName, typeAt, nameAt, std::move(field),
                  std::move(metadata), std::move(comments));
  }

  Value parseFieldValue(PropertyKind kind, std::string_view typeName, std::string_view suffix) {
    const Token at = current_;
    if (suffix == "timeSamples")
      return parseTimeSamples(typeName);
    if (suffix == "spline") {
      if (!current_.is('{') || peeked_)
        fail(current_, "'{' to open the spline");
      std::string_view block;
      if (!tokens_.takeBalancedBlock(current_, block))
        fail(current_, "a '}' that closes the spline");
      advance();
      return Value::ofKind(ValueKind::RawText, block);
    }
    Value value = parseValue();
    if (kind == PropertyKind::Relationship || suffix == "connect") {
      const bool paths =
          value.kind == ValueKind::Path || value.isNone() || (value.kind == ValueKind::List && [&] {
            for (const Value& item : value.items()) {
              if (item.kind != ValueKind::Path)
                return false;
            }
            return true;
          }());
      if (!paths)
        fail(at, "a path <...>, a list of paths or None");
      return value;
    }
    if (suffix.empty())
      checkValue(typeName, value, at);
    return value;
  }

  Value parseTimeSamples(std::string_view typeName) {
    const std::size_t start = scratch_.size();
    expect('{', "'{' to open the time samples");
    while (!current_.is('}')) {
      if (current_.kind != TokenKind::Number)
        fail(current_, "a time (a number) or '}'");
      const std::string_view time = current_.text;
      advance();
      expect(':', "':' after the sample time");
      const Token at = current_;
      const Value item = parseValue();
      checkValue(typeName, item, at);
      const std::size_t entryStart = scratch_.size();
      scratch_.push_back(item);
      const Value entry = finishItems(Value::ofKind(ValueKind::Entry, time), entryStart);
      scratch_.push_back(entry);
      if (current_.is(',')) {
        advance();
      } else if (!current_.is('}')) {
        fail(current_, "',' or '}' after the sample");
      }
    }
    advance();
    return finishItems(Value::ofKind(ValueKind::TimeSamples, {}), start);
  }

  void mergeProperty(PropertyKind kind, bool custom, Variability variability,
                     std::string_view typeName, const Token& typeAt, const Token& nameAt,
                     PropertyField field, std::vector<MetadataEntry> metadata, Comments comments) {
    const std::string_view name = nameAt.text;
    auto& properties = propertyBuffers_[bodyLevel_ - 1];
    for (LayerProperty& existing : properties) {
      if (existing.name != name)
        continue;
      const std::string quoted = "'" + std::string(name) + "'";
      if (existing.kind != kind) {
        fail(typeAt, existing.kind == PropertyKind::Relationship
                         ? "'rel', as " + quoted + " was declared a relationship"
                         : "an attribute type, as " + quoted + " was declared an attribute");
      }
      // One property has one type: its statements are written under the first one's.
      if (!existing.typeName.empty() && !typeName.empty() && existing.typeName != typeName) {
        fail(typeAt, "the type " + std::string(existing.typeName) + " that " + quoted +
                         " was declared with");
      }
      if (existing.variability != variability)
        fail(typeAt, "the variability that " + quoted + " was declared with");
      existing.custom = existing.custom || custom;
      if (existing.typeName.empty())
        existing.typeName = typeName;
      existing.fields.push_back(std::move(field));
      for (auto& entry : metadata)
        existing.metadata.push_back(std::move(entry));
      existing.comments.insert(existing.comments.end(), comments.begin(), comments.end());
      return;
    }
    LayerProperty property;
    property.kind = kind;
    property.custom = custom;
    property.variability = variability;
    property.typeName = typeName;
    property.name = name;
    property.fields.push_back(std::move(field));
    property.metadata = std::move(metadata);
    property.comments = std::move(comments);
    properties.push_back(std::move(property));
  }

  Layer& layer_;
  Tokenizer tokens_;
  Token current_;
  std::optional<Token> peeked_;
  std::vector<Value> scratch_;  // items of the values being read, innermost last
  std::vector<std::pair<std::uint32_t, std::uint32_t>> namePositions_;  // line and column per prim
  std::vector<std::pair<std::string_view, std::size_t>> sortedNames_;
  std::vector<std::vector<LayerProperty>> propertyBuffers_;
  std::size_t bodyLevel_ = 0;
  std::unordered_map<std::string_view, TypeShape> shapes_;
  std::uint32_t commentsTaken_ = 0;
  std::uint32_t previousLine_ = 1;  // where the token before the current one ends
  int depth_ = 0;
};

}  // namespace

LayerReadResult readLayerText(std::string identifier, std::string text) {
  LayerReadResult result;
  auto layer = std::make_shared<Layer>(identifier, std::move(text));
  try {
    Parser parser(*layer, layer->source());
    parser.parseLayer();
  } catch (const ParseFailure& failure) {
    result.error = ReadError{std::move(identifier), failure.line, failure.column, failure.message};
    return result;
  } catch (const std::bad_alloc&) {
    result.error = ReadError{std::move(identifier), 0, 0, "is too large to read into memory"};
    return result;
  }
  result.layer = std::move(layer);
  return result;
}

FileText readRegularFile(const std::string& path, std::uint64_t maxBytes) {
  FileText result;
  // Opened without blocking, so that a pipe with no writer cannot hold the reader; the type is
  // then checked on the open descriptor itself, so nothing can swap the file in between.
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  if (descriptor < 0) {
    result.error = "could not open the file";
    return result;
  }
  const FileDescriptor file(descriptor);
  struct stat status {};
  if (::fstat(file.fd, &status) != 0) {
    result.error = "could not open the file";
    return result;
  }
  if (S_ISDIR(status.st_mode)) {
    result.error = "is a folder, not a layer file";
    return result;
  }
  if (!S_ISREG(status.st_mode)) {
    result.error = "is not a regular file";
    return result;
  }
  const auto size = static_cast<std::uint64_t>(status.st_size);
  if (size > maxBytes) {
    result.error = "is larger than the limit of " + std::to_string(maxBytes) + " bytes";
    return result;
  }
  try {
    result.text.reserve(static_cast<std::size_t>(size));
    // The size can change while reading; the limit holds for what is read, not what was stated.
    char chunk[1 << 16];
    for (;;) {
      const ssize_t got = ::read(file.fd, chunk, sizeof chunk);
      if (got < 0 && errno == EINTR)
        continue;
      if (got < 0) {
        result.error = "could not read the file";
        return result;
      }
      if (got == 0)
        break;
      if (result.text.size() + static_cast<std::size_t>(got) > maxBytes) {
        result.error = "is larger than the limit of " + std::to_string(maxBytes) + " bytes";
        return result;
      }
      result.text.append(chunk, static_cast<std::size_t>(got));
    }
  } catch (const std::bad_alloc&) {
    result.error = "is too large to read into memory";
  }
  return result;
}

LayerReadResult readLayerFile(const std::string& path, std::uint64_t maxBytes) {
  FileText file = readRegularFile(path, maxBytes);
  if (file.error) {
    LayerReadResult result;
    result.error = ReadError{path, 0, 0, std::move(*file.error)};
    return result;
  }
  return readLayerText(path, std::move(file.text));
}

}  // namespace orvan::engine

#include "UsdText/PathMapping.h"

namespace orvan::engine {
namespace {

std::string replacePrefix(std::string_view path, std::string_view from, std::string_view to) {
  std::string out(to);
  out += path.substr(from.size());
  return out;
}

}  // namespace

bool hasPrefixPath(std::string_view path, std::string_view prefix) {
  if (prefix == "/")
    return !path.empty() && path.front() == '/';
  if (path.size() < prefix.size() || path.substr(0, prefix.size()) != prefix)
    return false;
  return path.size() == prefix.size() || path[prefix.size()] == '/' || path[prefix.size()] == '.' ||
         path[prefix.size()] == '{';
}

std::string absolutePath(std::string_view target, std::string_view anchor) {
  if (!target.empty() && target.front() == '/')
    return std::string(target);
  std::string base(anchor);
  while (!target.empty()) {
    if (target.front() == '.' && (target.size() == 1 || target[1] != '.')) {
      if (target.size() == 1)
        break;
      base += target;  // a property of the anchor prim
      return base;
    }
    const std::size_t slash = target.find('/');
    const std::string_view part = target.substr(0, slash);
    if (part == "..") {
      const std::size_t cut = base.rfind('/');
      base = cut == 0 || cut == std::string::npos ? "/" : base.substr(0, cut);
    } else if (!part.empty() && part != ".") {
      if (base != "/")
        base += '/';
      base += part;
    }
    if (slash == std::string_view::npos)
      break;
    target.remove_prefix(slash + 1);
  }
  return base;
}

std::string mapTargetToStage(std::string_view target, std::string_view anchor,
                             const PathMapping* mapping) {
  std::string path = absolutePath(target, anchor);
  for (; mapping; mapping = mapping->outer.get()) {
    if (mapping->from == "/" || !hasPrefixPath(path, mapping->from))
      break;
    path = replacePrefix(path, mapping->from, mapping->to);
  }
  return path;
}

}  // namespace orvan::engine

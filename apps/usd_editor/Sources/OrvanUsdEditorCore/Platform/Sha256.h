#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "orvan/wire/Error.h"

struct evp_md_ctx_st;

namespace orvan::editor {

// SHA-256 digests as lower-case hexadecimal, used where a stable name must be derived from
// content or a key (preview cache file names). Feed bytes with `update`, then take `finalHex`
// once; the object can then be fed anew.
class Sha256 {
 public:
  Sha256();
  ~Sha256();
  Sha256(const Sha256&) = delete;
  Sha256& operator=(const Sha256&) = delete;

  void update(std::string_view bytes);
  std::string finalHex();

  static std::string hexOf(std::string_view bytes);
  // Streams the file in chunks, so a large asset never sits in memory whole.
  static Result<std::string> hexOfFile(const std::filesystem::path& path);

 private:
  struct ContextDeleter {
    void operator()(evp_md_ctx_st* context) const;
  };
  std::unique_ptr<evp_md_ctx_st, ContextDeleter> context_;
};

}  // namespace orvan::editor

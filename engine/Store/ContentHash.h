#pragma once

#include <string>
#include <string_view>

#include "Store/StoreError.h"

namespace orvan::engine {

// The name of a content in the store: its SHA-256 digest as 64 lowercase hex digits. Equal bytes
// give equal names, so a content is kept once however many snapshots hold it.
std::string contentHash(std::string_view bytes);

// The content hash of a file, read in pieces so a large layer is never held twice; an error names
// the file and the reason.
StoreResult<std::string> contentHashOfFile(const std::string& path);

}  // namespace orvan::engine

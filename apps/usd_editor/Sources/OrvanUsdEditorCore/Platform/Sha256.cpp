#include "Platform/Sha256.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include <fmt/format.h>

#include "Platform/UniqueFd.h"

namespace orvan::editor {

namespace {

constexpr std::size_t kFileChunkBytes = 256 * 1024;

void startDigest(EVP_MD_CTX* context) {
  if (EVP_DigestInit_ex(context, EVP_sha256(), nullptr) != 1) {
    throw std::runtime_error("SHA-256 is unavailable in the crypto library");
  }
}

std::string toLowerHex(const unsigned char* bytes, unsigned int size) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string hex;
  hex.reserve(size * 2);
  for (unsigned int i = 0; i < size; ++i) {
    hex.push_back(kDigits[bytes[i] >> 4]);
    hex.push_back(kDigits[bytes[i] & 0x0f]);
  }
  return hex;
}

}  // namespace

void Sha256::ContextDeleter::operator()(evp_md_ctx_st* context) const {
  EVP_MD_CTX_free(context);
}

Sha256::Sha256() : context_(EVP_MD_CTX_new()) {
  if (!context_)
    throw std::bad_alloc();
  startDigest(context_.get());
}

Sha256::~Sha256() = default;

void Sha256::update(std::string_view bytes) {
  EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size());
}

std::string Sha256::finalHex() {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int size = 0;
  EVP_DigestFinal_ex(context_.get(), digest.data(), &size);
  startDigest(context_.get());
  return toLowerHex(digest.data(), size);
}

std::string Sha256::hexOf(std::string_view bytes) {
  Sha256 digest;
  digest.update(bytes);
  return digest.finalHex();
}

Result<std::string> Sha256::hexOfFile(const std::filesystem::path& path) {
  const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.isValid()) {
    const int error = errno;
    return Error::editor(
        error, fmt::format("Could not open \"{}\": {}", path.string(), std::strerror(error)));
  }
  Sha256 digest;
  std::string buffer(kFileChunkBytes, '\0');
  while (true) {
    const ssize_t got = ::read(file.get(), buffer.data(), buffer.size());
    if (got == 0)
      return digest.finalHex();
    if (got < 0 && errno == EINTR)
      continue;
    if (got < 0) {
      const int error = errno;
      return Error::editor(
          error, fmt::format("Could not read \"{}\": {}", path.string(), std::strerror(error)));
    }
    digest.update(std::string_view(buffer.data(), static_cast<std::size_t>(got)));
  }
}

}  // namespace orvan::editor

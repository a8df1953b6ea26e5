#include "ProjectServer/Credentials.h"

#include <array>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include <openssl/crypto.h>
#include <openssl/rand.h>
#include <openssl/sha.h>

#include "orvan/wire/Text.h"

namespace orvan::engine {
namespace {

using Digest = std::array<unsigned char, SHA256_DIGEST_LENGTH>;

Digest sha256(std::string_view text) {
  Digest digest{};
  SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest.data());
  return digest;
}

std::string hex(const unsigned char* bytes, std::size_t size) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string out;
  out.reserve(size * 2);
  for (std::size_t i = 0; i < size; ++i) {
    out += kDigits[bytes[i] >> 4];
    out += kDigits[bytes[i] & 0x0f];
  }
  return out;
}

}  // namespace

std::string sha256Hex(std::string_view text) {
  const Digest digest = sha256(text);
  return hex(digest.data(), digest.size());
}

bool sameSecret(std::string_view given, std::string_view expected) {
  const Digest a = sha256(given);
  const Digest b = sha256(expected);
  const bool equal = CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
  return equal && !expected.empty();
}

std::string randomHex(std::size_t bytes) {
  std::string raw(bytes, '\0');
  if (RAND_bytes(reinterpret_cast<unsigned char*>(raw.data()), static_cast<int>(bytes)) != 1)
    throw std::runtime_error("the system's random generator failed");
  return hex(reinterpret_cast<const unsigned char*>(raw.data()), raw.size());
}

editor::Result<Secret, std::string> readSecretFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in)
    return "cannot read " + path + ": " + std::strerror(errno);
  std::string line;
  std::getline(in, line);
  Secret secret{.text = editor::trimmed(line)};
  if (secret.text.empty())
    return path + " holds no secret on its first line";
  return secret;
}

}  // namespace orvan::engine

#include "Store/ContentHash.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>

#include <openssl/evp.h>

namespace orvan::engine {
namespace {

struct DigestContextFree {
  void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};
using DigestContext = std::unique_ptr<EVP_MD_CTX, DigestContextFree>;

std::string hex(const unsigned char* bytes, unsigned size) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string out;
  out.reserve(size * 2);
  for (unsigned i = 0; i < size; ++i) {
    out += kDigits[bytes[i] >> 4];
    out += kDigits[bytes[i] & 0x0f];
  }
  return out;
}

DigestContext startDigest() {
  DigestContext context(EVP_MD_CTX_new());
  if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1)
    return nullptr;
  return context;
}

std::string finishDigest(EVP_MD_CTX* context) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned size = 0;
  EVP_DigestFinal_ex(context, digest.data(), &size);
  return hex(digest.data(), size);
}

class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() {
    if (fd_ >= 0)
      ::close(fd_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

}  // namespace

std::string contentHash(std::string_view bytes) {
  const DigestContext context = startDigest();
  if (!context)
    return {};
  EVP_DigestUpdate(context.get(), bytes.data(), bytes.size());
  return finishDigest(context.get());
}

StoreResult<std::string> contentHashOfFile(const std::string& path) {
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (file.get() < 0)
    return StoreError{"cannot read " + path + ": " + std::strerror(errno)};
  const DigestContext context = startDigest();
  if (!context)
    return StoreError{"the SHA-256 digest is not available"};
  std::array<char, 1 << 16> buffer{};
  while (true) {
    const ssize_t got = ::read(file.get(), buffer.data(), buffer.size());
    if (got == 0)
      break;
    if (got < 0) {
      if (errno == EINTR)
        continue;
      return StoreError{"cannot read " + path + ": " + std::strerror(errno)};
    }
    EVP_DigestUpdate(context.get(), buffer.data(), static_cast<std::size_t>(got));
  }
  return finishDigest(context.get());
}

}  // namespace orvan::engine

// Any byte string as an endpoint address: the endpoint derived from it is always usable.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "FuzzCheck.h"
#include "orvan/client/ClientTarget.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace orvan::client;
  const std::string address(reinterpret_cast<const char*>(data), size);

  ClientTarget target;
  set_target_address(target, address);
  FUZZ_CHECK(target.address == address);
  FUZZ_CHECK(target.port >= 1 && target.port <= 65535);
  // The host is cut out of the address, never assembled: it can't hold a path, query or fragment.
  FUZZ_CHECK(address.find(target.host) != std::string::npos);
  FUZZ_CHECK(target.host.find_first_of("/?#") == std::string::npos);
  if (target.port != 50051 && target.port != 443 && target.port != 80) {
    FUZZ_CHECK(address.find(':') != std::string::npos);
  }
  return 0;
}

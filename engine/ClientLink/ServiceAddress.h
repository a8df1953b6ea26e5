#pragma once

#include <string>
#include <string_view>

namespace orvan::engine {

// The HTTP origin behind a service address as the editor hands it to its helpers, or why there is
// none. `baseUrl` never ends with "/", so request paths are appended as they are.
struct ServiceAddressResult {
  std::string baseUrl;
  std::string error;

  bool ok() const { return error.empty(); }
};

// "grpc://HOST:PORT" is served over plain HTTP and "grpcs://HOST:PORT" over HTTPS on the same
// port; "http://" and "https://" addresses are taken as they are. A path after the authority is
// kept (a server behind a path prefix). Anything else, or an address without a host, is an error
// that names the address.
ServiceAddressResult httpBaseForAddress(std::string_view address);

}  // namespace orvan::engine

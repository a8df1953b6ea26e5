// Any byte string as a link: parsing never fails hard, and every target it yields is canonical.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "FuzzCheck.h"
#include "orvan/client/DeepLink.h"
#include "velk_client_state_bridge.h"

namespace orvan::client::fuzz {
namespace {

constexpr std::string_view kSlashedServer = "https://fuzz.example//";

// Normalising a parsed target again changes nothing, with one known exception: a scene that
// became project-relative may start with blanks or "./" that a second pass would strip.
void checkCanonical(const ClientTarget& target, std::string_view default_server) {
  ClientTarget again = normalize_target(target, default_server);
  if (again.scene_uri != target.scene_uri) {
    const std::string_view scene = target.scene_uri;
    FUZZ_CHECK(!target.project_id.empty());
    FUZZ_CHECK(!scene.empty() && (is_c_space(scene.front()) || scene.starts_with("./")));
    again.scene_uri = target.scene_uri;
  }
  FUZZ_CHECK(again == target);
}

// Whether host and port agree with the address is part of being canonical (checkCanonical).
void checkEndpoint(const ClientTarget& target) {
  FUZZ_CHECK(target.port >= 0 && target.port <= 65535);
  FUZZ_CHECK(target.web_port >= 0 && target.web_port <= 65535);
  if (!target.address.empty() || !target.host.empty())
    FUZZ_CHECK(target.port >= 1);
}

void checkSelection(const ClientTarget& target) {
  for (std::size_t i = 0; i < target.selection.size(); ++i) {
    FUZZ_CHECK(!target.selection[i].empty());
    for (std::size_t j = 0; j < i; ++j)
      FUZZ_CHECK(target.selection[i] != target.selection[j]);
  }
}

void checkParse(std::string_view link, std::string_view default_server) {
  const std::optional<ClientTarget> target = parse_deep_link(link, default_server);
  if (link.size() < 3 || link.find("://") == std::string_view::npos)
    FUZZ_CHECK(!target);
  if (!target)
    return;

  FUZZ_CHECK(!target_names_nothing(*target));
  FUZZ_CHECK(!target->workspace.empty());
  const std::string& server = target->server_url;
  FUZZ_CHECK(server == "/" || !server.ends_with('/'));
  checkCanonical(*target, default_server);
  checkEndpoint(*target);
  checkSelection(*target);
}

// The C boundary reads the link up to its first NUL and must agree with the C++ parser on it.
void checkBoundary(const std::string& link, const char* default_server) {
  const std::string_view server = default_server != nullptr ? default_server : kDefaultServerUrl;
  const std::optional<ClientTarget> expected = parse_deep_link(link.c_str(), server);
  VelkClientTarget* record = velk_client_target_parse(link.c_str(), default_server);
  FUZZ_CHECK((record != nullptr) == expected.has_value());
  // The record's fields are tested one by one in C; here the default server and the scene, the
  // two that normalisation rewrites.
  const ClientTarget blank;
  const ClientTarget& want = expected ? *expected : blank;
  FUZZ_CHECK(std::strcmp(velk_client_target_server_url(record), want.server_url.c_str()) == 0);
  FUZZ_CHECK(std::strcmp(velk_client_target_scene_uri(record), want.scene_uri.c_str()) == 0);
  velk_client_target_destroy(record);
}

}  // namespace
}  // namespace orvan::client::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace orvan::client;
  const std::string link(reinterpret_cast<const char*>(data), size);
  fuzz::checkParse(link, kDefaultServerUrl);
  fuzz::checkParse(link, fuzz::kSlashedServer);
  fuzz::checkParse(link, "");
  fuzz::checkBoundary(link, nullptr);
  fuzz::checkBoundary(link, std::string(fuzz::kSlashedServer).c_str());
  return 0;
}

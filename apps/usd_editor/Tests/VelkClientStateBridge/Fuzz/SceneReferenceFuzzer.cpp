// Any byte string as a scene reference: what comes out stays inside the project.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "FuzzCheck.h"
#include "orvan/client/ClientTarget.h"

namespace orvan::client::fuzz {
namespace {

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && is_c_space(text.front()))
    text.remove_prefix(1);
  while (!text.empty() && is_c_space(text.back()))
    text.remove_suffix(1);
  return text;
}

}  // namespace
}  // namespace orvan::client::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace orvan::client;
  const std::string scene(reinterpret_cast<const char*>(data), size);
  const std::string portable = portable_scene_reference(scene);

  ClientTarget target;
  target.project_id = "project";
  target.scene_uri = scene;
  const ClientTarget normalized = normalize_target(target, kDefaultServerUrl);
  FUZZ_CHECK(normalized.scene_uri == (portable.empty() ? scene : portable));
  if (portable.empty())
    return 0;

  FUZZ_CHECK(!portable.starts_with('/'));
  FUZZ_CHECK(portable.find("/../") == std::string::npos);
  FUZZ_CHECK(portable != ".." && !portable.starts_with("../"));
  FUZZ_CHECK(!fuzz::is_drive_path(portable));
  FUZZ_CHECK(portable.find('\\') == std::string::npos);
  FUZZ_CHECK(!fuzz::is_c_space(portable.back()));

  // The result is a tail of the trimmed input with separators turned around; nothing is invented.
  std::string forward(fuzz::trimmed(scene));
  for (char& c : forward) {
    if (c == '\\')
      c = '/';
  }
  FUZZ_CHECK(forward.ends_with(portable));

  // A second pass changes only a tail that begins with blanks or "./" left behind the project
  // folder, and can then only shorten it.
  const std::string again = portable_scene_reference(portable);
  if (again != portable) {
    FUZZ_CHECK(fuzz::is_c_space(portable.front()) || portable.starts_with("./"));
    FUZZ_CHECK(again.empty() || (again.size() < portable.size() && portable.ends_with(again)));
  }
  return 0;
}

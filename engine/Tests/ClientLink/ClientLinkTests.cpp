// Service addresses and the line splitting both helpers read their streams with.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "ClientLink/LineSplitter.h"
#include "ClientLink/ServiceAddress.h"

namespace orvan::engine {
namespace {

TEST(ServiceAddressTest, AddressesBecomeHttpOriginsOrClearErrors) {
  const std::vector<std::pair<std::string, std::string>> accepted = {
      {"grpc://127.0.0.1:8787", "http://127.0.0.1:8787"},
      {"grpcs://edit.example.org:443", "https://edit.example.org:443"},
      {"GRPC://host:1", "http://host:1"},
      {"http://127.0.0.1:8787/", "http://127.0.0.1:8787"},
      {"https://host/prefix//", "https://host/prefix"},
      {"http://[::1]:8787", "http://[::1]:8787"},
  };
  for (const auto& [address, origin] : accepted) {
    const ServiceAddressResult result = httpBaseForAddress(address);
    EXPECT_TRUE(result.ok()) << address << ": " << result.error;
    EXPECT_EQ(result.baseUrl, origin) << address;
  }
  for (const std::string address : {"", "127.0.0.1:8787", "ftp://host:1", "grpc://", "grpc://:80",
                                    "http://host:1?x=1", "http://ho st:1", "unix:///tmp/s"}) {
    const ServiceAddressResult result = httpBaseForAddress(address);
    EXPECT_FALSE(result.ok()) << address;
    EXPECT_NE(result.error.find("address '" + address + "'"), std::string::npos) << result.error;
  }
}

struct Seen {
  std::string line;
  bool overlong;
  bool operator==(const Seen&) const = default;
};

TEST(LineSplitterTest, LinesSplitAnywhereComeOutWholeAndOverlongOnesAreSkipped) {
  LineSplitter splitter(8);
  std::vector<Seen> seen;
  const auto collect = [&](std::string_view line, bool overlong) {
    seen.push_back({std::string(line), overlong});
    return true;
  };
  // Byte by byte: a short line, an empty one, one of exactly the limit, one past it spread over
  // many pieces, then a line after it.
  const std::string stream = "ab\n\n12345678\n123456789abcdef\nafter\ntail";
  for (char byte : stream)
    splitter.feed(std::string_view(&byte, 1), collect);
  splitter.finish(collect);
  EXPECT_EQ(seen, (std::vector<Seen>{{"ab", false},
                                     {"", false},
                                     {"12345678", false},
                                     {"", true},
                                     {"after", false},
                                     {"tail", false}}));

  // Stopping leaves the rest unread; finishing with nothing pending reports nothing.
  LineSplitter stopper(100);
  std::vector<std::string> lines;
  EXPECT_FALSE(stopper.feed("one\ntwo\nthree\n", [&](std::string_view line, bool) {
    lines.emplace_back(line);
    return line != "two";
  }));
  EXPECT_EQ(lines, (std::vector<std::string>{"one", "two"}));
  LineSplitter empty(100);
  empty.feed("done\n", [](std::string_view, bool) { return true; });
  bool called = false;
  empty.finish([&](std::string_view, bool) { called = true; });
  EXPECT_FALSE(called);
}

}  // namespace
}  // namespace orvan::engine

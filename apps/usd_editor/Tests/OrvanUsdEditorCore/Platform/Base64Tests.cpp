#include <gtest/gtest.h>

#include "Platform/Base64.h"

namespace orvan::editor {
namespace {

TEST(Base64Test, Base64RoundTripsEveryTailLengthAndAllByteValues) {
  std::string all;
  for (int byte = 0; byte < 256; ++byte)
    all.push_back(static_cast<char>(byte));
  for (std::size_t length = 0; length <= 7; ++length) {
    const std::string bytes = all.substr(250 - length, length);
    EXPECT_EQ(decodeBase64(encodeBase64(bytes)), bytes) << length;
  }
  EXPECT_EQ(decodeBase64(encodeBase64(all)), all);
  EXPECT_EQ(encodeBase64("foobar"), "Zm9vYmFy");
  EXPECT_EQ(encodeBase64("fo"), "Zm8=");
}

TEST(Base64Test, MalformedBase64IsRefused) {
  for (const char* bad : {"Zm9", "Zm9v!mFy", "Z===", "Zm=v", "=Zm8"}) {
    EXPECT_EQ(decodeBase64(bad), std::nullopt) << bad;
  }
}

}  // namespace
}  // namespace orvan::editor

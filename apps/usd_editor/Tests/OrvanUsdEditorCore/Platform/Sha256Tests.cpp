#include <filesystem>

#include <gtest/gtest.h>

#include "Platform/Sha256.h"
#include "Support/TemporaryFolder.h"

namespace orvan::editor {
namespace {

constexpr const char* kEmptyDigest =
    "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
constexpr const char* kAbcDigest =
    "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
constexpr const char* kMillionADigest =
    "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0";

TEST(Sha256Test, KnownVectorsWholeOrPiecewiseAndEachResultStartsAfresh) {
  EXPECT_EQ(Sha256::hexOf(""), kEmptyDigest);
  EXPECT_EQ(Sha256::hexOf(std::string(1000000, 'a')), kMillionADigest);
  Sha256 digest;
  digest.update("a");
  digest.update("");
  digest.update("bc");
  EXPECT_EQ(digest.finalHex(), kAbcDigest);
  EXPECT_EQ(digest.finalHex(), kEmptyDigest);
}

TEST(Sha256Test, FilesAreDigestedAcrossChunkBoundaries) {
  const testing::TemporaryFolder folder;
  const auto path = folder.write("million", std::string(1000000, 'a'));
  auto digest = Sha256::hexOfFile(path);
  ASSERT_TRUE(digest) << digest.error().description;
  EXPECT_EQ(*digest, kMillionADigest);

  EXPECT_EQ(*Sha256::hexOfFile(folder.write("empty", "")), kEmptyDigest);
  std::filesystem::remove(path);

  auto missing = Sha256::hexOfFile(path);
  ASSERT_FALSE(missing);
  EXPECT_NE(missing.error().description.find(path.string()), std::string::npos);
}

}  // namespace
}  // namespace orvan::editor

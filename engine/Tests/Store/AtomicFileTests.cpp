#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "Store/AtomicFile.h"
#include "Store/ContentHash.h"
#include "StoreTestFolder.h"

namespace orvan::engine {
namespace {

std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder))
    names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

TEST(AtomicFile, AReplacementLandsWholeKeepsTheModeAndLeavesNothingBeside) {
  StoreTestFolder folder;
  const std::string path = folder.file("scene.usda");
  writeWhole(path, "old");
  ::chmod(path.c_str(), 0640);
  const auto stamp = replaceFileAtomically(path, "#usda 1.0\nnew\n");
  ASSERT_TRUE(stamp) << stamp.error().message;
  EXPECT_EQ(readWhole(path), "#usda 1.0\nnew\n");
  EXPECT_EQ(*stamp, stampOf(path));
  EXPECT_EQ(stamp->size, 14u);
  struct stat status {};
  ::stat(path.c_str(), &status);
  EXPECT_EQ(status.st_mode & 0777, 0640u);
  EXPECT_EQ(namesIn(folder.path()), std::vector<std::string>{"scene.usda"});

  // A new file is made too.
  ASSERT_TRUE(replaceFileAtomically(folder.file("fresh.usda"), ""));
  EXPECT_TRUE(stampOf(folder.file("fresh.usda")).exists);
}

TEST(AtomicFile, AnUncommittedReplacementLeavesTheFileAsItWas) {
  StoreTestFolder folder;
  const std::string path = folder.file("scene.usda");
  writeWhole(path, "old");
  std::string temporary;
  {
    auto prepared = FileReplacement::prepare(path, "new");
    ASSERT_TRUE(prepared);
    temporary = prepared->temporaryPath();
    EXPECT_TRUE(isReplacementTemporary(std::filesystem::path(temporary).filename().string()));
    EXPECT_EQ(readWhole(temporary), "new");
    EXPECT_EQ(readWhole(path), "old");
  }
  EXPECT_FALSE(std::filesystem::exists(temporary));
  EXPECT_EQ(readWhole(path), "old");
}

TEST(AtomicFile, AFolderThatIsGoneIsAnErrorNamingTheFile) {
  StoreTestFolder folder;
  const std::string path = folder.file("gone/scene.usda");
  const auto stamp = replaceFileAtomically(path, "new");
  ASSERT_FALSE(stamp);
  EXPECT_EQ(stamp.error().message, "cannot write beside " + path + ": No such file or directory");
}

TEST(AtomicFile, TemporariesACrashLeftBehindAreRemovedAndNothingElse) {
  StoreTestFolder folder;
  writeWhole(folder.file(".scene.usda.orvan-new-123-0"), "half");
  writeWhole(folder.file("scene.usda"), "live");
  writeWhole(folder.file(".hidden"), "kept");
  EXPECT_FALSE(isReplacementTemporary("scene.usda.orvan-new-1-0"));
  EXPECT_EQ(removeReplacementTemporaries(folder.path()), 1u);
  EXPECT_EQ(namesIn(folder.path()), (std::vector<std::string>{".hidden", "scene.usda"}));
}

// Readers that open the file over and over while it is replaced see one content or the other,
// never a mix or a short file.
TEST(AtomicFile, AReaderNeverSeesAHalfWrittenFile) {
  StoreTestFolder folder;
  const std::string path = folder.file("scene.usda");
  const std::string first(3 * 1024 * 1024, 'a');
  const std::string second(2 * 1024 * 1024 + 17, 'b');
  ASSERT_TRUE(replaceFileAtomically(path, first));
  std::atomic<bool> done{false};
  std::atomic<int> reads{0};
  std::atomic<int> torn{0};
  std::thread reader([&] {
    while (!done || reads < 20) {
      const std::string seen = readWhole(path);
      if (seen != first && seen != second)
        ++torn;
      ++reads;
    }
  });
  for (int i = 0; i < 40; ++i)
    ASSERT_TRUE(replaceFileAtomically(path, i % 2 ? first : second));
  done = true;
  reader.join();
  EXPECT_EQ(torn, 0) << "of " << reads << " reads";
  EXPECT_EQ(readWhole(path), first);
}

TEST(AtomicFile, TheContentHashIsSha256InHex) {
  StoreTestFolder folder;
  EXPECT_EQ(contentHash(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  const std::string text(200'000, 'q');
  writeWhole(folder.file("q"), text);
  EXPECT_EQ(*contentHashOfFile(folder.file("q")), contentHash(text));
  const auto missing = contentHashOfFile(folder.file("none"));
  ASSERT_FALSE(missing);
  EXPECT_EQ(missing.error().message,
            "cannot read " + folder.file("none") + ": No such file or directory");
}

}  // namespace
}  // namespace orvan::engine

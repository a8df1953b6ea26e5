#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Platform/PreferencesStore.h"
#include "Support/Fifo.h"
#include "Support/TemporaryFolder.h"

namespace orvan::editor {
namespace {

using ::testing::ElementsAre;
using testing::fileText;
namespace fs = std::filesystem;

class PreferencesFileTest : public ::testing::Test {
 protected:
  std::ptrdiff_t filesInFolder() const {
    return std::distance(fs::directory_iterator(file_.parent_path()), fs::directory_iterator());
  }

  testing::TemporaryFolder folder_;
  fs::path file_ = folder_ / "velk" / "preferences.json";
};

TEST_F(PreferencesFileTest, EveryKindOfValueSurvivesAReloadAndReadsAsNothingAsAnotherKind) {
  const std::string bytes("\0\x01\xff{\"data\"}", 10);
  {
    JsonFilePreferencesStore store(file_);
    ASSERT_TRUE(store.setString("order", "scene"));
    ASSERT_TRUE(store.setString("tricky", "quote \" slash \\ tab \t line\n é ✓"));
    ASSERT_TRUE(store.setBoolean("snap", true));
    ASSERT_TRUE(store.setBoolean("surface", false));
    ASSERT_TRUE(store.setData("scopes", bytes));
    ASSERT_TRUE(store.setString("gone", "soon"));
    ASSERT_TRUE(store.remove("gone"));
    ASSERT_TRUE(store.remove("absent"));
  }
  JsonFilePreferencesStore reloaded(file_);
  EXPECT_FALSE(reloaded.hasCorruptFile());
  EXPECT_EQ(reloaded.string("order"), "scene");
  EXPECT_EQ(reloaded.string("tricky"), "quote \" slash \\ tab \t line\n é ✓");
  EXPECT_EQ(reloaded.boolean("snap"), true);
  EXPECT_EQ(reloaded.boolean("surface"), false);
  EXPECT_EQ(reloaded.data("scopes"), bytes);
  EXPECT_THAT(reloaded.keys(), ElementsAre("order", "scopes", "snap", "surface", "tricky"));
  EXPECT_EQ(reloaded.boolean("order"), std::nullopt);
  EXPECT_EQ(reloaded.string("scopes"), std::nullopt);
  EXPECT_EQ(reloaded.data("order"), std::nullopt);
  ASSERT_TRUE(reloaded.setBoolean("order", false));  // a key may change kind
  EXPECT_EQ(reloaded.string("order"), std::nullopt);

  struct stat info {};
  ASSERT_EQ(::stat(file_.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
}

TEST_F(PreferencesFileTest, AnInterruptedWriteLeavesTheOldFileWhole) {
  const struct {
    AtomicWriteInterruption interruption;
    std::ptrdiff_t filesLeft;  // a crash leaves its temporary file behind, to be ignored
  } cases[] = {{AtomicWriteInterruption::failHalfWay, 1},
               {AtomicWriteInterruption::crashBeforeRename, 2}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.filesLeft);
    fs::remove_all(file_.parent_path());
    ASSERT_TRUE(JsonFilePreferencesStore(file_).setString("order", "scene"));
    const std::string before = fileText(file_);

    JsonFilePreferencesStore store(file_, [&c](const fs::path& path, std::string_view text) {
      return writeFileAtomically(path, text, 0600, c.interruption);
    });
    EXPECT_FALSE(store.setString("order", std::string(10000, 'x')));
    // The run goes on with the new value; the disk keeps the old one.
    EXPECT_EQ(store.string("order"), std::string(10000, 'x'));
    EXPECT_EQ(fileText(file_), before);
    EXPECT_EQ(filesInFolder(), c.filesLeft);

    JsonFilePreferencesStore restarted(file_);
    EXPECT_EQ(restarted.string("order"), "scene");
    ASSERT_TRUE(restarted.setString("order", "alphabetical"));
    EXPECT_EQ(JsonFilePreferencesStore(file_).string("order"), "alphabetical");
  }
}

TEST_F(PreferencesFileTest, ACorruptFileReadsAsEmptyAndIsKeptAsideAtTheFirstChange) {
  for (const std::string corrupt : {"{\"order\": \"sce", "[1, 2]"}) {
    SCOPED_TRACE(corrupt);
    fs::remove_all(file_.parent_path());
    folder_.write("velk/preferences.json", corrupt);
    JsonFilePreferencesStore store(file_);
    EXPECT_TRUE(store.hasCorruptFile());
    EXPECT_TRUE(store.keys().empty());
    EXPECT_EQ(fileText(file_), corrupt);  // untouched by reading

    ASSERT_TRUE(store.setString("order", "scene"));
    EXPECT_FALSE(store.hasCorruptFile());
    EXPECT_EQ(fileText(file_.string() + ".corrupt"), corrupt);
    EXPECT_EQ(JsonFilePreferencesStore(file_).string("order"), "scene");
  }
}

TEST_F(PreferencesFileTest, AFileKeptAsideStaysPrivate) {
  folder_.write("velk/preferences.json", "{\"token\": \"sec");
  ASSERT_EQ(::chmod(file_.c_str(), 0644), 0);
  JsonFilePreferencesStore store(file_);
  ASSERT_TRUE(store.setString("order", "scene"));
  struct stat aside {};
  ASSERT_EQ(::stat((file_.string() + ".corrupt").c_str(), &aside), 0);
  EXPECT_EQ(aside.st_mode & 0777, 0600u);
  struct stat written {};
  ASSERT_EQ(::stat(file_.c_str(), &written), 0);
  EXPECT_EQ(written.st_mode & 0777, 0600u);
}

// What is not a regular file is never waited for nor read without end: it reads as a corrupt file
// and is replaced at the first change.
TEST_F(PreferencesFileTest, AFifoOrAnOversizedFileIsNotReadAndIsReplacedAtTheFirstChange) {
  fs::create_directories(file_.parent_path());
  ASSERT_TRUE(testing::makeFifo(file_));
  std::unique_ptr<JsonFilePreferencesStore> store;
  ASSERT_TRUE(testing::endsWithoutAWriter(file_, [&] {
    store = std::make_unique<JsonFilePreferencesStore>(file_);
  })) << "opening the preferences waited for a writer";
  EXPECT_TRUE(store->hasCorruptFile());
  EXPECT_TRUE(store->keys().empty());
  ASSERT_TRUE(store->setString("order", "scene"));
  EXPECT_TRUE(fs::is_fifo(file_.string() + ".corrupt"));
  EXPECT_EQ(JsonFilePreferencesStore(file_).string("order"), "scene");

  fs::remove_all(file_.parent_path());
  folder_.write("velk/preferences.json",
                "{\"padding\": \"" + std::string(kDefaultMaxFileBytes, 'p') + "\"}");
  EXPECT_TRUE(JsonFilePreferencesStore(file_).hasCorruptFile());
  const auto device = readWholeFile("/dev/zero");
  ASSERT_FALSE(device.ok());
  EXPECT_THAT(device.error().description, ::testing::HasSubstr("not a regular file"));
}

TEST_F(PreferencesFileTest, ValuesOfKindsThisEditorDoesNotWriteSurviveARewrite) {
  folder_.write("velk/preferences.json", R"({"list": [1, "a"], "nothing": null, "s": "v"})");
  JsonFilePreferencesStore store(file_);
  EXPECT_FALSE(store.hasCorruptFile());
  ASSERT_TRUE(store.setString("s", "w"));
  const auto values = *JsonFilePreferencesStore::decode(fileText(file_));
  EXPECT_EQ(values.at("list"), PreferenceValue(RawJson{R"([1,"a"])"}));
  EXPECT_EQ(values.at("nothing"), PreferenceValue(RawJson{"null"}));
  EXPECT_EQ(values.at("s"), PreferenceValue(std::string("w")));
}

TEST_F(PreferencesFileTest, InvalidUtf8IsRefusedAndNothingIsWritten) {
  JsonFilePreferencesStore store(file_);
  EXPECT_FALSE(store.setString("key", "\xc3"));
  EXPECT_FALSE(store.setBoolean("\xff", true));
  EXPECT_TRUE(store.keys().empty());
  EXPECT_FALSE(fs::exists(file_));
  EXPECT_TRUE(store.setData("bytes", "\xc3"));  // data is any bytes
}

TEST(PreferencesStoreTest, DefaultFileFollowsTheXdgConfigFolder) {
  const char* savedXdg = std::getenv("XDG_CONFIG_HOME");
  const char* savedHome = std::getenv("HOME");
  const std::string xdg = savedXdg ? savedXdg : "";
  const std::string home = savedHome ? savedHome : "";

  ::setenv("XDG_CONFIG_HOME", "/xdg/config", 1);
  EXPECT_EQ(JsonFilePreferencesStore::defaultFile(), fs::path("/xdg/config/velk/preferences.json"));
  ::setenv("HOME", "/home/someone", 1);
  ::setenv("XDG_CONFIG_HOME", "relative/is/ignored", 1);
  EXPECT_EQ(JsonFilePreferencesStore::defaultFile(),
            fs::path("/home/someone/.config/velk/preferences.json"));

  savedXdg ? ::setenv("XDG_CONFIG_HOME", xdg.c_str(), 1) : ::unsetenv("XDG_CONFIG_HOME");
  savedHome ? ::setenv("HOME", home.c_str(), 1) : ::unsetenv("HOME");
}

}  // namespace
}  // namespace orvan::editor

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Platform/PreferencesStore.h"
#include "Support/TemporaryFolder.h"

namespace orvan::editor {
namespace {

using ::testing::ElementsAre;
using testing::fileText;
namespace fs = std::filesystem;

class PreferencesFileTest : public ::testing::Test {
 protected:
  void writeFileText(const std::string& text) const {
    folder_.write("velk/preferences.json", text);
  }
  std::vector<std::string> folderEntries() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(file_.parent_path())) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }
  // A store whose writes are interrupted the given way.
  JsonFilePreferencesStore interruptedStore(AtomicWriteInterruption interruption) const {
    return JsonFilePreferencesStore(file_,
                                    [interruption](const fs::path& path, std::string_view text) {
                                      return writeFileAtomically(path, text, 0600, interruption);
                                    });
  }

  testing::TemporaryFolder folder_;
  fs::path file_ = folder_ / "velk" / "preferences.json";
};

TEST_F(PreferencesFileTest, EveryKindOfValueSurvivesAReload) {
  const std::string bytes("\0\x01\xff{\"data\"}", 10);
  {
    JsonFilePreferencesStore store(file_);
    ASSERT_TRUE(store.setString("VelkEditor.hierarchyOrder", "scene"));
    ASSERT_TRUE(store.setString("tricky", "quote \" slash \\ tab \t line\n é ✓"));
    ASSERT_TRUE(store.setBoolean("velkSnapEnabled", true));
    ASSERT_TRUE(store.setBoolean("velkSnapSurfaceMode", false));
    ASSERT_TRUE(store.setData("velk.editor.hostedLaunchScopes", bytes));
    ASSERT_TRUE(store.setString("gone", "soon"));
    ASSERT_TRUE(store.remove("gone"));
  }
  const JsonFilePreferencesStore reloaded(file_);
  EXPECT_FALSE(reloaded.hasCorruptFile());
  EXPECT_EQ(reloaded.string("VelkEditor.hierarchyOrder"), "scene");
  EXPECT_EQ(reloaded.string("tricky"), "quote \" slash \\ tab \t line\n é ✓");
  EXPECT_EQ(reloaded.boolean("velkSnapEnabled"), true);
  EXPECT_EQ(reloaded.boolean("velkSnapSurfaceMode"), false);
  EXPECT_EQ(reloaded.data("velk.editor.hostedLaunchScopes"), bytes);
  EXPECT_EQ(reloaded.string("gone"), std::nullopt);
  EXPECT_THAT(reloaded.keys(),
              ElementsAre("VelkEditor.hierarchyOrder", "tricky", "velk.editor.hostedLaunchScopes",
                          "velkSnapEnabled", "velkSnapSurfaceMode"));
  // A value read as another kind is absent.
  EXPECT_EQ(reloaded.boolean("VelkEditor.hierarchyOrder"), std::nullopt);
  EXPECT_EQ(reloaded.string("velk.editor.hostedLaunchScopes"), std::nullopt);
  EXPECT_EQ(reloaded.data("VelkEditor.hierarchyOrder"), std::nullopt);

  struct stat info {};
  ASSERT_EQ(::stat(file_.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
}

TEST_F(PreferencesFileTest, AWriteFailingHalfWayLeavesTheOldFileWhole) {
  {
    JsonFilePreferencesStore store(file_);
    ASSERT_TRUE(store.setString("VelkEditor.hierarchyOrder", "scene"));
  }
  const std::string before = fileText(file_);

  JsonFilePreferencesStore store = interruptedStore(AtomicWriteInterruption::failHalfWay);
  const Status written = store.setString("VelkEditor.hierarchyOrder", std::string(10000, 'x'));
  EXPECT_FALSE(written);
  // The run goes on with the new value; the disk keeps the old one, and no scraps.
  EXPECT_EQ(store.string("VelkEditor.hierarchyOrder"), std::string(10000, 'x'));
  EXPECT_EQ(fileText(file_), before);
  EXPECT_THAT(folderEntries(), ElementsAre("preferences.json"));
  EXPECT_EQ(JsonFilePreferencesStore(file_).string("VelkEditor.hierarchyOrder"), "scene");
}

TEST_F(PreferencesFileTest, ACrashBeforeTheRenameLeavesTheOldFileAndALeftoverThatIsIgnored) {
  {
    JsonFilePreferencesStore store(file_);
    ASSERT_TRUE(store.setBoolean("velkSnapEnabled", true));
  }
  const std::string before = fileText(file_);
  {
    JsonFilePreferencesStore store = interruptedStore(AtomicWriteInterruption::crashBeforeRename);
    EXPECT_FALSE(store.setBoolean("velkSnapEnabled", false));
  }
  EXPECT_EQ(fileText(file_), before);
  EXPECT_EQ(folderEntries().size(), 2u);  // the leftover temporary file

  JsonFilePreferencesStore restarted(file_);
  EXPECT_EQ(restarted.boolean("velkSnapEnabled"), true);
  ASSERT_TRUE(restarted.setBoolean("velkSnapEnabled", false));
  EXPECT_EQ(JsonFilePreferencesStore(file_).boolean("velkSnapEnabled"), false);
}

TEST_F(PreferencesFileTest, ACorruptFileReadsAsEmptyAndIsKeptAsideAtTheFirstChange) {
  for (const std::string corrupt :
       {"{\"VelkEditor.hierarchyOrder\": \"sce", "[1, 2]", "\xff\xfe"}) {
    SCOPED_TRACE(corrupt);
    fs::remove_all(file_.parent_path());
    writeFileText(corrupt);
    JsonFilePreferencesStore store(file_);
    EXPECT_TRUE(store.hasCorruptFile());
    EXPECT_TRUE(store.keys().empty());
    EXPECT_EQ(fileText(file_), corrupt);  // untouched by reading

    ASSERT_TRUE(store.setString("VelkEditor.hierarchyOrder", "scene"));
    EXPECT_FALSE(store.hasCorruptFile());
    EXPECT_EQ(fileText(file_.string() + ".corrupt"), corrupt);
    EXPECT_EQ(JsonFilePreferencesStore(file_).string("VelkEditor.hierarchyOrder"), "scene");
  }
}

TEST_F(PreferencesFileTest, ValuesOfKindsThisEditorDoesNotWriteSurviveARewrite) {
  writeFileText(R"({"count": 12, "list": [1, "a"], "nothing": null, "odd": {"x": 1}, "s": "v"})");
  JsonFilePreferencesStore store(file_);
  EXPECT_FALSE(store.hasCorruptFile());
  ASSERT_TRUE(store.setString("s", "w"));
  const auto values = *JsonFilePreferencesStore::decode(fileText(file_));
  EXPECT_EQ(values.at("count"), PreferenceValue(RawJson{"12"}));
  EXPECT_EQ(values.at("list"), PreferenceValue(RawJson{R"([1,"a"])"}));
  EXPECT_EQ(values.at("nothing"), PreferenceValue(RawJson{"null"}));
  EXPECT_EQ(values.at("odd"), PreferenceValue(RawJson{R"({"x":1})"}));
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

TEST(PreferencesStoreTest, InMemoryStoreFollowsTheSameRules) {
  InMemoryPreferencesStore store;
  ASSERT_TRUE(store.setString("a", "1"));
  ASSERT_TRUE(store.setBoolean("b", true));
  EXPECT_EQ(store.string("a"), "1");
  EXPECT_EQ(store.boolean("a"), std::nullopt);
  ASSERT_TRUE(store.setBoolean("a", false));  // a key may change kind
  EXPECT_EQ(store.string("a"), std::nullopt);
  EXPECT_EQ(store.boolean("a"), false);
  ASSERT_TRUE(store.remove("a"));
  ASSERT_TRUE(store.remove("absent"));
  EXPECT_THAT(store.keys(), ElementsAre("b"));
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
  ::unsetenv("XDG_CONFIG_HOME");
  EXPECT_EQ(JsonFilePreferencesStore::defaultFile(),
            fs::path("/home/someone/.config/velk/preferences.json"));

  savedXdg ? ::setenv("XDG_CONFIG_HOME", xdg.c_str(), 1) : ::unsetenv("XDG_CONFIG_HOME");
  savedHome ? ::setenv("HOME", home.c_str(), 1) : ::unsetenv("HOME");
}

}  // namespace
}  // namespace orvan::editor

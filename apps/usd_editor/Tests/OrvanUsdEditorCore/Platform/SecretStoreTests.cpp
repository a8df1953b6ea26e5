#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>

#include <gtest/gtest.h>

#include "Platform/SecretStore.h"
#include "Support/TemporaryFolder.h"

namespace orvan::editor {
namespace {

namespace fs = std::filesystem;
using testing::fileText;

constexpr const char* kService = "net.velk.editor.session";

mode_t modeOf(const fs::path& path) {
  struct stat info {};
  EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
  return info.st_mode & 0777;
}

// The behaviour every secret store shares, run against each of them.
struct StoreFactory {
  std::string name;
  std::function<std::unique_ptr<SecretStore>(const fs::path& file)> make;
};

class FileSecretStoreTest : public ::testing::Test {
 protected:
  fs::path file() const { return folder_ / "velk" / "secrets.json"; }

  testing::TemporaryFolder folder_;
};

class SecretStoreContractTest : public FileSecretStoreTest,
                                public ::testing::WithParamInterface<StoreFactory> {};

TEST_P(SecretStoreContractTest, SecretsAreFiledByServiceAndAccount) {
  auto store = GetParam().make(file());
  const auto read = [&](std::string_view service, std::string_view account) {
    auto secret = store->readSecret(service, account);
    EXPECT_TRUE(secret) << secret.error().description;
    return secret ? *secret : std::optional<std::string>("<error>");
  };
  EXPECT_EQ(read(kService, "https://a.example"), std::nullopt);
  ASSERT_TRUE(store->writeSecret(kService, "https://a.example", "token-a"));
  ASSERT_TRUE(store->writeSecret(kService, "https://b.example:8443", "token \"b\" ✓"));
  ASSERT_TRUE(store->writeSecret("other.service", "https://a.example", "other"));
  EXPECT_EQ(read(kService, "https://a.example"), "token-a");
  EXPECT_EQ(read(kService, "https://b.example:8443"), "token \"b\" ✓");
  EXPECT_EQ(read("other.service", "https://a.example"), "other");

  ASSERT_TRUE(store->writeSecret(kService, "https://a.example", "token-a2"));
  EXPECT_EQ(read(kService, "https://a.example"), "token-a2");

  ASSERT_TRUE(store->deleteSecret(kService, "https://a.example"));
  ASSERT_TRUE(store->deleteSecret(kService, "https://a.example"));  // absent: fine
  EXPECT_EQ(read(kService, "https://a.example"), std::nullopt);
  EXPECT_EQ(read("other.service", "https://a.example"), "other");

  EXPECT_FALSE(store->writeSecret(kService, "acc", std::string("nul\0byte", 8)));
  EXPECT_FALSE(store->writeSecret(kService, "acc", "\xc3"));
  EXPECT_EQ(read(kService, "acc"), std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(
    AllStores, SecretStoreContractTest,
    ::testing::Values(
        StoreFactory{"InMemory",
                     [](const fs::path&) { return std::make_unique<InMemorySecretStore>(); }},
        StoreFactory{"File",
                     [](const fs::path& file) { return std::make_unique<FileSecretStore>(file); }},
        StoreFactory{"SystemWithoutSecretService",
                     [](const fs::path& file) {
                       return std::make_unique<SystemSecretStore>(SystemSecretStore::Options{
                           .useSecretService = false, .fallbackFile = file});
                     }}),
    [](const auto& info) { return info.param.name; });

TEST_F(FileSecretStoreTest, FallbackFileIsPrivateOutlivesTheStoreAndIsRestrictedAgainIfOpened) {
  {
    SystemSecretStore store(
        SystemSecretStore::Options{.useSecretService = false, .fallbackFile = file()});
    EXPECT_TRUE(store.isUsingFallbackFile());
    ASSERT_TRUE(store.writeSecret(kService, "acc", "token"));
  }
  EXPECT_EQ(modeOf(file()), 0600u);
  EXPECT_EQ(modeOf(file().parent_path()), 0700u);
  ASSERT_EQ(::chmod(file().c_str(), 0644), 0);
  EXPECT_EQ(*FileSecretStore(file()).readSecret(kService, "acc"), "token");
  EXPECT_EQ(modeOf(file()), 0600u);
}

TEST_F(FileSecretStoreTest, AnUnreadableFileFailsReadsAndIsKeptAsideByTheNextWrite) {
  folder_.write("velk/secrets.json", R"({"entries": [{"service": "s"}]})");
  FileSecretStore store(file());
  EXPECT_FALSE(store.readSecret(kService, "acc"));
  ASSERT_TRUE(store.writeSecret(kService, "acc", "fresh"));
  EXPECT_EQ(*store.readSecret(kService, "acc"), "fresh");
  EXPECT_EQ(fileText(file().string() + ".corrupt"), R"({"entries": [{"service": "s"}]})");
}

// With a session bus address that leads nowhere, the first call falls back to the file and
// the store stays there.
TEST_F(FileSecretStoreTest, AnUnreachableBusFallsBackToTheFile) {
  const char* saved = std::getenv("DBUS_SESSION_BUS_ADDRESS");
  const std::string previous = saved ? saved : "";
  const std::string nowhere = "unix:path=" + (folder_ / "no-bus").string();
  ::setenv("DBUS_SESSION_BUS_ADDRESS", nowhere.c_str(), 1);

  SystemSecretStore store(
      SystemSecretStore::Options{.useSecretService = true, .fallbackFile = file()});
  EXPECT_FALSE(store.isUsingFallbackFile());
  ASSERT_TRUE(store.writeSecret(kService, "acc", "token"));
  EXPECT_TRUE(store.isUsingFallbackFile());
  EXPECT_EQ(*FileSecretStore(file()).readSecret(kService, "acc"), "token");
  EXPECT_EQ(*store.readSecret(kService, "acc"), "token");

  saved ? ::setenv("DBUS_SESSION_BUS_ADDRESS", previous.c_str(), 1)
        : ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
}

TEST(SecretStoreDefaultsTest, FallbackFileFollowsTheXdgDataFolder) {
  const char* saved = std::getenv("XDG_DATA_HOME");
  const std::string previous = saved ? saved : "";
  ::setenv("XDG_DATA_HOME", "/xdg/data", 1);
  EXPECT_EQ(FileSecretStore::defaultFile(), fs::path("/xdg/data/velk/secrets.json"));
  saved ? ::setenv("XDG_DATA_HOME", previous.c_str(), 1) : ::unsetenv("XDG_DATA_HOME");
}

}  // namespace
}  // namespace orvan::editor

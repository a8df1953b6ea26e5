#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <thread>

#include <gtest/gtest.h>

#include "Platform/SecretStore.h"
#include "Platform/Subprocess.h"
#include "Support/TemporaryFolder.h"

// From GLib, which the secret store links; declared here so the test needs none of its headers.
extern "C" int g_main_context_iteration(void* context, int mayBlock);

namespace orvan::editor {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr const char* kBusDaemon = "/usr/bin/dbus-daemon";

// A private session bus on which nobody owns the Secret Service name: the usual state of a
// headless machine that does run D-Bus. Then the bus goes away under the store.
TEST(SecretStoreBusTest, ABusWithoutASecretServiceFallsBackAndItsEndLeavesUsRunning) {
  if (!Subprocess::isExecutableFile(kBusDaemon))
    GTEST_SKIP() << "no dbus-daemon on this machine";
  const testing::TemporaryFolder folder;

  std::promise<std::string> address;
  bool answered = false;
  ProcessLaunchOptions options;
  options.executablePath = kBusDaemon;
  options.arguments = {"--session", "--nofork", "--print-address=1",
                       "--address=unix:path=" + (folder / "bus").string()};
  options.standardOutput = OutputStreamOptions::inLines([&](OutputLine line) {
    if (!std::exchange(answered, true))
      address.set_value(line.text);
  });
  options.standardError = OutputStreamOptions::discarded();
  auto bus = Subprocess::launch(std::move(options));
  ASSERT_TRUE(bus) << bus.error().description;
  auto addressFuture = address.get_future();
  ASSERT_EQ(addressFuture.wait_for(20s), std::future_status::ready);

  const char* saved = std::getenv("DBUS_SESSION_BUS_ADDRESS");
  const std::string previous = saved ? saved : "";
  ::setenv("DBUS_SESSION_BUS_ADDRESS", addressFuture.get().c_str(), 1);

  const fs::path file = folder / "velk" / "secrets.json";
  SystemSecretStore store(
      SystemSecretStore::Options{.useSecretService = true, .fallbackFile = file});
  const Status written = store.writeSecret("net.velk.editor.session", "https://a.example", "t");
  EXPECT_TRUE(written) << written.error().description;
  EXPECT_TRUE(store.isUsingFallbackFile());
  EXPECT_EQ(*FileSecretStore(file).readSecret("net.velk.editor.session", "https://a.example"), "t");

  saved ? ::setenv("DBUS_SESSION_BUS_ADDRESS", previous.c_str(), 1)
        : ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
  (*bus)->terminate(100ms);
  (*bus)->waitForExit();
  // The desktop's event loop (which Qt runs on this platform) is where the connection learns that
  // the bus is gone; turn it for a while, as the editor would, and still be here afterwards.
  const auto until = std::chrono::steady_clock::now() + 2s;
  while (std::chrono::steady_clock::now() < until) {
    while (g_main_context_iteration(nullptr, 0) != 0) {
    }
    std::this_thread::sleep_for(10ms);
  }
}

}  // namespace
}  // namespace orvan::editor

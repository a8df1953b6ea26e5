// Single-instance link forwarding over a real local socket, with both ends in this process: the
// "later launch" forwards from another thread while this thread runs the editor's event loop.
#include <gtest/gtest.h>

#include <unistd.h>

#include <QLocalSocket>

#include <atomic>
#include <future>

#include "App/IncomingURLQueue.h"
#include "App/SingleInstance.h"
#include "QtApplicationEnvironment.h"

namespace orvan::ui {
namespace {

using testing::processEventsUntil;

QString uniqueName(const char* what) {
  static std::atomic<int> counter{0};
  return QStringLiteral("orvan-test-%1-%2-%3").arg(what).arg(::getpid()).arg(counter++);
}

bool forwardWhileServing(const QString& name, const QString& url) {
  auto forwarded =
      std::async(std::launch::async, [=] { return forwardURLToRunningEditor(name, url); });
  processEventsUntil(
      [&] { return forwarded.wait_for(std::chrono::seconds(0)) == std::future_status::ready; },
      10000);
  return forwarded.get();
}

TEST(SingleInstanceTest, WithoutARunningEditorForwardingFailsSoTheLaunchOpensItself) {
  testing::testApplication();
  EXPECT_FALSE(forwardURLToRunningEditor(uniqueName("nobody"), "velk://open", 500));
}

// The application tests forward a link to a running editor; here the server keeps its name and
// survives a connection that sends more than a link.
TEST(SingleInstanceTest, TheFirstEditorKeepsItsNameAndSurvivesAnOversizedLine) {
  testing::testApplication();
  const QString name = uniqueName("oversized");
  QStringList received;
  URLForwardingServer server(name, [&](QString url) { received << url; });
  ASSERT_EQ(server.listen(), URLForwardingServer::ListenResult::listening);
  URLForwardingServer second(name, [](QString) {});
  EXPECT_EQ(second.listen(), URLForwardingServer::ListenResult::anotherEditorIsRunning);

  QLocalSocket flood;
  flood.connectToServer(name);
  ASSERT_TRUE(flood.waitForConnected(2000));
  flood.write(QByteArray(URLForwardingServer::kMaximumLineBytes + 1024, 'x'));
  EXPECT_TRUE(processEventsUntil(
      [&] {
        if (flood.state() == QLocalSocket::ConnectedState)
          flood.waitForBytesWritten(10);
        return flood.state() == QLocalSocket::UnconnectedState;
      },
      5000))
      << "the flooding connection is closed";
  EXPECT_TRUE(received.isEmpty());

  EXPECT_TRUE(forwardWhileServing(name, "velk://open"));
  EXPECT_EQ(received, QStringList{"velk://open"});
}

TEST(IncomingURLQueueTest, KeepsLinksInOrderAndRecognisesBothSchemes) {
  EXPECT_TRUE(isEditorURL("velk://open"));
  EXPECT_TRUE(isEditorURL("ORVAN://open"));
  EXPECT_FALSE(isEditorURL("https://velk.example/editor"));
  EXPECT_FALSE(isEditorURL("--scene"));
  EXPECT_EQ(loggableURL("velk://auth-callback?code=secret"), "velk://auth-callback")
      << "a sign-in code never reaches the log";

  IncomingURLQueue queue;
  queue.push("velk://a", "test");
  queue.push("velk://b", "test");
  EXPECT_EQ(queue.takeAll(), (std::vector<std::string>{"velk://a", "velk://b"}));
  EXPECT_TRUE(queue.pending().empty());

  // Once routed, the kept links go first, then each new one at once.
  queue.push("velk://c", "test");
  std::vector<std::string> routed;
  queue.route([&](const std::string& url) { routed.push_back(url); });
  queue.push("velk://d", "test");
  EXPECT_EQ(routed, (std::vector<std::string>{"velk://c", "velk://d"}));
  EXPECT_TRUE(queue.pending().empty());
}

}  // namespace
}  // namespace orvan::ui

#include <signal.h>

#include <cstdlib>
#include <sstream>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Authoring/PersistentEditClient.h"
#include "Foundation/ThreadPool.h"
#include "Platform/PosixProcessLauncher.h"
#include "Support/Eventually.h"
#include "Support/TemporaryFolder.h"

namespace orvan::editor {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using testing::eventually;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class PersistentEditClientTest : public ::testing::Test {
 protected:
  // The fake helper takes its behaviour from the scene and keeps a journal at the client id.
  std::shared_ptr<PersistentEditClient> client(std::string behaviour, std::string token = "",
                                               std::string workspace = "", std::string layer = "") {
    return std::make_shared<PersistentEditClient>(
        launcher, PersistentEditClientSettings{.executablePath = ORVAN_FAKE_EDIT_CLIENT_PATH,
                                               .address = "grpc://127.0.0.1:1",
                                               .author = "Ada Lovelace",
                                               .clientId = journal.string(),
                                               .scene = std::move(behaviour),
                                               .workspace = std::move(workspace),
                                               .activeLayer = std::move(layer),
                                               .authorizationToken = std::move(token)});
  }
  std::vector<std::string> journalLines() const {
    std::vector<std::string> lines;
    std::istringstream in(testing::fileText(journal));
    for (std::string line; std::getline(in, line);)
      lines.push_back(line);
    return lines;
  }
  int launches() const {
    int count = 0;
    for (const std::string& line : journalLines())
      count += line.rfind("launch", 0) == 0 ? 1 : 0;
    return count;
  }

  PosixProcessLauncher launcher;
  testing::TemporaryFolder folder;
  std::filesystem::path journal = folder / "journal";
};

TEST_F(PersistentEditClientTest, StartsWithItsArgumentsShakesHandsAndAnswersLineByLine) {
  auto edit = client("answer", "", "", "anim.usda");
  const Result<std::string> first = edit->submit("prims\t4\t1\tdelete\t/World/A", false);
  ASSERT_TRUE(first.ok()) << first.error().description;
  EXPECT_EQ(*first, R"({"accepted":true,"revision":1,"message":"ok prims"})");
  const Result<std::string> second = edit->submit("history\t5\tundo", false);
  ASSERT_TRUE(second.ok());
  EXPECT_EQ(*second, R"({"accepted":true,"revision":2,"message":"ok history"})");
  EXPECT_THAT(journalLines(),
              ElementsAre("launch --stdio --author Ada Lovelace --client-id " + journal.string() +
                              " --scene answer --workspace main --active-layer anim.usda "
                              "grpc://127.0.0.1:1",
                          "ping", "prims\t4\t1\tdelete\t/World/A", "history\t5\tundo"));
  EXPECT_EQ(launches(), 1) << "one helper serves every command";

  edit.reset();  // a graceful goodbye
  EXPECT_TRUE(eventually([&] { return journalLines().back() == "quit"; }));
}

TEST_F(PersistentEditClientTest, TheTokenTravelsOnlyInTheEnvironment) {
  auto edit = client("env", "secret-token", "feature");
  const Result<std::string> answer = edit->submit("history\t1\tundo", false);
  ASSERT_TRUE(answer.ok());
  EXPECT_THAT(*answer, HasSubstr(R"("message":"secret-token")"));
  EXPECT_THAT(journalLines().front(), ::testing::Not(HasSubstr("secret-token")));
  EXPECT_THAT(journalLines().front(), HasSubstr("--workspace feature grpc"));
  EXPECT_THAT(journalLines().front(), ::testing::Not(HasSubstr("--active-layer")));

  ::unsetenv("ORVAN_AUTH_TOKEN");
  auto untokened = client("env");
  EXPECT_THAT(untokened->submit("history\t1\tundo", false).value(),
              HasSubstr(R"("message":"<unset>")"))
      << "an empty token sets no variable at all";
}

TEST_F(PersistentEditClientTest, HandshakeToleratesAnOlderHelperAndRefusesANegativeOne) {
  const Result<std::string> older = client("old-build")->submit("history\t1\tundo", false);
  ASSERT_TRUE(older.ok()) << older.error().description;

  const Result<std::string> refused = client("refuse-ping")->submit("history\t1\tundo", true);
  ASSERT_FALSE(refused.ok());
  EXPECT_EQ(refused.error().code, kEditClientStopped) << "submit's failures carry code 3";
  EXPECT_EQ(refused.error().description, "not signed in");

  const Result<std::string> blank = client("refuse-ping-blank")->submit("history\t1\tundo", false);
  ASSERT_FALSE(blank.ok());
  EXPECT_EQ(blank.error().description, "The live edit connection is not ready");
}

TEST_F(PersistentEditClientTest, AHelperThatExitsAtStartIsTriedOnceMoreForRetryableCommands) {
  const Result<std::string> once = client("exit-at-start")->submit("history\t1\tundo", false);
  ASSERT_FALSE(once.ok());
  EXPECT_EQ(launches(), 1);
  EXPECT_EQ(once.error().domain, Error::kEditorDomain);
  EXPECT_EQ(once.error().code, kEditClientStopped);
  EXPECT_THAT(once.error().description, HasSubstr(" (helper exit status 3): fatal: no session"));

  const Result<std::string> twice =
      client("exit-at-start")->submit("usd-property\t1\treset\t/A\tx", true);
  ASSERT_FALSE(twice.ok());
  EXPECT_EQ(launches(), 3) << "one retry on a fresh helper";
}

TEST_F(PersistentEditClientTest, AHelperDyingMidCommandIsRetriedWithTheSameCommand) {
  auto edit = client("die-first-launch:10");
  const Result<std::string> answer = edit->submit("component\t3\tset\t/A\tLight\tk\t1", true);
  ASSERT_TRUE(answer.ok()) << answer.error().description;
  const std::vector<std::string> lines = journalLines();
  EXPECT_EQ(launches(), 2);
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "component\t3\tset\t/A\tLight\tk\t1"), 2);
}

TEST_F(PersistentEditClientTest, AFailureShowsTheExitStatusAndTheLast600CharactersOfStandardError) {
  const Result<std::string> failed =
      client("die-on-command:1000")->submit("history\t1\tundo", false);
  ASSERT_FALSE(failed.ok());
  const std::string& text = failed.error().description;
  EXPECT_THAT(text, StartsWith("The edit helper stopped before confirming the change (helper exit "
                               "status 5): "));
  EXPECT_THAT(text, EndsWith(": " + std::string(599, 'e') + "E"));
  EXPECT_EQ(text.size(), text.find("): ") + 3 + 600);

  // A flood of standard error before dying costs bounded memory and still ends the same way.
  const Result<std::string> flooded =
      client("die-on-command:8000000")->submit("history\t1\tundo", false);
  ASSERT_FALSE(flooded.ok());
  EXPECT_THAT(flooded.error().description,
              EndsWith("(helper exit status 5): " + std::string(599, 'e') + "E"));
}

TEST_F(PersistentEditClientTest, AHungHelperHoldsOnlyItsCallerAndShutdownEndsIt) {
  auto edit = client("hang");
  std::optional<Result<std::string>> answer;
  std::thread caller([&] { answer = edit->submit("history\t1\tundo", false); });
  ASSERT_TRUE(eventually([&] { return journalLines().size() == 3; }));
  EXPECT_FALSE(answer.has_value()) << "no read time-out: the caller waits";
  edit->terminateForShutdown();
  caller.join();
  ASSERT_TRUE(answer.has_value());
  ASSERT_FALSE(answer->ok());
  EXPECT_THAT(answer->error().description,
              StartsWith("The edit helper stopped before confirming the change (helper exit "
                         "status 15)"));
}

TEST_F(PersistentEditClientTest, ARepliesBeyondOneMebibyteWithoutLineFeedFails) {
  const Result<std::string> oversized =
      client("oversized:1048577")->submit("history\t1\tundo", false);
  ASSERT_FALSE(oversized.ok());
  EXPECT_THAT(oversized.error().description,
              StartsWith("The edit helper returned an invalid oversized response"));

  const Result<std::string> atLimit =
      client("oversized:1048576")->submit("history\t1\tundo", false);
  ASSERT_FALSE(atLimit.ok());
  EXPECT_THAT(atLimit.error().description,
              StartsWith("The edit helper stopped before confirming the change"))
      << "exactly the limit keeps reading until the helper ends";

  const Result<std::string> cut = client("partial-then-eof")->submit("history\t1\tundo", false);
  ASSERT_FALSE(cut.ok());
  EXPECT_THAT(cut.error().description,
              StartsWith("The edit helper stopped before confirming the change"))
      << "a reply that ends without its line feed is not returned";
}

TEST_F(PersistentEditClientTest, TwoLinesInOneReadAreReturnedOneAtATime) {
  auto edit = client("two-lines");
  EXPECT_THAT(edit->submit("history\t1\tundo", false).value(), HasSubstr("first"));
  EXPECT_THAT(edit->submit("history\t2\tundo", false).value(), HasSubstr("second"));
}

TEST_F(PersistentEditClientTest, AReplyThatIsNotJsonIsTheCallersProblemAndKeepsTheHelper) {
  auto edit = client("not-json");
  EXPECT_EQ(edit->submit("history\t1\tundo", false).value(), "hello");
  const int helper = edit->helperProcessId();
  EXPECT_EQ(edit->submit("history\t2\tundo", false).value(), "hello");
  EXPECT_EQ(edit->helperProcessId(), helper);
}

TEST_F(PersistentEditClientTest, AHelperThatDiedWhileIdleIsReplacedWithoutARetry) {
  auto edit = client("answer");
  ASSERT_TRUE(edit->submit("history\t1\tundo", false).ok());
  ASSERT_EQ(::kill(edit->helperProcessId(), SIGKILL), 0);
  ASSERT_TRUE(eventually([&] { return !edit->hasRunningHelper(); }));
  const Result<std::string> answer = edit->submit("history\t2\tundo", false);
  ASSERT_TRUE(answer.ok()) << answer.error().description;
  EXPECT_EQ(launches(), 2);
}

TEST_F(PersistentEditClientTest, MissingHelperAndInvalidCommandFailCleanly) {
  PersistentEditClientSettings settings;
  settings.executablePath = (folder / "absent").string();
  auto missing = std::make_shared<PersistentEditClient>(launcher, settings);
  const Result<std::string> failed = missing->submit("history\t1\tundo", true);
  ASSERT_FALSE(failed.ok());
  EXPECT_EQ(failed.error().code, kEditClientStopped);
  EXPECT_THAT(failed.error().description, HasSubstr("absent"));

  const Result<std::string> invalid = client("answer")->submit("bad \xff byte", true);
  ASSERT_FALSE(invalid.ok());
  EXPECT_EQ(invalid.error().code, kEditClientCommandNotEncodable);
  EXPECT_EQ(invalid.error().description, "Edit command could not be encoded");
  EXPECT_EQ(launches(), 0) << "nothing is started for a command that cannot be sent";
}

TEST_F(PersistentEditClientTest, PrewarmStartsAndRetireQuitsInTheBackground) {
  ThreadPool pool(2);
  auto edit = client("answer");
  edit->prewarm(pool);
  ASSERT_TRUE(eventually([&] { return journalLines().size() == 2; }));
  EXPECT_EQ(journalLines().back(), "ping");
  ASSERT_TRUE(edit->submit("history\t1\tundo", false).ok());
  EXPECT_EQ(launches(), 1) << "the warm helper takes the first edit";

  PersistentEditClient::retire(std::move(edit), pool);
  EXPECT_TRUE(eventually([&] { return journalLines().back() == "quit"; }));
}

}  // namespace
}  // namespace orvan::editor

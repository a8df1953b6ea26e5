#include <signal.h>
#include <sys/stat.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Platform/PosixProcessLauncher.h"
#include "Platform/Subprocess.h"
#include "Support/Eventually.h"
#include "Support/TemporaryFolder.h"

namespace orvan::editor {

void PrintTo(const ExitStatus& status, std::ostream* out) {
  *out << status.describe();
}
void PrintTo(const OutputLine& line, std::ostream* out) {
  *out << '"' << line.text.substr(0, 40) << (line.text.size() > 40 ? "...\"" : "\"")
       << (line.truncated ? " truncated" : "") << (line.endedAtEndOfStream ? " at end" : "");
}

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using namespace std::chrono_literals;
using testing::eventually;

ProcessLaunchOptions program(std::string path, std::vector<std::string> arguments = {}) {
  ProcessLaunchOptions options;
  options.executablePath = std::move(path);
  options.arguments = std::move(arguments);
  return options;
}

ProcessLaunchOptions fakeHelper(std::vector<std::string> arguments) {
  return program(ORVAN_FAKE_HELPER_PATH, std::move(arguments));
}

std::unique_ptr<Subprocess> launchOrFail(ProcessLaunchOptions options) {
  auto launched = Subprocess::launch(std::move(options));
  if (!launched)
    ADD_FAILURE() << launched.error().description;
  return launched ? std::move(*launched) : nullptr;
}

ProcessOutput runOrFail(ProcessLaunchOptions options) {
  auto result = Subprocess::runToCompletion(std::move(options));
  if (!result)
    ADD_FAILURE() << result.error().description;
  return result ? std::move(*result) : ProcessOutput{};
}

// Lines delivered on the monitor thread, collected for the test thread.
class LineCollector {
 public:
  OutputLineHandler handler() {
    return [this](OutputLine line) {
      std::lock_guard lock(mutex_);
      lines_.push_back(std::move(line));
      changed_.notify_all();
    };
  }
  bool waitForCount(std::size_t count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, 20s, [&] { return lines_.size() >= count; });
  }
  std::vector<OutputLine> lines() {
    std::lock_guard lock(mutex_);
    return lines_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<OutputLine> lines_;
};

OutputLine line(std::string text, bool truncated = false, bool endedAtEnd = false) {
  return OutputLine{std::move(text), truncated, endedAtEnd};
}

std::size_t countOpenDescriptors() {
  const std::filesystem::directory_iterator entries("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

TEST(SubprocessOutputTest, FloodOnBothStreamsNeitherHangsNorLosesTheExitStatus) {
  const std::size_t bytes = 3 * 1024 * 1024 / 2;
  const ProcessOutput output =
      runOrFail(fakeHelper({"flood", std::to_string(bytes), std::to_string(bytes), "1"}));
  EXPECT_EQ(output.exitStatus, ExitStatus::exited(1));
  EXPECT_EQ(output.standardOutput.size(), bytes);
  EXPECT_EQ(output.standardError.size(), bytes);
  EXPECT_EQ(output.standardError.find_first_not_of('e'), std::string::npos);
  EXPECT_FALSE(output.standardErrorTruncated);

  // Beyond its limit a capture keeps the newest bytes: a failing helper's last words.
  auto limited = fakeHelper({"oversized-line", "100000"});
  limited.standardOutput.captureLimitBytes = 60000;
  const ProcessOutput cut = runOrFail(limited);
  EXPECT_EQ(cut.standardOutput.size(), 60000u);
  EXPECT_EQ(cut.standardOutput.substr(59990), "xxx\nafter\n");
  EXPECT_TRUE(cut.standardOutputTruncated);
  EXPECT_FALSE(cut.standardErrorTruncated);
}

// Pulled output is read in pieces of at most the size asked for, while the monitor keeps taking
// standard error so that the child never blocks on it.
TEST(SubprocessOutputTest, PulledStdoutReadsInPiecesWhileStderrFloods) {
  auto options = fakeHelper({"flood", "10", std::to_string(2 * 1024 * 1024), "1"});
  options.standardOutput = OutputStreamOptions::pulled();
  auto process = launchOrFail(std::move(options));
  ASSERT_TRUE(process);
  std::string out;
  while (true) {
    auto chunk = process->readStdout(3);
    ASSERT_TRUE(chunk) << chunk.error().description;
    EXPECT_LE(chunk->size(), 3u);
    if (chunk->empty())
      break;
    out += *chunk;
  }
  EXPECT_EQ(out, std::string(10, 'o'));
  EXPECT_EQ(process->waitForExit(), ExitStatus::exited(1));
  EXPECT_EQ(process->capturedStderr().size(), 2u * 1024 * 1024);
}

// Arguments, environment, directory and signal dispositions are the child's own: an addition
// replaces the parent's variable, others are inherited, and a relative executable path is the
// editor's rather than the child's directory's.
TEST(SubprocessEnvironmentTest, TheChildStartsAsConfigured) {
  EXPECT_EQ(runOrFail(fakeHelper({"print-args", "--scene", "a b.usda", ""})).standardOutput,
            "[--scene]\n[a b.usda]\n[]\n");

  ::setenv("ORVAN_SUBPROCESS_TEST_REPLACED", "parent", 1);
  ::setenv("ORVAN_SUBPROCESS_TEST_INHERITED", "inherited", 1);
  auto environment =
      fakeHelper({"print-env", "ORVAN_SUBPROCESS_TEST_REPLACED", "ORVAN_SUBPROCESS_TEST_INHERITED",
                  "ORVAN_SUBPROCESS_TEST_ABSENT"});
  environment.environment = {{"ORVAN_SUBPROCESS_TEST_REPLACED", "child"}};
  EXPECT_EQ(runOrFail(environment).standardOutput, "child\ninherited\n<unset>\n");
  ::unsetenv("ORVAN_SUBPROCESS_TEST_REPLACED");
  ::unsetenv("ORVAN_SUBPROCESS_TEST_INHERITED");

  const auto previous = ::signal(SIGPIPE, SIG_IGN);
  EXPECT_EQ(runOrFail(fakeHelper({"sigpipe-disposition"})).standardOutput, "default\n");
  ::signal(SIGPIPE, previous);

  auto options = fakeHelper({"pwd"});
  options.workingDirectory = "/";
  EXPECT_EQ(runOrFail(options).standardOutput, "/\n");
  options.executablePath = std::filesystem::relative(ORVAN_FAKE_HELPER_PATH).string();
  ASSERT_NE(options.executablePath.front(), '/');
  EXPECT_EQ(runOrFail(options).standardOutput, "/\n");
}

// Dropping the handle right after the wait must not cut onExit off, and the final line without a
// line feed is flagged.
TEST(SubprocessLineTest, LinesSplitAcrossWritesArriveWholeAndTheTailAtEndOfFile) {
  LineCollector collector;
  std::optional<ExitStatus> exitSeen;
  auto options = fakeHelper({"partial-writes"});
  options.standardOutput = OutputStreamOptions::inLines(collector.handler());
  options.onExit = [&](ExitStatus status) {
    EXPECT_EQ(collector.lines().size(), 3u) << "every line arrives before the exit";
    exitSeen = status;
  };
  auto process = launchOrFail(std::move(options));
  ASSERT_TRUE(process);
  EXPECT_EQ(process->waitForExit(), ExitStatus::exited(0));
  process.reset();
  EXPECT_THAT(collector.lines(),
              ElementsAre(line("alpha"), line("beta"), line("gamma", false, true)));
  EXPECT_EQ(exitSeen, ExitStatus::exited(0));
}

TEST(SubprocessLineTest, LinesBeyondTheLimitAreCutAndFlagged) {
  for (const std::size_t length : {std::size_t{300000}, std::size_t{1000}}) {
    SCOPED_TRACE(length);
    LineCollector collector;
    auto options = fakeHelper({"oversized-line", std::to_string(length)});
    options.standardOutput = OutputStreamOptions::inLines(collector.handler(), 1000);
    launchOrFail(std::move(options))->waitForExit();
    ASSERT_TRUE(collector.waitForCount(2));
    EXPECT_THAT(collector.lines(),
                ElementsAre(line(std::string(1000, 'x'), length > 1000), line("after")));
  }
}

TEST(SubprocessStdinTest, WrittenLinesComeBackAndClosingInputEndsTheChild) {
  LineCollector collector;
  auto options = fakeHelper({"stdin-echo"});
  options.standardOutput = OutputStreamOptions::inLines(collector.handler());
  auto process = launchOrFail(std::move(options));
  ASSERT_TRUE(process);
  ASSERT_TRUE(process->writeStdin("ping\n"));
  ASSERT_TRUE(collector.waitForCount(1));
  ASSERT_TRUE(process->writeStdin(std::string(200000, 'z') + "\nlast"));
  process->closeStdin();
  EXPECT_EQ(process->waitForExit(), ExitStatus::exited(0));
  EXPECT_THAT(collector.lines(),
              ElementsAre(line("ping"), line(std::string(200000, 'z')), line("last", false, true)));
  EXPECT_FALSE(process->writeStdin("more"));
}

// Null-device input is never left open: a child that reads it to the end finishes without anyone
// closing anything, and there is nothing to write to. Writing to a child that is gone is an error,
// not a signal: SIGPIPE keeps its default action here, so one raised would end the test run.
TEST(SubprocessStdinTest, WritesWithoutAReaderFailWithoutASignal) {
  auto options = fakeHelper({"stdin-echo"});
  options.standardInput = ProcessLaunchOptions::StandardInput::nullDevice;
  auto process = launchOrFail(std::move(options));
  ASSERT_TRUE(process);
  EXPECT_EQ(process->waitForExit(), ExitStatus::exited(0));
  EXPECT_EQ(process->capturedStdout(), "");
  EXPECT_FALSE(process->writeStdin("ignored"));

  process = launchOrFail(fakeHelper({"exit", "0"}));
  ASSERT_TRUE(process);
  process->waitForExit();
  const Status written = process->writeStdin(std::string(1024 * 1024, 'a'));
  ASSERT_FALSE(written);
  EXPECT_EQ(written.error().code, EPIPE);
  sigset_t pending;
  sigpending(&pending);
  EXPECT_FALSE(sigismember(&pending, SIGPIPE));
}

TEST(SubprocessExitTest, ExitCodesAndSignalsAreTold) {
  const ProcessOutput nine = runOrFail(fakeHelper({"exit", "9", "went wrong"}));
  EXPECT_EQ(nine.exitStatus, ExitStatus::exited(9));
  EXPECT_EQ(nine.standardError, "went wrong");
  EXPECT_EQ(nine.exitStatus.describe(), "exit code 9");

  const ProcessOutput killed = runOrFail(fakeHelper({"raise", std::to_string(SIGKILL)}));
  EXPECT_TRUE(killed.exitStatus.wasSignalled());
  EXPECT_EQ(killed.exitStatus.describe(), "killed by signal 9 (SIGKILL)");
}

TEST(SubprocessTerminateTest, SleepingChildEndsBySigtermOrSigkillWhenItIgnoresIt) {
  for (const bool ignoresTerm : {false, true}) {
    LineCollector collector;
    auto options = fakeHelper(ignoresTerm ? std::vector<std::string>{"sleep-forever", "ignore-term"}
                                          : std::vector<std::string>{"sleep-forever"});
    options.standardOutput = OutputStreamOptions::inLines(collector.handler());
    auto process = launchOrFail(std::move(options));
    ASSERT_TRUE(process);
    ASSERT_TRUE(collector.waitForCount(1));  // its handler is installed
    EXPECT_TRUE(process->isRunning());
    EXPECT_EQ(process->exitStatus(), std::nullopt);
    process->terminate(100ms);
    EXPECT_EQ(process->waitForExit(), ExitStatus::signalled(ignoresTerm ? SIGKILL : SIGTERM));
    EXPECT_FALSE(process->isRunning());
  }
}

TEST(SubprocessTerminateTest, DroppingARunningHandleLeavesNoZombieAndNoDescriptor) {
  const std::size_t descriptorsBefore = countOpenDescriptors();
  std::atomic<int> exits = 0;
  auto options = fakeHelper({"sleep-forever"});
  options.onExit = [&](ExitStatus) { ++exits; };
  auto process = launchOrFail(std::move(options));
  ASSERT_TRUE(process);
  const int pid = process->processId();
  process.reset();
  // A reaped process no longer exists; a zombie still does.
  EXPECT_TRUE(eventually([&] { return ::kill(pid, 0) != 0 && errno == ESRCH; }));
  // The monitor lets go of its descriptors once it has reaped the child.
  EXPECT_TRUE(eventually([&] { return countOpenDescriptors() == descriptorsBefore; }));
  EXPECT_EQ(exits, 0);  // no callback after the handle is gone
}

// Through the launcher port, as the editor launches its helpers.
TEST(SubprocessLaunchTest, UnlaunchableFilesGiveClearErrors) {
  const testing::TemporaryFolder directory;
  const auto plain = directory.write("plain.txt", "#!/bin/sh\necho hi\n");
  ::chmod(plain.c_str(), 0644);
  PosixProcessLauncher launcher;

  struct Case {
    std::string path;
    std::string reason;
  };
  for (const Case& c :
       {Case{(directory / "missing").string(), "no such file"},
        Case{plain.string(), "not executable"},
        Case{directory.path().string(), "not a regular file"}, Case{"", "no executable"}}) {
    SCOPED_TRACE(c.path);
    EXPECT_FALSE(launcher.isExecutableFile(c.path));
    auto launched = launcher.launch(program(c.path));
    ASSERT_FALSE(launched);
    EXPECT_EQ(launched.error().domain, Error::kEditorDomain);
    EXPECT_EQ(launched.error().code, ProcessLauncher::kLaunchFailedCode);
    EXPECT_THAT(launched.error().description, HasSubstr(c.reason));
    EXPECT_THAT(launched.error().description, HasSubstr(c.path));
  }
  EXPECT_TRUE(launcher.isExecutableFile(ORVAN_FAKE_HELPER_PATH));

  auto badName = fakeHelper({"exit", "0"});
  badName.environment = {{"A=B", "c"}};
  EXPECT_FALSE(Subprocess::launch(badName));
}

TEST(SubprocessDescriptorTest, NothingLeaksIntoTheChildOrStaysOpenAfterwards) {
  // Only the three standard streams reach the child.
  EXPECT_EQ(runOrFail(fakeHelper({"list-fds"})).standardOutput, "0\n1\n2\n");

  const std::size_t before = countOpenDescriptors();
  runOrFail(fakeHelper({"flood", "70000", "70000", "2"}));
  EXPECT_FALSE(Subprocess::launch(program("/nonexistent")));
  for (const char* mode : {"stdin-echo", "sleep-forever"}) {
    auto options = fakeHelper({mode});
    options.standardOutput = OutputStreamOptions::pulled();
    auto process = launchOrFail(std::move(options));
    ASSERT_TRUE(process);
    process->terminate(10ms);
    process->waitForExit();
  }
  EXPECT_EQ(countOpenDescriptors(), before);
}

}  // namespace
}  // namespace orvan::editor

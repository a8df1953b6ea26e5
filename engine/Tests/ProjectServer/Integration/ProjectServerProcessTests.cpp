// The orvan_project_server executable as tools start it: it says where it listens, serves, and
// stops cleanly on SIGTERM.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <string>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <httplib.h>

#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/records/HostedProjectRecords.h"

extern char** environ;

namespace orvan::engine {
namespace {

const std::string kServer = ORVAN_ENGINE_BIN_DIR "/orvan_project_server";

// A server process with its standard output on a pipe; killed if a test ends without stopping it.
class ServerProcess {
 public:
  explicit ServerProcess(std::vector<std::string> arguments) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0)
      return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    arguments.insert(arguments.begin(), kServer);
    std::vector<char*> argv;
    for (std::string& argument : arguments)
      argv.push_back(argument.data());
    argv.push_back(nullptr);
    if (::posix_spawn(&pid_, kServer.c_str(), &actions, nullptr, argv.data(), environ) != 0)
      pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    ::close(fds[1]);
    out_ = fds[0];
  }
  ~ServerProcess() {
    if (pid_ > 0) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
    }
    if (out_ >= 0)
      ::close(out_);
  }

  // The first line of standard output, waiting at most 30 seconds for it.
  std::string firstLine() {
    std::string line;
    char c = 0;
    pollfd ready{.fd = out_, .events = POLLIN, .revents = 0};
    while (::poll(&ready, 1, 30000) == 1 && ::read(out_, &c, 1) == 1 && c != '\n')
      line += c;
    return line;
  }

  // Sends `signal` and gives the exit status, or -1 when the process did not exit normally.
  int stopWith(int signal) {
    ::kill(pid_, signal);
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t pid_ = -1;
  int out_ = -1;
};

TEST(ProjectServerProcessTest, SaysWhereItListensServesTheDemoAndStopsOnSigterm) {
  ServerProcess server({"--project", ORVAN_DEMO_DIR, "--port", "0"});
  const std::string line = server.firstLine();
  const std::string prefix = "listening on http://127.0.0.1:";
  ASSERT_EQ(line.substr(0, prefix.size()), prefix) << line;
  const int port = std::stoi(line.substr(prefix.size()));
  ASSERT_GT(port, 0);

  httplib::Client client("127.0.0.1", port);
  const auto answer = client.Get("/api/projects");
  ASSERT_TRUE(answer);
  ASSERT_EQ(answer->status, 200);
  const auto catalogue = editor::decodeJson<editor::HostedProjectsResponse>(answer->body);
  ASSERT_TRUE(catalogue.ok()) << catalogue.error().description;
  ASSERT_EQ(catalogue->projects.size(), 1u);
  EXPECT_EQ(catalogue->projects[0].id, "hello-world");
  EXPECT_EQ(catalogue->projects[0].name, "Hello World");
  EXPECT_EQ(catalogue->projects[0].scene, std::string(ORVAN_DEMO_DIR) + "/hello_world.usda");

  EXPECT_EQ(server.stopWith(SIGTERM), 0);
}

TEST(ProjectServerProcessTest, AWrongCommandLineExits2AndAMissingProjectExits1) {
  const auto run = [](const std::string& arguments) {
    const std::string command = kServer + " " + arguments + " 2>&1";
    FILE* pipe = ::popen(command.c_str(), "r");
    std::string out;
    char buffer[4096];
    for (std::size_t n; pipe && (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
      out.append(buffer, n);
    const int status = pipe ? ::pclose(pipe) : -1;
    return std::pair(WIFEXITED(status) ? WEXITSTATUS(status) : -1, out);
  };
  const auto [usageStatus, usage] = run("--port 1");
  EXPECT_EQ(usageStatus, 2);
  EXPECT_NE(usage.find("usage: orvan_project_server --project DIR"), std::string::npos) << usage;

  const auto [missingStatus, missing] = run("--project /nonexistent/orvan-project --port 0");
  EXPECT_EQ(missingStatus, 1);
  EXPECT_NE(missing.find("/nonexistent/orvan-project does not exist"), std::string::npos)
      << missing;
  EXPECT_EQ(missing.find("listening"), std::string::npos);
}

}  // namespace
}  // namespace orvan::engine

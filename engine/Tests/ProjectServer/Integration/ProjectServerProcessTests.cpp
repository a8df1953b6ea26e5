// The orvan_project_server executable as tools start it: it says where it listens, serves, and
// stops cleanly on SIGTERM.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <httplib.h>

#include "UsdText/LayerReader.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/records/EditClientResponse.h"
#include "orvan/wire/records/HostedProjectRecords.h"
#include "orvan/wire/records/SceneLayers.h"
#include "orvan/wire/records/StageInspection.h"

extern char** environ;

namespace orvan::engine {
namespace {

const std::string kServer = ORVAN_ENGINE_BIN_DIR "/orvan_project_server";

// A server process with its standard output on a pipe; killed if a test ends without stopping it.
class ServerProcess {
 public:
  // `environment` is added to this process's own ("NAME=value" each).
  explicit ServerProcess(std::vector<std::string> arguments,
                         std::vector<std::string> environment = {}) {
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
    for (char** variable = environ; *variable != nullptr; ++variable)
      environment.emplace_back(*variable);
    std::vector<char*> envp;
    for (std::string& variable : environment)
      envp.push_back(variable.data());
    envp.push_back(nullptr);
    if (::posix_spawn(&pid_, kServer.c_str(), &actions, nullptr, argv.data(), envp.data()) != 0)
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

  // The port of the "listening on http://127.0.0.1:PORT" line, 0 when it did not come.
  int port() {
    const std::string line = firstLine();
    const std::string prefix = "listening on http://127.0.0.1:";
    return line.starts_with(prefix) ? std::stoi(line.substr(prefix.size())) : 0;
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

// Runs a shell command to its end: its exit status (-1 when it did not exit) and what it printed.
std::pair<int, std::string> runCommand(const std::string& command) {
  FILE* pipe = ::popen(command.c_str(), "r");
  std::string out;
  char buffer[4096];
  for (std::size_t n; pipe && (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
    out.append(buffer, n);
  const int status = pipe ? ::pclose(pipe) : -1;
  return std::pair(WIFEXITED(status) ? WEXITSTATUS(status) : -1, out);
}

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
    return runCommand(command);
  };
  const auto [usageStatus, usage] = run("--port 1");
  EXPECT_EQ(usageStatus, 2);
  EXPECT_NE(usage.find("usage: orvan_project_server --project DIR"), std::string::npos) << usage;
  // A token in the argument vector is visible to every user of the machine: refused, with the way
  // to give it instead.
  const auto [tokenStatus, token] = run("--project " ORVAN_DEMO_DIR " --port 0 --token s3cret");
  EXPECT_EQ(tokenStatus, 2);
  EXPECT_NE(token.find("--token-file FILE"), std::string::npos) << token;
  EXPECT_EQ(token.find("listening"), std::string::npos);
  const auto [missingTokenStatus, missingToken] =
      run("--project " ORVAN_DEMO_DIR " --port 0 --token-file /nonexistent/token");
  EXPECT_EQ(missingTokenStatus, 1);
  EXPECT_NE(missingToken.find("cannot read /nonexistent/token"), std::string::npos) << missingToken;

  const auto [missingStatus, missing] = run("--project /nonexistent/orvan-project --port 0");
  EXPECT_EQ(missingStatus, 1);
  EXPECT_NE(missing.find("/nonexistent/orvan-project does not exist"), std::string::npos)
      << missing;
  EXPECT_EQ(missing.find("listening"), std::string::npos);
}

// A folder of its own under the temporary folder, removed when the value goes.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "orvan_server_XXXXXX").string();
    path_ = ::mkdtemp(pattern.data()) != nullptr ? pattern : "";
  }
  ~TemporaryFolder() {
    if (!path_.empty())
      std::filesystem::remove_all(path_);
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

TEST(ProjectServerProcessTest, TakesItsTokenFromAFileOrTheEnvironmentAndManagesSessions) {
  TemporaryFolder state;
  ASSERT_FALSE(state.path().empty());
  const std::string tokenFile = state.path() + "/token";
  std::ofstream(tokenFile) << "from-file\n";
  const httplib::Headers fileBearer{{"Authorization", "Bearer from-file"}};
  {
    ServerProcess server({"--project", ORVAN_DEMO_DIR, "--port", "0", "--token-file", tokenFile,
                          "--state-dir", state.path()});
    const int port = server.port();
    ASSERT_GT(port, 0);
    httplib::Client client("127.0.0.1", port);
    EXPECT_EQ(client.Get("/api/project")->status, 401);
    EXPECT_EQ(client.Get("/api/project", fileBearer)->status, 200);
    EXPECT_EQ(server.stopWith(SIGTERM), 0);
  }

  ServerProcess server({"--project", ORVAN_DEMO_DIR, "--port", "0", "--state-dir", state.path()},
                       {"ORVAN_SERVER_TOKEN=from-env", "ORVAN_SERVER_PASSWORD=letmein"});
  const int port = server.port();
  ASSERT_GT(port, 0);
  httplib::Client client("127.0.0.1", port);
  EXPECT_EQ(client.Get("/api/project", fileBearer)->status, 401);
  EXPECT_EQ(client.Get("/api/project", {{"Authorization", "Bearer from-env"}})->status, 200);

  // A session signed in through the page is listed by the command line and revoked by it.
  const auto signedIn =
      client.Post("/auth/native/start", httplib::Params{{"callback", "velk://auth-callback"},
                                                        {"clientId", "c9"},
                                                        {"password", "letmein"}});
  ASSERT_TRUE(signedIn);
  ASSERT_EQ(signedIn->status, 302);
  const std::string location = signedIn->get_header_value("Location");
  const std::size_t at = location.find("token=");
  ASSERT_NE(at, std::string::npos) << location;
  const httplib::Headers session{{"Authorization", "Bearer " + location.substr(at + 6, 64)}};
  EXPECT_EQ(client.Get("/api/project", session)->status, 200);

  const auto sessions = [&](const std::string& arguments) {
    const std::string command = kServer + " sessions " + arguments + " --state-dir " + state.path();
    return runCommand(command);
  };
  const auto [listStatus, listed] = sessions("list");
  EXPECT_EQ(listStatus, 0);
  const std::string id = listed.substr(0, listed.find('\t'));
  EXPECT_EQ(id.size(), 16u) << listed;
  EXPECT_NE(listed.find("\tlocal\tc9\t"), std::string::npos) << listed;
  EXPECT_EQ(sessions("revoke " + id).first, 0);
  EXPECT_EQ(client.Get("/api/project", session)->status, 401) << "revoked while it runs";
  EXPECT_EQ(sessions("revoke " + id).first, 1);
  EXPECT_EQ(sessions("list").second, "");
  EXPECT_EQ(server.stopWith(SIGTERM), 0);
}

TEST(ProjectServerProcessTest, SlowClientsHoldOnlyTheirOwnConnectionsAndSigtermEndsItAtOnce) {
  ServerProcess server({"--project", ORVAN_DEMO_DIR, "--port", "0"});
  const int port = server.port();
  ASSERT_GT(port, 0);
  // Eight connections that send a request one byte at a time, and never finish it.
  std::atomic<bool> done = false;
  std::thread trickle([&] {
    std::vector<int> sockets;
    for (int i = 0; i < 8; ++i) {
      const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
      sockaddr_in address{};
      address.sin_family = AF_INET;
      address.sin_port = htons(static_cast<std::uint16_t>(port));
      address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
      if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        sockets.push_back(socket);
      else
        ::close(socket);
    }
    const std::string request = "GET /api/me HTTP/1.1\r\nHost: 127.0.0.1\r\nX-Slow: ";
    for (std::size_t sent = 0; !done; ++sent) {
      for (const int socket : sockets)
        ::send(socket, &request[std::min(sent, request.size() - 1)], 1, MSG_NOSIGNAL);
      for (int i = 0; i < 10 && !done; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    for (const int socket : sockets)
      ::close(socket);
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));

  httplib::Client client("127.0.0.1", port);
  client.set_read_timeout(10);
  const auto started = std::chrono::steady_clock::now();
  const auto me = client.Get("/api/me");
  EXPECT_TRUE(me && me->status == 200) << "the server is deaf";
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5));

  // The slow connections are still open: the stop must not wait for them.
  const auto stopping = std::chrono::steady_clock::now();
  EXPECT_EQ(server.stopWith(SIGTERM), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - stopping, std::chrono::seconds(3));
  done = true;
  trickle.join();
}

// Edits stream in from two clients while the server is killed without warning, three times over:
// every edit it acknowledged is there after each restart, in the stage and in the file, the file
// reads, and the revision goes on from where the log stood, never handing out a number twice.
TEST(ProjectServerProcessTest, AKilledServerLosesNoAcknowledgedEditAndItsRevisionGoesOn) {
  namespace fs = std::filesystem;
  const fs::path base = fs::temp_directory_path() / ("orvan_crash_" + std::to_string(::getpid()));
  fs::remove_all(base);
  fs::create_directories(base / "Game");
  std::ofstream(base / "Game/project.json")
      << R"({"id": "game", "name": "Game", "mainScene": "main.usda"})";
  std::ofstream(base / "Game/main.usda")
      << "#usda 1.0\n\ndef Xform \"World\" (\n    kind = \"assembly\"\n)\n{\n}\n";

  std::vector<std::pair<std::string, std::uint64_t>> acknowledged;
  std::set<std::uint64_t> numbers;
  std::uint64_t highest = 0;
  for (int round = 0; round < 3; ++round) {
    const std::uint64_t before = highest;
    ServerProcess server({"--project", (base / "Game").string(), "--port", "0", "--state-dir",
                          (base / "state").string()});
    const int port = server.port();
    ASSERT_GT(port, 0);
    httplib::Client reader("127.0.0.1", port);
    reader.set_read_timeout(60, 0);
    // Everything acknowledged before the last kill is there.
    const auto stage = reader.Get("/api/stage");
    ASSERT_TRUE(stage);
    ASSERT_EQ(stage->status, 200) << stage->body.substr(0, 300);
    auto decoded = editor::decodeJson<editor::RemoteStageResponse>(stage->body);
    ASSERT_TRUE(decoded.ok());
    EXPECT_GE(decoded->revision, highest);
    std::set<std::string> present;
    for (const auto& prim : decoded->stage.prims)
      present.insert(prim.path);
    for (const auto& [name, revision] : acknowledged)
      EXPECT_TRUE(present.contains("/World/" + name)) << name << " of revision " << revision;

    std::atomic<bool> stop = false;
    std::mutex mutex;
    std::vector<std::thread> clients;
    for (int client = 0; client < 2; ++client) {
      clients.emplace_back([&, client] {
        httplib::Client http("127.0.0.1", port);
        for (int i = 0; !stop; ++i) {
          const std::string name =
              "R" + std::to_string(round) + "C" + std::to_string(client) + "N" + std::to_string(i);
          const auto answer = http.Post(
              "/api/edit",
              R"({"author":"A","clientId":"c)" + std::to_string(client) +
                  R"(","operations":[{"type":"prim","kind":"add","parentPath":"/World","primName":")" +
                  name + R"(","primitiveKind":"cube"}]})",
              "application/json");
          if (!answer)
            return;
          auto reply = editor::decodeJson<editor::EditClientResponse>(answer->body);
          if (!reply.ok() || !reply->accepted)
            continue;
          const std::lock_guard lock(mutex);
          // A number handed out once is never handed out again, across kills too.
          EXPECT_GT(reply->revision, before) << name;
          EXPECT_TRUE(numbers.insert(reply->revision).second) << reply->revision;
          highest = std::max(highest, reply->revision);
          acknowledged.emplace_back(name, reply->revision);
        }
      });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(300 + 170 * round));
    server.stopWith(SIGKILL);
    stop = true;
    for (std::thread& thread : clients)
      thread.join();
  }
  ASSERT_GT(acknowledged.size(), 10u);

  // A last start brings the file up to date before it serves: it reads and holds every edit.
  ServerProcess server({"--project", (base / "Game").string(), "--port", "0", "--state-dir",
                        (base / "state").string()});
  ASSERT_GT(server.port(), 0);
  std::ifstream in(base / "Game/main.usda");
  const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_TRUE(readLayerText((base / "Game/main.usda").string(), text).ok());
  for (const auto& [name, revision] : acknowledged)
    EXPECT_NE(text.find('"' + name + '"'), std::string::npos) << name;
  EXPECT_EQ(server.stopWith(SIGTERM), 0);
  fs::remove_all(base);
}

// A mute the server acknowledged is there after it is killed at once: it was kept with its
// revision, and the scene read again from the files is muted again before it is served.
TEST(ProjectServerProcessTest, AKilledServerComesBackWithTheLayerItAcknowledgedMuting) {
  namespace fs = std::filesystem;
  const fs::path base =
      fs::temp_directory_path() / ("orvan_crash_mute_" + std::to_string(::getpid()));
  fs::remove_all(base);
  fs::create_directories(base / "Demo");
  for (const char* name :
       {"project.json", "hello_world.usda", "hello_world_base.usda", "hello_world_lighting.usda"})
    fs::copy_file(fs::path(ORVAN_DEMO_DIR) / name, base / "Demo" / name);
  fs::copy(fs::path(ORVAN_DEMO_DIR) / "assets", base / "Demo/assets", fs::copy_options::recursive);
  const std::vector<std::string> arguments{"--project",   (base / "Demo").string(), "--port", "0",
                                           "--state-dir", (base / "state").string()};
  const std::string lighting = (base / "Demo/hello_world_lighting.usda").string();
  // Whether the stage shows the lighting layer muted and its light gone, and the layer list says
  // so too.
  const auto mutedNow = [&](httplib::Client& http) {
    const auto stage = http.Get("/api/stage");
    const auto layers = http.Get("/api/layers");
    if (!stage || stage->status != 200 || !layers || layers->status != 200) {
      ADD_FAILURE() << "no stage or layers";
      return std::optional<bool>();
    }
    auto inspection = editor::decodeJson<editor::RemoteStageResponse>(stage->body);
    auto listed = editor::decodeJson<editor::SceneLayersResponse>(layers->body);
    if (!inspection.ok() || !listed.ok()) {
      ADD_FAILURE() << "the stage or the layers do not decode";
      return std::optional<bool>();
    }
    const auto& infos = inspection->stage.layers;
    const auto info = std::find_if(infos.begin(), infos.end(),
                                   [&](const auto& layer) { return layer.identifier == lighting; });
    const bool sun = std::any_of(inspection->stage.prims.begin(), inspection->stage.prims.end(),
                                 [](const auto& prim) { return prim.path == "/World/Sun"; });
    const bool listedMuted = std::find(listed->mutedLayers.begin(), listed->mutedLayers.end(),
                                       lighting) != listed->mutedLayers.end();
    const bool muted = info != infos.end() && info->muted;
    EXPECT_EQ(muted, !sun);
    EXPECT_EQ(muted, listedMuted);
    return std::optional<bool>(muted);
  };
  const auto mute = [&](httplib::Client& http, bool muted) {
    const auto answer = http.Post(
        "/api/edit",
        std::string(
            R"({"author":"A","clientId":"c","operations":[{"type":"layer","kind":"mute",)") +
            R"("identifier":"hello_world_lighting.usda","muted":)" + (muted ? "true" : "false") +
            "}]}",
        "application/json");
    if (!answer)
      return false;
    auto reply = editor::decodeJson<editor::EditClientResponse>(answer->body);
    return reply.ok() && reply->accepted;
  };

  for (const bool muted : {true, false}) {
    ServerProcess server(arguments);
    const int port = server.port();
    ASSERT_GT(port, 0);
    httplib::Client http("127.0.0.1", port);
    http.set_read_timeout(60, 0);
    EXPECT_EQ(mutedNow(http), std::optional<bool>(!muted));
    ASSERT_TRUE(mute(http, muted));
    server.stopWith(SIGKILL);

    ServerProcess again(arguments);
    const int portAgain = again.port();
    ASSERT_GT(portAgain, 0);
    httplib::Client after("127.0.0.1", portAgain);
    after.set_read_timeout(60, 0);
    EXPECT_EQ(mutedNow(after), std::optional<bool>(muted)) << (muted ? "muted" : "unmuted");
    EXPECT_EQ(again.stopWith(SIGTERM), 0);
  }
  fs::remove_all(base);
}

}  // namespace
}  // namespace orvan::engine

// A stand-in for the long-lived edit helper. It is started exactly as the real one
// ("--stdio", "--author", A, "--client-id", C, "--scene", S, "--workspace", W,
// ["--active-layer", L], ADDRESS) and takes its behaviour from the arguments a test controls:
//
//   --client-id  a journal file: "launch" plus the arguments, then every line received, are
//                appended to it, so a test can count starts and see what was sent
//   --scene      the behaviour, optionally followed by ":" and a number N:
//     answer           ping and every command answered {"accepted":true,"revision":<count>}
//     old-build        ping answered "unknown stdio command: ping", commands answered
//     refuse-ping      ping refused with "not signed in"
//     refuse-ping-blank  ping refused with an empty message
//     exit-at-start    "fatal: no session" on stderr, exit 3 before reading anything
//     die-on-command   ping answered; the first command: N characters of stderr, exit 5
//     die-first-launch like die-on-command on the journal's first launch, else like answer
//     oversized        ping answered; a command gets N bytes of "x" without a line feed, then
//                      a pause and the end of the process
//     two-lines        the first command gets two answers in one write, the second none
//     partial-then-eof a command gets an answer without its line feed, then the process ends
//     env              a command is answered with ORVAN_AUTH_TOKEN (or "<unset>") as message
//     not-json         a command is answered with "hello"
//     hang             ping answered; commands never answered
//     anything else    scripted: command number i (counted over every launch of the journal)
//                      is answered by line i of "<journal>.script"; a missing line answers
//                      {"accepted":true,"revision":0,"message":"ok"}; "DIE" writes "boom" to
//                      standard error and exits 9
//
// Started with "--json" it is the one-shot form: it notes "oneshot" and its arguments, answers
// with the next scripted line and exits 1 when that line does not accept, as the real helper
// reports a refused operation; a "DIE" line makes it write 700 dots between "early " and
// " cannot reach the server" to standard error and exit 9.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

void writeAll(int fd, std::string_view data) {
  while (!data.empty()) {
    const ssize_t written = ::write(fd, data.data(), data.size());
    if (written <= 0)
      std::exit(3);
    data.remove_prefix(static_cast<std::size_t>(written));
  }
}

std::string reply(bool accepted, int revision, std::string_view message) {
  return std::string("{\"accepted\":") + (accepted ? "true" : "false") +
         ",\"revision\":" + std::to_string(revision) + ",\"message\":\"" + std::string(message) +
         "\"}\n";
}

std::vector<std::string> linesOf(const std::string& path) {
  std::vector<std::string> lines;
  std::ifstream in(path);
  for (std::string line; std::getline(in, line);)
    lines.push_back(line);
  return lines;
}

// Commands the journal has seen, over every launch.
std::size_t commandsSoFar(const std::string& journal) {
  std::size_t count = 0;
  for (const std::string& line : linesOf(journal)) {
    if (line.rfind("launch", 0) != 0 && line != "ping" && line != "quit")
      ++count;
  }
  return count;
}

std::string scriptedAnswer(const std::string& journal, std::size_t index) {
  const std::vector<std::string> script = linesOf(journal + ".script");
  if (index < script.size())
    return script[index];
  return R"({"accepted":true,"revision":0,"message":"ok"})";
}

int launchesSoFar(const std::string& journal) {
  std::ifstream in(journal);
  int count = 0;
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("launch", 0) == 0)
      ++count;
  }
  return count;
}

}  // namespace

int main(int argc, char** argv) {
  std::string journal;
  std::string scene;
  std::string joined;
  bool oneShot = false;
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    joined += " ";
    joined += arg;
    if (arg == "--client-id" && i + 1 < argc)
      journal = argv[i + 1];
    if (arg == "--scene" && i + 1 < argc)
      scene = argv[i + 1];
    if (arg == "--json")
      oneShot = true;
  }
  const bool scripted = scene.find('/') != std::string::npos;
  const std::size_t colon = scene.find(':');
  const std::string mode = scripted ? "script" : scene.substr(0, colon);
  const long number =
      scripted || colon == std::string::npos ? 0 : std::stol(scene.substr(colon + 1));
  const int launchNumber = journal.empty() ? 1 : launchesSoFar(journal) + 1;
  auto note = [&](std::string_view text) {
    if (journal.empty())
      return;
    std::ofstream out(journal, std::ios::app);
    out << text << '\n';
  };
  if (oneShot) {
    const std::size_t index = commandsSoFar(journal);
    note("oneshot" + joined);
    const std::string answer = scriptedAnswer(journal, index);
    if (answer == "DIE") {
      writeAll(STDERR_FILENO, "early " + std::string(700, '.') + " cannot reach the server\n");
      return 9;
    }
    writeAll(STDOUT_FILENO, answer + "\n");
    return answer.find("\"accepted\":true") != std::string::npos ? 0 : 1;
  }
  note("launch" + joined);

  if (mode == "exit-at-start") {
    writeAll(STDERR_FILENO, "fatal: no session\n");
    return 3;
  }
  int commands = 0;
  for (std::string line; std::getline(std::cin, line);) {
    const std::size_t index = commandsSoFar(journal);
    note(line);
    if (line == "quit")
      return 0;
    if (line == "ping") {
      if (mode == "old-build")
        writeAll(STDOUT_FILENO, reply(false, 0, "unknown stdio command: ping"));
      else if (mode == "refuse-ping")
        writeAll(STDOUT_FILENO, reply(false, 0, "not signed in"));
      else if (mode == "refuse-ping-blank")
        writeAll(STDOUT_FILENO, reply(false, 0, ""));
      else
        writeAll(STDOUT_FILENO, reply(true, 0, "pong"));
      continue;
    }
    ++commands;
    const bool dies = mode == "die-on-command" || (mode == "die-first-launch" && launchNumber == 1);
    if (dies) {
      writeAll(STDERR_FILENO, std::string(static_cast<std::size_t>(number) - 1, 'e') + "E");
      return 5;
    }
    if (mode == "oversized") {
      writeAll(STDOUT_FILENO, std::string(static_cast<std::size_t>(number), 'x'));
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
      return 0;
    }
    if (mode == "two-lines") {
      if (commands == 1)
        writeAll(STDOUT_FILENO, reply(true, 1, "first") + reply(true, 2, "second"));
      continue;
    }
    if (mode == "partial-then-eof") {
      std::string answer = reply(true, 1, "cut");
      answer.pop_back();
      writeAll(STDOUT_FILENO, answer);
      return 0;
    }
    if (mode == "env") {
      const char* token = std::getenv("ORVAN_AUTH_TOKEN");
      writeAll(STDOUT_FILENO, reply(true, commands, token != nullptr ? token : "<unset>"));
      continue;
    }
    if (mode == "not-json") {
      writeAll(STDOUT_FILENO, "hello\n");
      continue;
    }
    if (mode == "hang")
      continue;
    if (mode == "script") {
      const std::string answer = scriptedAnswer(journal, index);
      if (answer == "DIE") {
        writeAll(STDERR_FILENO, "boom\n");
        return 9;
      }
      writeAll(STDOUT_FILENO, answer + "\n");
      continue;
    }
    writeAll(STDOUT_FILENO, reply(true, commands, "ok " + line.substr(0, line.find('\t'))));
  }
  return 0;
}

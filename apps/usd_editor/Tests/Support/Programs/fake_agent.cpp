// A stand-in for a locally installed coding agent. It ignores its arguments (the editor passes the
// real agent's command line) and follows the script named by ORVAN_FAKE_AGENT_SCRIPT, one command
// per line:
//
//   say TEXT          TEXT as one line on standard output
//   err TEXT          TEXT as one line on standard error
//   sleep MS          pause
//   record FILE       write what it was started with to FILE, each item ended by a NUL byte:
//                     the working directory, where standard input leads, ORVAN_AUTH_TOKEN (or
//                     "<unset>"), then every argument after the program
//   exit CODE         end with CODE
//
// Without a script, or at its end, it exits 0.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <string_view>
#include <thread>

namespace {

void writeLine(std::FILE* stream, std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stream);
  std::fputc('\n', stream);
  std::fflush(stream);
}

void pauseFor(int milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

std::string stdinTarget() {
  char buffer[4096];
  const ssize_t length = ::readlink("/proc/self/fd/0", buffer, sizeof buffer - 1);
  return length > 0 ? std::string(buffer, static_cast<std::size_t>(length)) : "?";
}

bool record(const std::string& file, int argc, char** argv) {
  std::ofstream out(file, std::ios::binary);
  char cwd[4096];
  const char* token = std::getenv("ORVAN_AUTH_TOKEN");
  out << (::getcwd(cwd, sizeof cwd) != nullptr ? cwd : "?") << '\0' << stdinTarget() << '\0'
      << (token != nullptr ? token : "<unset>") << '\0';
  for (int i = 1; i < argc; ++i)
    out << argv[i] << '\0';
  return static_cast<bool>(out);
}

int run(int argc, char** argv) {
  const char* scriptPath = std::getenv("ORVAN_FAKE_AGENT_SCRIPT");
  if (scriptPath == nullptr)
    return 0;
  std::ifstream script(scriptPath);
  if (!script)
    return 66;
  std::string line;
  while (std::getline(script, line)) {
    const auto space = line.find(' ');
    const std::string command = line.substr(0, space);
    const std::string argument = space == std::string::npos ? "" : line.substr(space + 1);
    if (command == "say") {
      writeLine(stdout, argument);
    } else if (command == "err") {
      writeLine(stderr, argument);
    } else if (command == "sleep") {
      pauseFor(std::atoi(argument.c_str()));
    } else if (command == "record") {
      if (!record(argument, argc, argv))
        return 73;
    } else if (command == "exit") {
      return std::atoi(argument.c_str());
    } else if (!command.empty()) {
      writeLine(stderr, "unknown command " + command);
      return 64;
    }
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  return run(argc, argv);
}

// A stand-in helper for process tests. The first argument picks one behaviour:
//
//   print-args ARG...             every argument after the mode, one per line, in brackets
//   print-env NAME...             each variable's value, or "<unset>", one per line
//   flood OUT_BYTES ERR_BYTES CODE  interleave that many bytes on stdout and stderr, exit CODE
//   exit CODE [STDERR_TEXT]       write the text to stderr and exit with CODE
//   raise SIGNAL                  kill itself with the signal
//   sleep-forever [ignore-term]   sleep until killed (optionally ignoring SIGTERM)
//   oversized-line BYTES          one line of BYTES 'x', then "after"
//   partial-writes                "alpha\nbeta\ngamma" in pieces with pauses, no final line feed
//   stdin-echo                    copy standard input to standard output until end of file
//   list-fds                      its open descriptors, one per line
//   sigpipe-disposition           "default" or "ignored"
//   pwd                           its working directory
#include <dirent.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <thread>

namespace {

void writeAll(int fd, std::string_view data) {
  while (!data.empty()) {
    const ssize_t written = ::write(fd, data.data(), data.size());
    if (written <= 0)
      std::exit(3);
    data.remove_prefix(static_cast<std::size_t>(written));
  }
}

void say(std::string_view line) {
  writeAll(STDOUT_FILENO, line);
  writeAll(STDOUT_FILENO, "\n");
}

void pause(int milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

int flood(std::size_t outBytes, std::size_t errBytes, int code) {
  const std::string block(4096, 'e');
  const std::string outBlock(4096, 'o');
  while (outBytes > 0 || errBytes > 0) {
    const std::size_t toErr = std::min(errBytes, block.size());
    writeAll(STDERR_FILENO, std::string_view(block).substr(0, toErr));
    errBytes -= toErr;
    const std::size_t toOut = std::min(outBytes, outBlock.size());
    writeAll(STDOUT_FILENO, std::string_view(outBlock).substr(0, toOut));
    outBytes -= toOut;
  }
  return code;
}

int listDescriptors() {
  DIR* dir = ::opendir("/proc/self/fd");
  if (dir == nullptr)
    return 2;
  const std::string own = std::to_string(::dirfd(dir));
  while (const dirent* entry = ::readdir(dir)) {
    const std::string name = entry->d_name;
    if (name == "." || name == ".." || name == own)
      continue;
    say(name);
  }
  ::closedir(dir);
  return 0;
}

int run(int argc, char** argv) {
  if (argc < 2)
    return 64;
  const std::string_view mode = argv[1];
  if (mode == "print-args") {
    for (int i = 2; i < argc; ++i)
      say("[" + std::string(argv[i]) + "]");
    return 0;
  }
  if (mode == "print-env") {
    for (int i = 2; i < argc; ++i) {
      const char* value = std::getenv(argv[i]);
      say(value != nullptr ? value : "<unset>");
    }
    return 0;
  }
  if (mode == "flood" && argc == 5) {
    return flood(std::stoul(argv[2]), std::stoul(argv[3]), std::atoi(argv[4]));
  }
  if (mode == "exit" && argc >= 3) {
    if (argc >= 4)
      writeAll(STDERR_FILENO, argv[3]);
    return std::atoi(argv[2]);
  }
  if (mode == "raise" && argc == 3) {
    ::raise(std::atoi(argv[2]));
    return 70;
  }
  if (mode == "sleep-forever") {
    if (argc >= 3 && std::string_view(argv[2]) == "ignore-term")
      ::signal(SIGTERM, SIG_IGN);
    say("sleeping");
    while (true)
      ::pause();
  }
  if (mode == "oversized-line" && argc == 3) {
    writeAll(STDOUT_FILENO, std::string(std::stoul(argv[2]), 'x'));
    say("");
    say("after");
    return 0;
  }
  if (mode == "partial-writes") {
    for (std::string_view piece : {"al", "pha\nbe", "ta", "\ngam", "ma"}) {
      writeAll(STDOUT_FILENO, piece);
      pause(15);
    }
    return 0;
  }
  if (mode == "stdin-echo") {
    char buffer[4096];
    ssize_t got = 0;
    while ((got = ::read(STDIN_FILENO, buffer, sizeof buffer)) > 0) {
      writeAll(STDOUT_FILENO, std::string_view(buffer, static_cast<std::size_t>(got)));
    }
    return got == 0 ? 0 : 4;
  }
  if (mode == "list-fds")
    return listDescriptors();
  if (mode == "sigpipe-disposition") {
    struct sigaction current {};
    ::sigaction(SIGPIPE, nullptr, &current);
    say(current.sa_handler == SIG_IGN ? "ignored" : "default");
    return 0;
  }
  if (mode == "pwd") {
    char buffer[4096];
    say(::getcwd(buffer, sizeof buffer) != nullptr ? buffer : "?");
    return 0;
  }
  return 64;
}

}  // namespace

int main(int argc, char** argv) {
  return run(argc, argv);
}

// Stands in for the stage inspector helper: `fake_inspector [--] <scene>` prints the scene file's
// contents as its stage. Like the real one, it takes an argument starting with "-" before "--"
// for an option, and knows none: such an argument fails with exit code 64. A scene file that starts
// with a directive line behaves otherwise:
//   #fail <code> <message>    writes the message to standard error and exits with the code
//   #flood <bytes> <code>     floods standard error with that many bytes, then exits with the code
//   #garbage                  prints text that is no stage
// A missing scene file fails like the real inspector: a reason on standard error, exit 1.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

int main(int argc, char** argv) {
  std::string scene;
  bool optionsEnded = false;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (!optionsEnded && argument == "--") {
      optionsEnded = true;
    } else if (!optionsEnded && argument.starts_with("-")) {
      std::cerr << "fake_inspector: unknown option '" << argument << "'\n";
      return 64;
    } else if (!scene.empty()) {
      std::cerr << "fake_inspector: unexpected argument '" << argument << "'\n";
      return 64;
    } else {
      scene = argument;
    }
  }
  if (scene.empty()) {
    std::cerr << "usage: fake_inspector [--] <scene>\n";
    return 64;
  }
  std::ifstream file(scene, std::ios::binary);
  if (!file) {
    std::cerr << scene << ":1:1: cannot open the scene\n";
    return 1;
  }
  std::stringstream contents;
  contents << file.rdbuf();
  const std::string text = contents.str();
  std::istringstream lines(text);
  std::string directive;
  lines >> directive;
  if (directive == "#fail") {
    int code = 1;
    lines >> code;
    std::string message;
    std::getline(lines >> std::ws, message);
    std::cerr << message << "\n";
    return code;
  }
  if (directive == "#flood") {
    long bytes = 0;
    int code = 1;
    lines >> bytes >> code;
    const std::string chunk(4096, 'e');
    for (long written = 0; written < bytes; written += static_cast<long>(chunk.size())) {
      std::fwrite(chunk.data(), 1, chunk.size(), stderr);
    }
    std::fputs("\nlast words of the flood\n", stderr);
    return code;
  }
  if (directive == "#garbage") {
    std::cout << "this is not a stage\n";
    return 0;
  }
  std::cout << text;
  return 0;
}

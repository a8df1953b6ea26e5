// Feeds every file of the given corpus folders (or the given files) to the fuzz target once, so
// that the seed corpora run as ordinary tests under any compiler.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

std::vector<std::filesystem::path> inputsUnder(const std::filesystem::path& path) {
  std::vector<std::filesystem::path> inputs;
  if (std::filesystem::is_directory(path)) {
    for (const auto& entry : std::filesystem::directory_iterator(path)) {
      if (entry.is_regular_file()) inputs.push_back(entry.path());
    }
    std::sort(inputs.begin(), inputs.end());
  } else if (std::filesystem::is_regular_file(path)) {
    inputs.push_back(path);
  }
  return inputs;
}

bool readFile(const std::filesystem::path& path, std::vector<char>& bytes) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return !in.bad();
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t replayed = 0;
  for (int i = 1; i < argc; ++i) {
    for (const std::filesystem::path& input : inputsUnder(argv[i])) {
      std::vector<char> bytes;
      if (!readFile(input, bytes)) {
        std::fprintf(stderr, "cannot read %s\n", input.c_str());
        return 1;
      }
      std::fprintf(stderr, "replaying %s\n", input.c_str());
      // An exactly sized heap copy, so that an overread is caught by the sanitizers.
      std::vector<std::uint8_t> data(bytes.begin(), bytes.end());
      LLVMFuzzerTestOneInput(data.data(), data.size());
      ++replayed;
    }
  }
  std::printf("replayed %zu inputs\n", replayed);
  // An empty or missing corpus is a broken test, not a passing one.
  return replayed > 0 ? 0 : 1;
}

// Feeds every file of the given corpus folders (or the given files) to the fuzz target once, so
// that the seed corpora run as ordinary tests under any compiler.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
  std::vector<std::filesystem::path> inputs;
  for (int i = 1; i < argc; ++i) {
    if (!std::filesystem::is_directory(argv[i])) {
      inputs.emplace_back(argv[i]);
      continue;
    }
    std::vector<std::filesystem::path> corpus;
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
      if (entry.is_regular_file())
        corpus.push_back(entry.path());
    }
    std::sort(corpus.begin(), corpus.end());
    inputs.insert(inputs.end(), corpus.begin(), corpus.end());
  }
  for (const std::filesystem::path& input : inputs) {
    std::ifstream in(input, std::ios::binary);
    // An exactly sized heap copy, so that an overread is caught by the sanitizers.
    const std::vector<std::uint8_t> data{std::istreambuf_iterator<char>(in),
                                         std::istreambuf_iterator<char>()};
    if (!in) {
      std::fprintf(stderr, "cannot read %s\n", input.c_str());
      return 1;
    }
    std::fprintf(stderr, "replaying %s\n", input.c_str());
    LLVMFuzzerTestOneInput(data.data(), data.size());
  }
  std::printf("replayed %zu inputs\n", inputs.size());
  // An empty or missing corpus is a broken test, not a passing one.
  return inputs.empty() ? 1 : 0;
}

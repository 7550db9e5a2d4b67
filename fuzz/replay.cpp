// Replays every file of the folders given through a fuzz target, so that a finding can be reproduced without
// libFuzzer.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
  int replayed = 0;
  for (int i = 1; i < argc; ++i) {
    std::error_code error;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i], error)) {
      if (!entry.is_regular_file()) continue;
      std::ifstream file(entry.path(), std::ios::binary);
      const std::vector<char> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
      LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
      ++replayed;
    }
  }
  std::printf("replayed %d inputs\n", replayed);
  return replayed > 0 ? 0 : 1;
}

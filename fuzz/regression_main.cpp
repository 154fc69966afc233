// Replays fuzz inputs without libFuzzer: every file in the folders named on the
// command line goes once through LLVMFuzzerTestOneInput, after
// LLVMFuzzerInitialize where the target has one. A finding aborts.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

int main(int argc, char** argv) {
  int programOnly = 1;  // the other arguments are inputs, not fuzzer flags
  char** self = argv;
  if (LLVMFuzzerInitialize != nullptr) LLVMFuzzerInitialize(&programOnly, &self);
  size_t count = 0;
  for (int i = 1; i < argc; ++i) {
    for (const auto& file : std::filesystem::directory_iterator(argv[i])) {  // a wrong path throws
      std::ifstream in(file.path(), std::ios::binary);
      const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
      ++count;
    }
  }
  std::printf("%zu inputs replayed\n", count);
  return count == 0 ? 1 : 0;  // no input means a wrong path, not a pass
}

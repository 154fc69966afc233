// Replays fuzz inputs without libFuzzer: every regular file found in the
// folders (or named directly) on the command line goes through
// LLVMFuzzerTestOneInput once, after LLVMFuzzerInitialize when the target has
// one. A finding aborts the process.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

bool Run(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) {
    std::fprintf(stderr, "cannot read %s\n", file.c_str());
    return false;
  }
  const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (LLVMFuzzerInitialize != nullptr) {
    // It sees the program name only: the rest are inputs, not fuzzer flags.
    int programOnly = 1;
    char** self = argv;
    LLVMFuzzerInitialize(&programOnly, &self);
  }
  size_t count = 0;
  for (int i = 1; i < argc; ++i) {
    const std::filesystem::path path(argv[i]);
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) {
      for (const auto& entry : std::filesystem::directory_iterator(path, error)) {
        if (!entry.is_regular_file()) continue;
        if (!Run(entry.path())) return 1;
        ++count;
      }
    } else {
      if (!Run(path)) return 1;
      ++count;
    }
  }
  std::printf("%zu inputs replayed\n", count);
  return count == 0 ? 1 : 0;  // an empty run means a wrong path, not a pass
}

// Keeps the message tables of docs/protocol.md equal to the operations
// table: `--check FILE` fails when they differ, `--update FILE` rewrites them.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "protocol/OperationsDoc.h"

namespace {

constexpr const char* kBegin = "<!-- Generated from sdk/protocol/Operations.def: cmake --build <dir> --target protocol-doc -->\n";
constexpr const char* kEnd = "<!-- End of generated tables -->\n";

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3 || (std::strcmp(argv[1], "--check") != 0 && std::strcmp(argv[1], "--update") != 0)) {
    std::fprintf(stderr, "usage: %s --check|--update protocol.md\n", argv[0]);
    return 2;
  }
  std::ifstream in(argv[2]);
  std::stringstream buffer;
  buffer << in.rdbuf();
  const std::string text = buffer.str();
  const size_t begin = text.find(kBegin);
  const size_t end = text.find(kEnd);
  if (!in || begin == std::string::npos || end == std::string::npos || end < begin) {
    std::fprintf(stderr, "%s: no generated section (the marker lines are missing)\n", argv[2]);
    return 2;
  }
  const size_t from = begin + std::strlen(kBegin);
  const std::string wanted = PalvonAuthManagerSDK::protocol::OperationsMarkdown();
  if (text.compare(from, end - from, wanted) == 0) return 0;
  if (std::strcmp(argv[1], "--check") == 0) {
    std::fprintf(stderr, "%s: the message tables differ from the operations table; run the protocol-doc target\n",
                 argv[2]);
    return 1;
  }
  std::ofstream out(argv[2], std::ios::trunc);
  out << text.substr(0, from) << wanted << text.substr(end);
  return out ? 0 : 1;
}

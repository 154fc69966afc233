#include "daemon/OperationNames.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>

namespace palvonauthd {

namespace protocol = PalvonAuthManagerSDK::protocol;

namespace {

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

}  // namespace

std::optional<uint32_t> ParseNumber(const std::string& text) {
  if (text.empty() || std::isdigit(static_cast<unsigned char>(text[0])) == 0) return std::nullopt;
  char* end = nullptr;
  errno = 0;
  // Base 10 or 0x-prefixed 16; a leading 0 does not mean octal here.
  const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  const unsigned long long value = std::strtoull(text.c_str(), &end, hex ? 16 : 10);
  if (errno != 0 || end == nullptr || *end != '\0' || value > 0xFFFFFFFFull) return std::nullopt;
  return static_cast<uint32_t>(value);
}

std::optional<uint32_t> ParseOperation(const std::string& text) {
  if (text.empty()) return std::nullopt;
  if (std::isdigit(static_cast<unsigned char>(text[0])) != 0) return ParseNumber(text);
  const std::string wanted = Lower(text);
  size_t count = 0;
  const protocol::Operation* operations = protocol::Operations(count);
  for (size_t i = 0; i < count; ++i) {
    if (Lower(operations[i].name) == wanted) return operations[i].number;
  }
  return std::nullopt;
}

std::vector<uint32_t> KnownOperations() {
  size_t count = 0;
  const protocol::Operation* operations = protocol::Operations(count);
  std::vector<uint32_t> types;
  for (size_t i = 0; i < count; ++i) types.push_back(operations[i].number);
  std::sort(types.begin(), types.end());
  return types;
}

}  // namespace palvonauthd

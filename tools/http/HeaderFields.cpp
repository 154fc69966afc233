#include "http/HeaderFields.h"

#include <cerrno>
#include <cstdlib>
#include <initializer_list>

namespace palvonauth {

namespace {

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

std::string_view Trim(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r')) text.remove_suffix(1);
  return text;
}

// Calls `visit` with each comma-separated element of the fields named `name`, trimmed.
template <typename Visit>
void ForEachElement(const std::vector<std::string>& lines, std::string_view name, Visit visit) {
  for (const std::string& line : lines) {
    const size_t colon = line.find(':');
    if (colon == std::string::npos || !EqualsIgnoreCase(std::string_view(line).substr(0, colon), name)) continue;
    std::string_view rest = std::string_view(line).substr(colon + 1);
    while (!rest.empty()) {
      const size_t comma = rest.find(',');
      const std::string_view element = Trim(rest.substr(0, comma));
      if (!element.empty()) visit(element);
      rest = comma == std::string_view::npos ? std::string_view() : rest.substr(comma + 1);
    }
  }
}

}  // namespace

bool EqualsIgnoreCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (Lower(a[i]) != Lower(b[i])) return false;
  }
  return true;
}

std::string_view FieldName(std::string_view line) { return line.substr(0, line.find(':')); }

std::optional<std::string> FindField(const std::vector<std::string>& lines, std::string_view name) {
  for (const std::string& line : lines) {
    const size_t colon = line.find(':');
    if (colon != std::string::npos && EqualsIgnoreCase(std::string_view(line).substr(0, colon), name)) {
      return std::string(Trim(std::string_view(line).substr(colon + 1)));
    }
  }
  return std::nullopt;
}

std::optional<uint64_t> ContentLength(const std::vector<std::string>& lines) {
  const std::optional<std::string> value = FindField(lines, "content-length");
  if (!value || value->empty() || value->find_first_not_of("0123456789") != std::string::npos) return std::nullopt;
  errno = 0;
  const unsigned long long length = std::strtoull(value->c_str(), nullptr, 10);
  if (errno == ERANGE) return std::nullopt;
  return length;
}

bool HasToken(const std::vector<std::string>& lines, std::string_view name, std::string_view token) {
  bool found = false;
  ForEachElement(lines, name, [&](std::string_view element) { found = found || EqualsIgnoreCase(element, token); });
  return found;
}

std::vector<std::string> WithoutHopByHop(const std::vector<std::string>& lines) {
  std::vector<std::string_view> named;
  ForEachElement(lines, "connection", [&](std::string_view element) { named.push_back(element); });
  std::vector<std::string> kept;
  for (const std::string& line : lines) {
    const std::string_view name = Trim(FieldName(line));
    bool drop = false;
    for (const char* fixed : {"connection", "keep-alive", "proxy-authenticate", "proxy-authorization",
                              "proxy-connection", "te", "trailer", "transfer-encoding", "upgrade"}) {
      drop = drop || EqualsIgnoreCase(name, fixed);
    }
    for (const std::string_view other : named) drop = drop || EqualsIgnoreCase(name, other);
    if (!drop) kept.push_back(line);
  }
  return kept;
}

}  // namespace palvonauth

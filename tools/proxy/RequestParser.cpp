#include "proxy/RequestParser.h"

#include <cstring>

#include "http/HeaderFields.h"
#include "util/Utf8.h"

namespace palvonauth {

namespace {

bool IsTokenChar(unsigned char c) { return c > ' ' && c < 0x7F && std::strchr("\"(),/:;<=>?@[\\]{}", c) == nullptr; }

bool IsToken(std::string_view text) {
  if (text.empty()) return false;
  for (const char c : text) {
    if (!IsTokenChar(static_cast<unsigned char>(c))) return false;
  }
  return true;
}

HeadParse Reject(int status, std::string problem) {
  HeadParse result;
  result.state = HeadState::kRejected;
  result.status = status;
  result.problem = std::move(problem);
  return result;
}

// "GET /path HTTP/1.1": exactly three parts with single spaces.
HeadParse ParseRequestLine(std::string_view line, RequestHead& head) {
  const size_t first = line.find(' ');
  const size_t second = first == std::string_view::npos ? first : line.find(' ', first + 1);
  if (second == std::string_view::npos || line.find(' ', second + 1) != std::string_view::npos) {
    return Reject(400, "the request line is not 'METHOD target HTTP/1.x'");
  }
  head.method = std::string(line.substr(0, first));
  head.target = std::string(line.substr(first + 1, second - first - 1));
  const std::string_view version = line.substr(second + 1);
  if (!IsToken(head.method)) return Reject(400, "the method is not an HTTP token");
  if (head.target.empty()) return Reject(400, "the request target is empty");
  for (const char c : head.target) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte <= ' ' || byte >= 0x7F) return Reject(400, "the request target holds a byte URLs may not hold");
  }
  if (version.size() != 8 || version.substr(0, 5) != "HTTP/" || version[6] != '.' || version[5] < '0' ||
      version[5] > '9' || version[7] < '0' || version[7] > '9') {
    return Reject(400, "the request line does not end in an HTTP version");
  }
  if (version[5] != '1' || version[7] > '1') return Reject(505, "only HTTP/1.0 and HTTP/1.1 are served");
  head.minorVersion = version[7] - '0';
  return HeadParse{};
}

HeadParse ParseField(std::string_view line, RequestHead& head) {
  if (line.front() == ' ' || line.front() == '\t') return Reject(400, "folded header lines are not accepted");
  const size_t colon = line.find(':');
  if (colon == std::string_view::npos || !IsToken(line.substr(0, colon))) {
    return Reject(400, "a header line is not 'Name: value'");
  }
  std::string_view value = line.substr(colon + 1);
  while (!value.empty() && (value.front() == ' ' || value.front() == '\t')) value.remove_prefix(1);
  while (!value.empty() && (value.back() == ' ' || value.back() == '\t')) value.remove_suffix(1);
  for (const char c : value) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte < ' ' && byte != '\t') || byte == 0x7F) return Reject(400, "a header value holds a control character");
  }
  // Texts reach the service as Unicode: other bytes could not pass unchanged.
  if (!PalvonAuthManagerSDK::IsValidUtf8(value)) return Reject(400, "a header value is neither ASCII nor UTF-8");
  head.headers.push_back(std::string(line.substr(0, colon)) + ": " + std::string(value));
  return HeadParse{};
}

}  // namespace

HeadParse ParseRequestHead(std::string_view input, const HeadLimits& limits) {
  HeadParse result;
  size_t at = 0;
  bool haveRequestLine = false;
  for (;;) {
    const size_t end = input.find('\n', at);
    const size_t lineLimit = haveRequestLine ? limits.maxBlock : limits.maxRequestLine;
    if (end == std::string_view::npos) {
      if (input.size() - at > lineLimit || input.size() > limits.maxBlock) break;
      return result;
    }
    if (end + 1 > limits.maxBlock || end - at > lineLimit) break;
    std::string_view line = input.substr(at, end - at);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    at = end + 1;
    if (line.empty()) {
      if (!haveRequestLine) continue;
      result.state = HeadState::kComplete;
      result.consumed = at;
      return result;
    }
    if (!haveRequestLine) {
      haveRequestLine = true;
      HeadParse problem = ParseRequestLine(line, result.head);
      if (problem.state == HeadState::kRejected) return problem;
      continue;
    }
    if (result.head.headers.size() == limits.maxFields) {
      return Reject(431, "more than " + std::to_string(limits.maxFields) + " header lines");
    }
    HeadParse problem = ParseField(line, result.head);
    if (problem.state == HeadState::kRejected) return problem;
  }
  if (!haveRequestLine)
    return Reject(414, "the request line is longer than " + std::to_string(limits.maxRequestLine) + " bytes");
  return Reject(431, "the header block is longer than " + std::to_string(limits.maxBlock) + " bytes");
}

bool WantsKeepAlive(const RequestHead& head) {
  if (HasToken(head.headers, "connection", "close")) return false;
  return head.minorVersion >= 1 || HasToken(head.headers, "connection", "keep-alive");
}

}  // namespace palvonauth

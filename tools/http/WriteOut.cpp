#include "http/WriteOut.h"

#include <cstdio>
#include <stdexcept>

namespace palvonauth {

const char* const kWriteOutVariables = "http_code, response_code, size_download, url_effective, num_redirects";

namespace {

std::string Variable(std::string_view name, const TransferSummary& summary) {
  if (name == "http_code" || name == "response_code") {
    char code[16];
    std::snprintf(code, sizeof code, "%03u", static_cast<unsigned>(summary.status));
    return code;
  }
  if (name == "size_download") return std::to_string(summary.bodyBytes);
  if (name == "url_effective") return summary.url;
  if (name == "num_redirects") return std::to_string(summary.redirects);
  throw std::invalid_argument("unknown variable '" + std::string(name) + "' (known: " + kWriteOutVariables + ")");
}

}  // namespace

std::string RenderWriteOut(std::string_view format, const TransferSummary& summary) {
  std::string text;
  for (size_t at = 0; at < format.size(); ++at) {
    const char c = format[at];
    const char next = at + 1 < format.size() ? format[at + 1] : '\0';
    if (c == '%' && next == '%') {
      text += '%';
      ++at;
    } else if (c == '%' && next == '{' && format.find('}', at) != std::string_view::npos) {
      const size_t end = format.find('}', at);
      text += Variable(format.substr(at + 2, end - at - 2), summary);
      at = end;
    } else if (c == '\\' && (next == 'n' || next == 'r' || next == 't' || next == '\\')) {
      text += next == 'n' ? '\n' : next == 'r' ? '\r' : next == 't' ? '\t' : '\\';
      ++at;
    } else {
      text += c;
    }
  }
  return text;
}

}  // namespace palvonauth

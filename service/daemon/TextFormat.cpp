#include "daemon/TextFormat.h"

#include <cstdio>

namespace palvonauthd {

std::string Quote(const std::string& text) {
  std::string out = "\"";
  for (const char ch : text) {
    const auto c = static_cast<unsigned char>(ch);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += ch;
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '\t') {
      out += "\\t";
    } else if (c < 0x20 || c == 0x7F) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02X", c);
      out += escaped;
    } else {
      out += ch;
    }
  }
  return out + "\"";
}

std::string UrlEncode(const std::string& text) {
  static const char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(text.size() * 3);
  for (const char ch : text) {
    const auto c = static_cast<unsigned char>(ch);
    if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
        c == '_' || c == '~') {
      out += static_cast<char>(c);
    } else {
      out += '%';
      out += kHex[c >> 4];
      out += kHex[c & 0x0F];
    }
  }
  return out;
}

std::string XmlEscape(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&apos;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

namespace {

// Walks a template; calls literal(text) and placeholder(name). Returns an
// error description for malformed templates.
template <typename Literal, typename Placeholder>
std::optional<std::string> WalkTemplate(const std::string& text, Literal literal, Placeholder placeholder) {
  size_t i = 0;
  while (i < text.size()) {
    const char c = text[i];
    if (c == '{' && i + 1 < text.size() && text[i + 1] == '{') {
      literal("{");
      i += 2;
    } else if (c == '}' && i + 1 < text.size() && text[i + 1] == '}') {
      literal("}");
      i += 2;
    } else if (c == '{') {
      const size_t close = text.find('}', i + 1);
      if (close == std::string::npos) return "unclosed '{' at offset " + std::to_string(i);
      const std::string name = text.substr(i + 1, close - i - 1);
      if (auto problem = placeholder(name)) return problem;
      i = close + 1;
    } else if (c == '}') {
      return "unmatched '}' at offset " + std::to_string(i) + " (write '}}' for a literal brace)";
    } else {
      literal(std::string(1, c));
      ++i;
    }
  }
  return std::nullopt;
}

}  // namespace

std::string ExpandTemplate(const std::string& text, const TemplateValues& values) {
  std::string out;
  (void)WalkTemplate(
      text, [&](const std::string& piece) { out += piece; },
      [&](const std::string& name) -> std::optional<std::string> {
        const auto it = values.find(name);
        if (it != values.end()) out += it->second;
        return std::nullopt;
      });
  return out;
}

std::optional<std::string> CheckTemplate(const std::string& text, const std::set<std::string>& allowed) {
  return WalkTemplate(
      text, [](const std::string&) {},
      [&](const std::string& name) -> std::optional<std::string> {
        if (allowed.count(name) != 0) return std::nullopt;
        std::string known;
        for (const auto& candidate : allowed) known += (known.empty() ? "{" : ", {") + candidate + "}";
        return "unknown placeholder {" + name + "}; known: " + known;
      });
}

std::string Abbreviate(const std::string& text, size_t limit) {
  if (text.size() <= limit) return text;
  return text.substr(0, limit) + "...(" + std::to_string(text.size()) + " bytes)";
}

std::string WithoutTrailingSlash(std::string text) {
  while (text.size() > 1 && text.back() == '/') text.pop_back();
  return text;
}

}  // namespace palvonauthd

#include "daemon/Text.h"

namespace palvonauthd {

std::string ToUtf8(const std::wstring& text) {
  std::string out;
  out.reserve(text.size());
  for (const wchar_t wc : text) {
    uint32_t c = static_cast<uint32_t>(wc);
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = 0xFFFD;
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += static_cast<char>(0xE0 | (c >> 12));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (c >> 18));
      out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

std::wstring FromUtf8(const std::string& text) {
  std::wstring out;
  out.reserve(text.size());
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  const size_t size = text.size();
  size_t i = 0;
  while (i < size) {
    const unsigned char lead = bytes[i];
    size_t extra = 0;
    uint32_t c = 0;
    uint32_t minimum = 0;
    if (lead < 0x80) {
      out += static_cast<wchar_t>(lead);
      ++i;
      continue;
    } else if ((lead & 0xE0) == 0xC0) {
      extra = 1;
      c = lead & 0x1F;
      minimum = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
      extra = 2;
      c = lead & 0x0F;
      minimum = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
      extra = 3;
      c = lead & 0x07;
      minimum = 0x10000;
    }
    bool valid = extra > 0 && i + extra < size;
    if (valid) {
      for (size_t k = 1; k <= extra; ++k) {
        if ((bytes[i + k] & 0xC0) != 0x80) {
          valid = false;
          break;
        }
        c = (c << 6) | (bytes[i + k] & 0x3F);
      }
    }
    if (valid && (c < minimum || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF))) valid = false;
    if (valid) {
      out += static_cast<wchar_t>(c);
      i += extra + 1;
    } else {
      out += static_cast<wchar_t>(lead);
      ++i;
    }
  }
  return out;
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

#include "MiniJson.h"

#include <cmath>
#include <cstdlib>

namespace pam_test {

namespace {

class Parser {
 public:
  explicit Parser(const std::string& text) : text_(text) {}

  Json Document() {
    Json value = Value();
    Blanks();
    if (pos_ != text_.size()) Fail("trailing characters");
    return value;
  }

 private:
  [[noreturn]] void Fail(const std::string& what) const {
    throw std::runtime_error("JSON: " + what + " at offset " + std::to_string(pos_));
  }
  void Blanks() {
    while (pos_ < text_.size() &&
           (text_[pos_] == ' ' || text_[pos_] == '\t' || text_[pos_] == '\n' || text_[pos_] == '\r')) {
      ++pos_;
    }
  }
  char Peek() const { return pos_ < text_.size() ? text_[pos_] : '\0'; }
  void Expect(char c) {
    if (Peek() != c) Fail(std::string("expected '") + c + "'");
    ++pos_;
  }
  void Literal(const char* word) {
    for (const char* p = word; *p != '\0'; ++p) Expect(*p);
  }

  Json Value() {
    Blanks();
    Json value;
    const char c = Peek();
    if (c == '{') {
      value.kind = Json::Kind::kObject;
      ++pos_;
      Blanks();
      if (Peek() == '}') {
        ++pos_;
        return value;
      }
      for (;;) {
        Blanks();
        std::string key = String();
        Blanks();
        Expect(':');
        value.members.emplace_back(std::move(key), Value());
        Blanks();
        if (Peek() == ',') {
          ++pos_;
          continue;
        }
        Expect('}');
        return value;
      }
    }
    if (c == '[') {
      value.kind = Json::Kind::kArray;
      ++pos_;
      Blanks();
      if (Peek() == ']') {
        ++pos_;
        return value;
      }
      for (;;) {
        value.items.push_back(Value());
        Blanks();
        if (Peek() == ',') {
          ++pos_;
          continue;
        }
        Expect(']');
        return value;
      }
    }
    if (c == '"') {
      value.kind = Json::Kind::kString;
      value.text = String();
      return value;
    }
    if (c == 't' || c == 'f') {
      value.kind = Json::Kind::kBool;
      value.boolean = c == 't';
      Literal(value.boolean ? "true" : "false");
      return value;
    }
    if (c == 'n') {
      Literal("null");
      return value;
    }
    value.kind = Json::Kind::kNumber;
    value.number = Number();
    return value;
  }

  double Number() {
    const size_t start = pos_;
    if (Peek() == '-') ++pos_;
    if (Peek() == '0') {
      ++pos_;
    } else if (Peek() >= '1' && Peek() <= '9') {
      while (Peek() >= '0' && Peek() <= '9') ++pos_;
    } else {
      Fail("bad value");
    }
    if (Peek() == '.') {
      ++pos_;
      if (!(Peek() >= '0' && Peek() <= '9')) Fail("bad fraction");
      while (Peek() >= '0' && Peek() <= '9') ++pos_;
    }
    if (Peek() == 'e' || Peek() == 'E') {
      ++pos_;
      if (Peek() == '+' || Peek() == '-') ++pos_;
      if (!(Peek() >= '0' && Peek() <= '9')) Fail("bad exponent");
      while (Peek() >= '0' && Peek() <= '9') ++pos_;
    }
    return std::strtod(text_.substr(start, pos_ - start).c_str(), nullptr);
  }

  unsigned Hex4() {
    unsigned value = 0;
    for (int i = 0; i < 4; ++i) {
      const char c = Peek();
      ++pos_;
      value <<= 4;
      if (c >= '0' && c <= '9') {
        value |= static_cast<unsigned>(c - '0');
      } else if (c >= 'a' && c <= 'f') {
        value |= static_cast<unsigned>(c - 'a' + 10);
      } else if (c >= 'A' && c <= 'F') {
        value |= static_cast<unsigned>(c - 'A' + 10);
      } else {
        Fail("bad \\u escape");
      }
    }
    return value;
  }

  static void Append(std::string& out, uint32_t c) {
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

  std::string String() {
    Expect('"');
    std::string out;
    for (;;) {
      if (pos_ >= text_.size()) Fail("unterminated string");
      const auto c = static_cast<unsigned char>(text_[pos_++]);
      if (c == '"') return out;
      if (c < 0x20) Fail("raw control character in string");
      if (c != '\\') {
        out += static_cast<char>(c);
        continue;
      }
      const char e = Peek();
      ++pos_;
      switch (e) {
        case '"':
          out += '"';
          break;
        case '\\':
          out += '\\';
          break;
        case '/':
          out += '/';
          break;
        case 'b':
          out += '\b';
          break;
        case 'f':
          out += '\f';
          break;
        case 'n':
          out += '\n';
          break;
        case 'r':
          out += '\r';
          break;
        case 't':
          out += '\t';
          break;
        case 'u': {
          uint32_t code = Hex4();
          if (code >= 0xD800 && code <= 0xDBFF) {
            Expect('\\');
            Expect('u');
            const uint32_t low = Hex4();
            if (low < 0xDC00 || low > 0xDFFF) Fail("unpaired surrogate");
            code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
          } else if (code >= 0xDC00 && code <= 0xDFFF) {
            Fail("unpaired surrogate");
          }
          Append(out, code);
          break;
        }
        default:
          Fail("bad escape");
      }
    }
  }

  const std::string& text_;
  size_t pos_ = 0;
};

}  // namespace

bool Json::Has(const std::string& key) const {
  for (const auto& member : members) {
    if (member.first == key) return true;
  }
  return false;
}

const Json& Json::operator[](const std::string& key) const {
  if (kind != Kind::kObject) throw std::runtime_error("JSON: not an object when looking up " + key);
  for (const auto& member : members) {
    if (member.first == key) return member.second;
  }
  throw std::runtime_error("JSON: no member " + key);
}

const Json& Json::operator[](size_t index) const {
  if (kind != Kind::kArray || index >= items.size()) throw std::runtime_error("JSON: no item");
  return items[index];
}

uint64_t Json::UInt() const {
  if (kind != Kind::kNumber || number < 0 || std::floor(number) != number) {
    throw std::runtime_error("JSON: not an unsigned integer");
  }
  return static_cast<uint64_t>(number);
}

const std::string& Json::Str() const {
  if (kind != Kind::kString) throw std::runtime_error("JSON: not a string");
  return text;
}

std::vector<std::string> Json::Keys() const {
  std::vector<std::string> keys;
  for (const auto& member : members) keys.push_back(member.first);
  return keys;
}

Json Json::Parse(const std::string& document) { return Parser(document).Document(); }

}  // namespace pam_test

#include "Text.h"

namespace palvonauth {

namespace {

bool IsScalarValue(uint32_t c) { return c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF); }

// Decodes one sequence starting at `pos`. Returns the number of bytes taken
// and stores the code point, or U+FFFD for an ill-formed subsequence (which
// then covers the lead byte and every continuation byte that was still
// acceptable at its position).
size_t DecodeOne(std::string_view in, size_t pos, char32_t& out, bool& ok) {
  ok = false;
  const auto lead = static_cast<unsigned char>(in[pos]);
  if (lead < 0x80) {
    out = lead;
    ok = true;
    return 1;
  }
  size_t length = 0;
  uint32_t value = 0;
  // Bounds of the second byte exclude overlong forms, surrogates and values
  // above U+10FFFF at the earliest possible byte.
  unsigned char low = 0x80;
  unsigned char high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
    value = lead & 0x1F;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    value = lead & 0x0F;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    value = lead & 0x07;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    out = kReplacementCharacter;
    return 1;
  }
  size_t taken = 1;
  for (; taken < length; ++taken) {
    if (pos + taken >= in.size()) break;
    const auto byte = static_cast<unsigned char>(in[pos + taken]);
    const unsigned char min = taken == 1 ? low : 0x80;
    const unsigned char max = taken == 1 ? high : 0xBF;
    if (byte < min || byte > max) break;
    value = (value << 6) | (byte & 0x3F);
  }
  if (taken != length) {
    out = kReplacementCharacter;
    return taken;
  }
  out = value;
  ok = true;
  return length;
}

}  // namespace

std::wstring Utf8ToWide(std::string_view utf8) {
  std::wstring out;
  out.reserve(utf8.size());
  size_t pos = 0;
  while (pos < utf8.size()) {
    char32_t c = 0;
    bool ok = false;
    pos += DecodeOne(utf8, pos, c, ok);
    out += static_cast<wchar_t>(c);
  }
  return out;
}

void AppendUtf8(std::string& out, char32_t codePoint) {
  uint32_t c = static_cast<uint32_t>(codePoint);
  if (!IsScalarValue(c)) c = kReplacementCharacter;
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

std::string WideToUtf8(std::wstring_view wide) {
  std::string out;
  out.reserve(wide.size());
  // wchar_t is signed here: go through uint32_t so negative values end up
  // above U+10FFFF and are replaced.
  for (wchar_t wc : wide) AppendUtf8(out, static_cast<char32_t>(static_cast<uint32_t>(wc)));
  return out;
}

std::string WideToUtf8(const wchar_t* text) {
  if (text == nullptr) return std::string();
  return WideToUtf8(std::wstring_view(text));
}

bool IsValidUtf8(std::string_view bytes) {
  size_t pos = 0;
  while (pos < bytes.size()) {
    char32_t c = 0;
    bool ok = false;
    pos += DecodeOne(bytes, pos, c, ok);
    if (!ok) return false;
  }
  return true;
}

}  // namespace palvonauth

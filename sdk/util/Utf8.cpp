#include "util/Utf8.h"

#include <utf8.h>

#include <cstdint>
#include <iterator>

namespace PalvonAuthManagerSDK {

namespace {

bool IsScalarValue(uint32_t c) { return c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF); }

}  // namespace

void AppendUtf8(std::string& out, char32_t codePoint) {
  const auto c = static_cast<uint32_t>(codePoint);
  utf8::unchecked::append(IsScalarValue(c) ? c : static_cast<uint32_t>(kReplacementCharacter),
                          std::back_inserter(out));
}

std::string ToUtf8(std::wstring_view text) {
  std::string out;
  out.reserve(text.size());
  for (const wchar_t c : text) AppendUtf8(out, static_cast<char32_t>(static_cast<uint32_t>(c)));
  return out;
}

std::wstring FromUtf8(std::string_view text) {
  std::string valid;
  valid.reserve(text.size());
  utf8::replace_invalid(text.begin(), text.end(), std::back_inserter(valid), kReplacementCharacter);
  std::wstring out;
  out.reserve(valid.size());
  utf8::unchecked::utf8to32(valid.begin(), valid.end(), std::back_inserter(out));
  return out;
}

std::wstring FromUtf8OrLatin1(std::string_view text) {
  std::wstring out;
  out.reserve(text.size());
  auto it = text.begin();
  while (it != text.end()) {
    const auto start = it;
    try {
      out += static_cast<wchar_t>(utf8::next(it, text.end()));
    } catch (const utf8::exception&) {
      out += static_cast<wchar_t>(static_cast<unsigned char>(*start));
      it = start + 1;
    }
  }
  return out;
}

bool IsValidUtf8(std::string_view bytes) { return utf8::is_valid(bytes.begin(), bytes.end()); }

}  // namespace PalvonAuthManagerSDK

#include "common/Utf8.h"

#include <cstdint>

namespace pam_service {

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

}  // namespace pam_service

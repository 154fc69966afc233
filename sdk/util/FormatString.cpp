#include "FormatString.h"

#include <cwchar>

namespace PalvonAuthManagerSDK {

std::wstring FormatStringV(const wchar_t* format, va_list args) {
  if (format == nullptr) return std::wstring();
  // vswprintf leaves the buffer unterminated when the text does not fit, and
  // stops early on a conversion it cannot encode; the zero fill and the final
  // terminator make both cases a clean cut.
  wchar_t buffer[kMaxFormattedChars + 1] = {};
  (void)vswprintf(buffer, kMaxFormattedChars + 1, format, args);
  buffer[kMaxFormattedChars] = L'\0';
  return std::wstring(buffer);
}

std::wstring FormatString(const wchar_t* format, ...) {
  va_list args;
  va_start(args, format);
  std::wstring text = FormatStringV(format, args);
  va_end(args);
  return text;
}

}  // namespace PalvonAuthManagerSDK

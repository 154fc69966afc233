#ifndef PALVON_SDK_UTIL_FORMATSTRING_H
#define PALVON_SDK_UTIL_FORMATSTRING_H

#include <cstdarg>
#include <string>

namespace PalvonAuthManagerSDK {

/** Longest formatted text in characters; longer output is cut to it. */
constexpr size_t kMaxFormattedChars = 1023;

/** Wide printf-style formatting into at most 1,023 characters; null format gives "". */
std::wstring FormatStringV(const wchar_t* format, va_list args);
std::wstring FormatString(const wchar_t* format, ...);

}  // namespace PalvonAuthManagerSDK

#endif

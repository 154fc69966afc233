#ifndef PALVON_SDK_UTIL_UTF8_H
#define PALVON_SDK_UTIL_UTF8_H

// The project's one conversion between UTF-8 and the UTF-32 text of a 32-bit
// wchar_t, for the service and the tool (the library itself passes bytes
// through unchanged). It never consults the locale.

#include <string>
#include <string_view>

namespace PalvonAuthManagerSDK {

/** The character written for anything that is not valid text. */
constexpr char32_t kReplacementCharacter = 0xFFFD;

/** Encodes UTF-32 as UTF-8; values that are not Unicode scalar values become U+FFFD. */
std::string ToUtf8(std::wstring_view text);
/** Decodes UTF-8; each ill-formed sequence becomes one U+FFFD. */
std::wstring FromUtf8(std::string_view text);
/**
 * Decodes UTF-8, taking each byte that does not start a well-formed sequence
 * as a Latin-1 character, which is how HTTP header bytes are read
 * traditionally.
 */
std::wstring FromUtf8OrLatin1(std::string_view text);
/** True when the bytes are well-formed UTF-8. */
bool IsValidUtf8(std::string_view bytes);
/** Appends the UTF-8 form of one code point (U+FFFD for a value that is not a scalar value). */
void AppendUtf8(std::string& out, char32_t codePoint);

}  // namespace PalvonAuthManagerSDK

#endif

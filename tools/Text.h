#ifndef PALVONAUTH_TOOLS_TEXT_H
#define PALVONAUTH_TOOLS_TEXT_H

// Conversions between the terminal's UTF-8 and the library's AMChar text
// (UTF-32 in a 32-bit wchar_t). They never consult the locale: the tool
// must behave the same under "C", "POSIX" and any UTF-8 locale.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace palvonauth {

/** The replacement character written for anything that is not valid text. */
constexpr char32_t kReplacementCharacter = 0xFFFD;

/**
 * Decodes UTF-8 into UTF-32. Each maximal ill-formed subsequence (overlong
 * forms, encoded surrogates, values above U+10FFFF, truncated sequences,
 * stray continuation bytes) becomes one U+FFFD.
 */
std::wstring Utf8ToWide(std::string_view utf8);

/**
 * Encodes UTF-32 as UTF-8. Values that are not Unicode scalar values
 * (surrogates, values above U+10FFFF, negative wchar_t) become U+FFFD.
 */
std::string WideToUtf8(std::wstring_view wide);

/** Encodes a nul-terminated library text; a null pointer gives "". */
std::string WideToUtf8(const wchar_t* text);

/** Appends the UTF-8 form of one code point (U+FFFD for non-scalar values). */
void AppendUtf8(std::string& out, char32_t codePoint);

/** True when the bytes are well-formed UTF-8. */
bool IsValidUtf8(std::string_view bytes);

}  // namespace palvonauth

#endif

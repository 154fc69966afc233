#ifndef PALVON_SERVICE_COMMON_UTF8_H
#define PALVON_SERVICE_COMMON_UTF8_H

#include <string>

namespace pam_service {

/** UTF-32 (wchar_t) to UTF-8; invalid code points become U+FFFD. */
std::string ToUtf8(const std::wstring& text);
/**
 * UTF-8 to UTF-32. Bytes that are not valid UTF-8 are taken as Latin-1
 * characters, which is how HTTP header bytes are read traditionally.
 */
std::wstring FromUtf8(const std::string& text);

}  // namespace pam_service

#endif

#ifndef PALVONAUTH_TOOLS_COMMANDS_LIBRARYTEXT_H
#define PALVONAUTH_TOOLS_COMMANDS_LIBRARYTEXT_H

// Texts the library hands out (AMChar: UTF-32 in a 32-bit wchar_t), which
// the caller releases.

#include <string>

#include "PalvonAuthManager.h"
#include "util/Utf8.h"

namespace palvonauth {

/** Owns a text handed out by the library. */
struct LibraryText {
  PalvonAuthManagerSDK::AMChar* text = nullptr;
  LibraryText() = default;
  ~LibraryText() { (void)PalvonAuthManagerSDK::PalvonAuthManager_FreeString(text); }
  LibraryText(const LibraryText&) = delete;
  LibraryText& operator=(const LibraryText&) = delete;
};

/** A library text as UTF-8; a text the library left out (null) gives "". */
inline std::string ToUtf8OrEmpty(const PalvonAuthManagerSDK::AMChar* text) {
  return text != nullptr ? PalvonAuthManagerSDK::ToUtf8(text) : std::string();
}

}  // namespace palvonauth

#endif

#ifndef PALVON_SDK_PROTOCOL_KEYS_H
#define PALVON_SDK_PROTOCOL_KEYS_H

#include <cstdint>
#include <string>

namespace PalvonAuthManagerSDK {

/** Names of the values a message carries (Keys.def lists them). */
namespace key {
#define PAM_KEY(id, text) inline constexpr const wchar_t id[] = L"" text;
#include "protocol/Keys.def"
#undef PAM_KEY

/** A key of a numbered series: the prefix followed by the index in decimal. */
std::wstring Indexed(const wchar_t* prefix, uint32_t index);
}  // namespace key

}  // namespace PalvonAuthManagerSDK

#endif

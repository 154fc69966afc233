#ifndef PALVON_SDK_UTIL_TRACETEXTS_H
#define PALVON_SDK_UTIL_TRACETEXTS_H

// Trace texts that more than one operation writes.

namespace PalvonAuthManagerSDK {
namespace text {

// "chaught" is the trace text as fixed; kept on purpose.
inline constexpr const wchar_t kUnexpectedException[] = L"Unexpected exception chaught.";
inline constexpr const wchar_t kInvalidConnection[] = L"Invalid connection handle %u.";
inline constexpr const wchar_t kInvalidContext[] = L"Invalid request context handle %u.";

}  // namespace text
}  // namespace PalvonAuthManagerSDK

#endif

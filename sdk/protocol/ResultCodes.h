#ifndef PALVON_SDK_PROTOCOL_RESULTCODES_H
#define PALVON_SDK_PROTOCOL_RESULTCODES_H

#include <cstdint>

namespace PalvonAuthManagerSDK {

/** Result codes the library produces or interprets ("return" of a reply). */
namespace rc {
constexpr uint32_t kSuccess = 0;
constexpr uint32_t kIpcSetupFailed = 0xFFFF;
constexpr uint32_t kAlreadyInitialized = 0xFFFE;
constexpr uint32_t kNotInitialized = 0xFFFD;
constexpr uint32_t kBadParameter = 0xFFFB;
constexpr uint32_t kInvalidHandle = 0xFFFA;
constexpr uint32_t kCommunicationFailure = 0xFFF8;
constexpr uint32_t kNotImplemented = 0xFFF5;
constexpr uint32_t kBusy = 0xFF00;
}  // namespace rc

}  // namespace PalvonAuthManagerSDK

#endif

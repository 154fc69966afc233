#ifndef PALVON_SDK_PROTOCOL_RESULTCODES_H
#define PALVON_SDK_PROTOCOL_RESULTCODES_H

#include <cstdint>

#include "PalvonAuthManager.h"

namespace PalvonAuthManagerSDK {

/**
 * Result codes the library produces or interprets ("return" of a reply),
 * under short names; the public header defines their values.
 */
namespace rc {
constexpr uint32_t kSuccess = AM_RESULT_SUCCESS;
constexpr uint32_t kIpcSetupFailed = AM_RESULT_IPC_SETUP_FAILED;
constexpr uint32_t kAlreadyInitialized = AM_RESULT_ALREADY_INITIALIZED;
constexpr uint32_t kNotInitialized = AM_RESULT_NOT_INITIALIZED;
constexpr uint32_t kBadParameter = AM_RESULT_BAD_PARAMETER;
constexpr uint32_t kInvalidHandle = AM_RESULT_INVALID_HANDLE;
constexpr uint32_t kCommunicationFailure = AM_RESULT_COMMUNICATION_FAILURE;
constexpr uint32_t kNotImplemented = AM_RESULT_NOT_IMPLEMENTED;
constexpr uint32_t kBusy = AM_RESULT_SERVICE_BUSY;
}  // namespace rc

}  // namespace PalvonAuthManagerSDK

#endif

#ifndef PALVON_SDK_MESSAGE_MESSAGETYPES_H
#define PALVON_SDK_MESSAGE_MESSAGETYPES_H

#include <cstdint>

namespace PalvonAuthManagerSDK {

/** Message type numbers carried in the envelope of each request. */
namespace msg {
constexpr uint32_t kInitialize = 1;
constexpr uint32_t kUninitialize = 3;
constexpr uint32_t kCreateConnection = 5;
constexpr uint32_t kDestroyConnection = 9;
constexpr uint32_t kClearAllCredentials = 11;
constexpr uint32_t kCancelAllCalls = 13;
constexpr uint32_t kLogOff = 15;
constexpr uint32_t kLogOffGateway = 17;
constexpr uint32_t kLogOffAuthService = 19;
constexpr uint32_t kGetLogonStatus = 21;
constexpr uint32_t kGenerateTrampolineUrl = 31;
constexpr uint32_t kCreateVpnAuthContext = 45;
constexpr uint32_t kDestroyVpnAuthContext = 47;
constexpr uint32_t kGetVpnAuthorizationInfo = 49;
constexpr uint32_t kGetVersion = 59;
constexpr uint32_t kSetClientWindow = 61;
constexpr uint32_t kDetermineServerType = 63;
constexpr uint32_t kRetrieveGatewayDiscoveryData = 67;
constexpr uint32_t kGetServerSDKVersion = 83;
constexpr uint32_t kLaunchRZPFile = 85;
constexpr uint32_t kCreateAMHttpRequest = 256;
constexpr uint32_t kAddRequestHeader = 258;
constexpr uint32_t kSetRequestMethod = 260;
constexpr uint32_t kSetRequestUrl = 262;
constexpr uint32_t kSetRequestReferenceUrl = 264;
constexpr uint32_t kSetRequestAuthenticationFlags = 266;
constexpr uint32_t kSetRequestUserAgentSuffix = 268;
constexpr uint32_t kSetRequestData = 270;
constexpr uint32_t kSetRequestRoute = 272;
constexpr uint32_t kSetRequestTimeoutSeconds = 274;
constexpr uint32_t kSendRequestAndReceiveResponse = 276;
constexpr uint32_t kGetResponseStatusCode = 278;
constexpr uint32_t kGetResponseReasonPhrase = 280;
constexpr uint32_t kGetResponseHeaders = 282;
constexpr uint32_t kDestroyAMHttpRequest = 284;
constexpr uint32_t kReadResponseBodyStream = 286;
constexpr uint32_t kGetResponseTrustFailureFlags = 288;
/** Registration records carry this type and no body. */
constexpr uint32_t kRegistration = 0xFFFFFFFFu;
}  // namespace msg

/** Result codes the library produces or interprets. */
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

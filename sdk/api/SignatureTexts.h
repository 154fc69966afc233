#ifndef PALVON_SDK_API_SIGNATURETEXTS_H
#define PALVON_SDK_API_SIGNATURETEXTS_H

// Full signature texts written by the entry and exit trace lines: return type,
// qualified name and parameter types, library types qualified with the
// namespace except parameter types that start with "const".

namespace PalvonAuthManagerSDK {
namespace sig {

constexpr const char* kGetServerSDKVersion =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::GetServerSDKVersion(PalvonAuthManagerSDK::AMUint*)";


/** Operations of LinuxAMImplementation. */
namespace l1 {
constexpr const char* kInitialize =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::Initialize()";
constexpr const char* kUninitialize =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::Uninitialize()";
constexpr const char* kCreateConnection =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::CreateConnection(const AMChar*, PalvonAuthManagerSDK::StatusChangeCallback, void*, PalvonAuthManagerSDK::ConnectionHandle*)";
constexpr const char* kDestroyConnection =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::DestroyConnection(PalvonAuthManagerSDK::ConnectionHandle)";
constexpr const char* kClearAllCredentials =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::ClearAllCredentials(PalvonAuthManagerSDK::ConnectionHandle)";
constexpr const char* kCancelAllCalls =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::CancelAllCalls(PalvonAuthManagerSDK::ConnectionHandle)";
constexpr const char* kLogOff =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::LogOff(PalvonAuthManagerSDK::ConnectionHandle)";
constexpr const char* kCreateVpnAuthContext =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::CreateVpnAuthContext(PalvonAuthManagerSDK::ConnectionHandle, const AM_GATEWAY_INFO*, PalvonAuthManagerSDK::AMAuthenticationFlags, PalvonAuthManagerSDK::VpnAuthContextHandle*)";
constexpr const char* kDestroyVpnAuthContext =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::DestroyVpnAuthContext(PalvonAuthManagerSDK::VpnAuthContextHandle)";
constexpr const char* kGetVpnAuthorizationInfo =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::GetVpnAuthorizationInfo(PalvonAuthManagerSDK::VpnAuthContextHandle, PalvonAuthManagerSDK::AM_VPN_AUTHORIZATION_INFO**)";
constexpr const char* kFreeVpnAuthorizationInfo =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::FreeVpnAuthorizationInfo(PalvonAuthManagerSDK::AM_VPN_AUTHORIZATION_INFO*)";
constexpr const char* kGenerateTrampolineUrl =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::GenerateTrampolineUrl(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*, PalvonAuthManagerSDK::AMAuthenticationFlags, const AMChar*, PalvonAuthManagerSDK::AMChar**, PalvonAuthManagerSDK::AMAuthenticationResult*)";
constexpr const char* kFreeString =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::FreeString(PalvonAuthManagerSDK::AMChar*)";
constexpr const char* kGetVersion =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::GetVersion(PalvonAuthManagerSDK::ConnectionHandle, PalvonAuthManagerSDK::AMChar**)";
constexpr const char* kSetClientWindow =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::SetClientWindow(PalvonAuthManagerSDK::ConnectionHandle, PalvonAuthManagerSDK::AMWindowId)";
constexpr const char* kDetermineServerType =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::DetermineServerType(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*, PalvonAuthManagerSDK::AM_SERVER_INFO**)";
constexpr const char* kFreeServerInfo =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::FreeServerInfo(PalvonAuthManagerSDK::AM_SERVER_INFO*)";
constexpr const char* kRetrieveGatewayDiscoveryData =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::RetrieveGatewayDiscoveryData(PalvonAuthManagerSDK::ConnectionHandle, const AM_GATEWAY_INFO*, PalvonAuthManagerSDK::AMAuthenticationFlags, PalvonAuthManagerSDK::AMChar**, PalvonAuthManagerSDK::AMAuthenticationResult*)";
constexpr const char* kLogOffGateway =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::LogOffGateway(PalvonAuthManagerSDK::ConnectionHandle, const AM_GATEWAY_INFO*)";
constexpr const char* kLogOffAuthService =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::LogOffAuthService(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*)";
constexpr const char* kGetLogonStatus =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::GetLogonStatus(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*, PalvonAuthManagerSDK::AMLogonStatus*)";
}  // namespace l1

/** Operations of LinuxAMImplementationV2. */
namespace l2 {
constexpr const char* kCreateAMHttpRequest =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::CreateAMHttpRequest(PalvonAuthManagerSDK::ConnectionHandle, PalvonAuthManagerSDK::AMHttpHandle*)";
constexpr const char* kAddRequestHeader =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::AddRequestHeader(PalvonAuthManagerSDK::AMHttpHandle, const AMChar*)";
constexpr const char* kSetRequestMethod =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::SetRequestMethod(PalvonAuthManagerSDK::AMHttpHandle, const AMChar*)";
constexpr const char* kSetRequestUrl =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::SetRequestUrl(PalvonAuthManagerSDK::AMHttpHandle, const AMChar*)";
constexpr const char* kSetRequestReferenceUrl =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::SetRequestReferenceUrl(PalvonAuthManagerSDK::AMHttpHandle, const AMChar*)";
constexpr const char* kSetRequestAuthenticationFlags =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::SetRequestAuthenticationFlags(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMAuthenticationFlags)";
constexpr const char* kSetRequestUserAgentSuffix =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::SetRequestUserAgentSuffix(PalvonAuthManagerSDK::AMHttpHandle, const AMChar*)";
constexpr const char* kSetRequestData =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::SetRequestData(PalvonAuthManagerSDK::AMHttpHandle, const AMByte*, PalvonAuthManagerSDK::AMUint)";
constexpr const char* kSetRequestRoute =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::SetRequestRoute(PalvonAuthManagerSDK::AMHttpHandle, const AM_GATEWAY_INFO*)";
constexpr const char* kSetRequestTimeoutSeconds =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::SetRequestTimeoutSeconds(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMUint)";
constexpr const char* kSendRequestAndReceiveResponse =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::SendRequestAndReceiveResponse(PalvonAuthManagerSDK::AMHttpHandle)";
constexpr const char* kGetResponseStatusCode =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::GetResponseStatusCode(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMUint*)";
constexpr const char* kGetResponseReasonPhrase =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::GetResponseReasonPhrase(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMChar**)";
constexpr const char* kGetResponseHeaders =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::GetResponseHeaders(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMChar***)";
constexpr const char* kGetResponseServerCertificate =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::GetResponseServerCertificate(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMCertificate*)";
constexpr const char* kGetResponseTrustFailureFlags =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::GetResponseTrustFailureFlags(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMUint*)";
constexpr const char* kGetServerCertificate =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::GetServerCertificate(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*, PalvonAuthManagerSDK::AMCertificate*, PalvonAuthManagerSDK::AMUint*)";
constexpr const char* kFreeCertificate =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::FreeCertificate(PalvonAuthManagerSDK::AMCertificate)";
constexpr const char* kDuplicateCertificate =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::DuplicateCertificate(PalvonAuthManagerSDK::AMCertificate, PalvonAuthManagerSDK::AMCertificate*)";
constexpr const char* kReadResponseBodyStream =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::ReadResponseBodyStream(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMByte*, PalvonAuthManagerSDK::AMUint, PalvonAuthManagerSDK::AMUint*)";
constexpr const char* kDestroyAMHttpRequest =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::DestroyAMHttpRequest(PalvonAuthManagerSDK::AMHttpHandle)";
constexpr const char* kLaunchRZPFile =
    "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::LaunchRZPFile(const AMUTF8Char*, PalvonAuthManagerSDK::AMUTF8Char**, PalvonAuthManagerSDK::AMUint*)";
}  // namespace l2

/** Exported functions. */
namespace api {
constexpr const char* kGetApiLevel =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetApiLevel(PalvonAuthManagerSDK::AMUint*)";
constexpr const char* kCreateConnection =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_CreateConnection(const AMChar*, PalvonAuthManagerSDK::StatusChangeCallback, void*, PalvonAuthManagerSDK::ConnectionHandle*)";
constexpr const char* kDestroyConnection =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_DestroyConnection(PalvonAuthManagerSDK::ConnectionHandle)";
constexpr const char* kClearAllCredentials =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_ClearAllCredentials(PalvonAuthManagerSDK::ConnectionHandle)";
constexpr const char* kCancelAllCalls =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_CancelAllCalls(PalvonAuthManagerSDK::ConnectionHandle)";
constexpr const char* kLogOff =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_LogOff(PalvonAuthManagerSDK::ConnectionHandle)";
constexpr const char* kCreateVpnAuthContext =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_CreateVpnAuthContext(PalvonAuthManagerSDK::ConnectionHandle, const AM_GATEWAY_INFO*, PalvonAuthManagerSDK::AMAuthenticationFlags, PalvonAuthManagerSDK::VpnAuthContextHandle*)";
constexpr const char* kDestroyVpnAuthContext =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_DestroyVpnAuthContext(PalvonAuthManagerSDK::VpnAuthContextHandle)";
constexpr const char* kGetVpnAuthorizationInfo =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetVpnAuthorizationInfo(PalvonAuthManagerSDK::VpnAuthContextHandle, PalvonAuthManagerSDK::AM_VPN_AUTHORIZATION_INFO**)";
constexpr const char* kFreeVpnAuthorizationInfo =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_FreeVpnAuthorizationInfo(PalvonAuthManagerSDK::AM_VPN_AUTHORIZATION_INFO*)";
constexpr const char* kGenerateTrampolineUrl =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GenerateTrampolineUrl(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*, PalvonAuthManagerSDK::AMAuthenticationFlags, const AMChar*, PalvonAuthManagerSDK::AMChar**, PalvonAuthManagerSDK::AMAuthenticationResult*)";
constexpr const char* kFreeString =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_FreeString(PalvonAuthManagerSDK::AMChar*)";
constexpr const char* kGetVersion =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetVersion(PalvonAuthManagerSDK::ConnectionHandle, PalvonAuthManagerSDK::AMChar**)";
constexpr const char* kSetClientWindow =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SetClientWindow(PalvonAuthManagerSDK::ConnectionHandle, PalvonAuthManagerSDK::AMWindowId)";
constexpr const char* kDetermineServerType =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_DetermineServerType(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*, PalvonAuthManagerSDK::AM_SERVER_INFO**)";
constexpr const char* kFreeServerInfo =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_FreeServerInfo(PalvonAuthManagerSDK::AM_SERVER_INFO*)";
constexpr const char* kRetrieveGatewayDiscoveryData =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_RetrieveGatewayDiscoveryData(PalvonAuthManagerSDK::ConnectionHandle, const AM_GATEWAY_INFO*, PalvonAuthManagerSDK::AMAuthenticationFlags, PalvonAuthManagerSDK::AMChar**, PalvonAuthManagerSDK::AMAuthenticationResult*)";
constexpr const char* kLogOffGateway =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_LogOffGateway(PalvonAuthManagerSDK::ConnectionHandle, const AM_GATEWAY_INFO*)";
constexpr const char* kLogOffAuthService =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_LogOffAuthService(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*)";
constexpr const char* kGetLogonStatus =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetLogonStatus(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*, PalvonAuthManagerSDK::AMLogonStatus*)";
constexpr const char* kCreateAMHttpRequest =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_CreateAMHttpRequest(PalvonAuthManagerSDK::ConnectionHandle, PalvonAuthManagerSDK::AMHttpHandle*)";
constexpr const char* kAddRequestHeader =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_AddRequestHeader(PalvonAuthManagerSDK::AMHttpHandle, const AMChar*)";
constexpr const char* kSetRequestMethod =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SetRequestMethod(PalvonAuthManagerSDK::AMHttpHandle, const AMChar*)";
constexpr const char* kSetRequestUrl =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SetRequestUrl(PalvonAuthManagerSDK::AMHttpHandle, const AMChar*)";
constexpr const char* kSetRequestReferenceUrl =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SetRequestReferenceUrl(PalvonAuthManagerSDK::AMHttpHandle, const AMChar*)";
constexpr const char* kSetRequestAuthenticationFlags =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SetRequestAuthenticationFlags(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMAuthenticationFlags)";
constexpr const char* kSetRequestUserAgentSuffix =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SetRequestUserAgentSuffix(PalvonAuthManagerSDK::AMHttpHandle, const AMChar*)";
constexpr const char* kSetRequestData =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SetRequestData(PalvonAuthManagerSDK::AMHttpHandle, const AMByte*, PalvonAuthManagerSDK::AMUint)";
constexpr const char* kSetRequestRoute =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SetRequestRoute(PalvonAuthManagerSDK::AMHttpHandle, const AM_GATEWAY_INFO*)";
constexpr const char* kSetRequestTimeoutSeconds =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SetRequestTimeoutSeconds(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMUint)";
constexpr const char* kSendRequestAndReceiveResponse =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SendRequestAndReceiveResponse(PalvonAuthManagerSDK::AMHttpHandle)";
constexpr const char* kGetResponseStatusCode =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetResponseStatusCode(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMUint*)";
constexpr const char* kGetResponseReasonPhrase =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetResponseReasonPhrase(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMChar**)";
constexpr const char* kGetResponseHeaders =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetResponseHeaders(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMChar***)";
constexpr const char* kGetResponseServerCertificate =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetResponseServerCertificate(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMCertificate*)";
constexpr const char* kGetResponseTrustFailureFlags =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetResponseTrustFailureFlags(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMUint*)";
constexpr const char* kGetServerCertificate =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetServerCertificate(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*, PalvonAuthManagerSDK::AMCertificate*, PalvonAuthManagerSDK::AMUint*)";
constexpr const char* kFreeCertificate =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_FreeCertificate(PalvonAuthManagerSDK::AMCertificate)";
constexpr const char* kDuplicateCertificate =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_DuplicateCertificate(PalvonAuthManagerSDK::AMCertificate, PalvonAuthManagerSDK::AMCertificate*)";
constexpr const char* kReadResponseBodyStream =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_ReadResponseBodyStream(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMByte*, PalvonAuthManagerSDK::AMUint, PalvonAuthManagerSDK::AMUint*)";
constexpr const char* kDestroyAMHttpRequest =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_DestroyAMHttpRequest(PalvonAuthManagerSDK::AMHttpHandle)";
constexpr const char* kLaunchRZPFile =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_LaunchRZPFile(const AMUTF8Char*, PalvonAuthManagerSDK::AMUTF8Char**, PalvonAuthManagerSDK::AMUint*)";
constexpr const char* kFreeResponseHeaders =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_FreeResponseHeaders(PalvonAuthManagerSDK::AMChar**)";
constexpr const char* kCreateRequestContext =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_CreateRequestContext(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*, PalvonAuthManagerSDK::AMAuthenticationFlags, PalvonAuthManagerSDK::RequestContextHandle*)";
constexpr const char* kDestroyContext =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_DestroyContext(PalvonAuthManagerSDK::RequestContextHandle)";
constexpr const char* kPrepare =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_Prepare(PalvonAuthManagerSDK::RequestContextHandle, PalvonAuthManagerSDK::AMChar**, PalvonAuthManagerSDK::AMAuthenticationResult*)";
constexpr const char* kGetHeaders =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetHeaders(PalvonAuthManagerSDK::RequestContextHandle, PalvonAuthManagerSDK::AMChar***)";
constexpr const char* kFreeHeaders =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_FreeHeaders(PalvonAuthManagerSDK::AMChar**)";
constexpr const char* kGetTranslatedUrl =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetTranslatedUrl(PalvonAuthManagerSDK::RequestContextHandle, PalvonAuthManagerSDK::AMChar**)";
constexpr const char* kFreeTranslatedUrl =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_FreeTranslatedUrl(PalvonAuthManagerSDK::AMChar*)";
constexpr const char* kPrepare2 =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_Prepare2(PalvonAuthManagerSDK::RequestContextHandle, PalvonAuthManagerSDK::AMAuthenticationResult*)";
constexpr const char* kReportHttpResponse =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_ReportHttpResponse(PalvonAuthManagerSDK::RequestContextHandle, PalvonAuthManagerSDK::AMHttpStatus, PalvonAuthManagerSDK::AMChar**)";
constexpr const char* kReportHttpFailure =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_ReportHttpFailure(PalvonAuthManagerSDK::RequestContextHandle, PalvonAuthManagerSDK::AMHttpFailureReason)";
constexpr const char* kForceRoute =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_ForceRoute(PalvonAuthManagerSDK::RequestContextHandle, const AM_GATEWAY_INFO*)";
constexpr const char* kSetReferenceUrl =
    "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SetReferenceUrl(PalvonAuthManagerSDK::RequestContextHandle, const AMChar*)";
}  // namespace api

}  // namespace sig
}  // namespace PalvonAuthManagerSDK

#endif

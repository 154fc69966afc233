// The signature texts written by the entry and exit trace lines, each pinned
// to its literal text. The expected texts follow the rule for every
// signature: return type and name qualified with the namespace, library
// types qualified with "PalvonAuthManagerSDK::", parameter types with a
// leading "const" unqualified, "void*" as it is, "virtual " in front of the
// operations of the implementation classes.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "api/SignatureTexts.h"

namespace {

struct PinnedText {
  const char* name;
  const char* actual;
  const char* expected;
};

// clang-format off
const PinnedText kPinned[] = {
    {"sig::kGetServerSDKVersion", PalvonAuthManagerSDK::sig::kGetServerSDKVersion,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::GetServerSDKVersion(PalvonAuthManagerSDK::AMUint*)"},
    {"sig::l1::kInitialize", PalvonAuthManagerSDK::sig::l1::kInitialize,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::Initialize()"},
    {"sig::l1::kUninitialize", PalvonAuthManagerSDK::sig::l1::kUninitialize,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::Uninitialize()"},
    {"sig::l1::kCreateConnection", PalvonAuthManagerSDK::sig::l1::kCreateConnection,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::CreateConnection(const AMChar*, PalvonAuthManagerSDK::StatusChangeCallback, void*, PalvonAuthManagerSDK::ConnectionHandle*)"},
    {"sig::l1::kDestroyConnection", PalvonAuthManagerSDK::sig::l1::kDestroyConnection,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::DestroyConnection(PalvonAuthManagerSDK::ConnectionHandle)"},
    {"sig::l1::kClearAllCredentials", PalvonAuthManagerSDK::sig::l1::kClearAllCredentials,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::ClearAllCredentials(PalvonAuthManagerSDK::ConnectionHandle)"},
    {"sig::l1::kCancelAllCalls", PalvonAuthManagerSDK::sig::l1::kCancelAllCalls,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::CancelAllCalls(PalvonAuthManagerSDK::ConnectionHandle)"},
    {"sig::l1::kLogOff", PalvonAuthManagerSDK::sig::l1::kLogOff,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::LogOff(PalvonAuthManagerSDK::ConnectionHandle)"},
    {"sig::l1::kCreateVpnAuthContext", PalvonAuthManagerSDK::sig::l1::kCreateVpnAuthContext,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::CreateVpnAuthContext(PalvonAuthManagerSDK::ConnectionHandle, const AM_GATEWAY_INFO*, PalvonAuthManagerSDK::AMAuthenticationFlags, PalvonAuthManagerSDK::VpnAuthContextHandle*)"},
    {"sig::l1::kDestroyVpnAuthContext", PalvonAuthManagerSDK::sig::l1::kDestroyVpnAuthContext,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::DestroyVpnAuthContext(PalvonAuthManagerSDK::VpnAuthContextHandle)"},
    {"sig::l1::kGetVpnAuthorizationInfo", PalvonAuthManagerSDK::sig::l1::kGetVpnAuthorizationInfo,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::GetVpnAuthorizationInfo(PalvonAuthManagerSDK::VpnAuthContextHandle, PalvonAuthManagerSDK::AM_VPN_AUTHORIZATION_INFO**)"},
    {"sig::l1::kFreeVpnAuthorizationInfo", PalvonAuthManagerSDK::sig::l1::kFreeVpnAuthorizationInfo,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::FreeVpnAuthorizationInfo(PalvonAuthManagerSDK::AM_VPN_AUTHORIZATION_INFO*)"},
    {"sig::l1::kGenerateTrampolineUrl", PalvonAuthManagerSDK::sig::l1::kGenerateTrampolineUrl,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::GenerateTrampolineUrl(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*, PalvonAuthManagerSDK::AMAuthenticationFlags, const AMChar*, PalvonAuthManagerSDK::AMChar**, PalvonAuthManagerSDK::AMAuthenticationResult*)"},
    {"sig::l1::kFreeString", PalvonAuthManagerSDK::sig::l1::kFreeString,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::FreeString(PalvonAuthManagerSDK::AMChar*)"},
    {"sig::l1::kGetVersion", PalvonAuthManagerSDK::sig::l1::kGetVersion,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::GetVersion(PalvonAuthManagerSDK::ConnectionHandle, PalvonAuthManagerSDK::AMChar**)"},
    {"sig::l1::kSetClientWindow", PalvonAuthManagerSDK::sig::l1::kSetClientWindow,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::SetClientWindow(PalvonAuthManagerSDK::ConnectionHandle, PalvonAuthManagerSDK::AMWindowId)"},
    {"sig::l1::kDetermineServerType", PalvonAuthManagerSDK::sig::l1::kDetermineServerType,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::DetermineServerType(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*, PalvonAuthManagerSDK::AM_SERVER_INFO**)"},
    {"sig::l1::kFreeServerInfo", PalvonAuthManagerSDK::sig::l1::kFreeServerInfo,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::FreeServerInfo(PalvonAuthManagerSDK::AM_SERVER_INFO*)"},
    {"sig::l1::kRetrieveGatewayDiscoveryData", PalvonAuthManagerSDK::sig::l1::kRetrieveGatewayDiscoveryData,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::RetrieveGatewayDiscoveryData(PalvonAuthManagerSDK::ConnectionHandle, const AM_GATEWAY_INFO*, PalvonAuthManagerSDK::AMAuthenticationFlags, PalvonAuthManagerSDK::AMChar**, PalvonAuthManagerSDK::AMAuthenticationResult*)"},
    {"sig::l1::kLogOffGateway", PalvonAuthManagerSDK::sig::l1::kLogOffGateway,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::LogOffGateway(PalvonAuthManagerSDK::ConnectionHandle, const AM_GATEWAY_INFO*)"},
    {"sig::l1::kLogOffAuthService", PalvonAuthManagerSDK::sig::l1::kLogOffAuthService,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::LogOffAuthService(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*)"},
    {"sig::l1::kGetLogonStatus", PalvonAuthManagerSDK::sig::l1::kGetLogonStatus,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::GetLogonStatus(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*, PalvonAuthManagerSDK::AMLogonStatus*)"},
    {"sig::l2::kCreateAMHttpRequest", PalvonAuthManagerSDK::sig::l2::kCreateAMHttpRequest,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::CreateAMHttpRequest(PalvonAuthManagerSDK::ConnectionHandle, PalvonAuthManagerSDK::AMHttpHandle*)"},
    {"sig::l2::kSetRequestMethod", PalvonAuthManagerSDK::sig::l2::kSetRequestMethod,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::SetRequestMethod(PalvonAuthManagerSDK::AMHttpHandle, const AMChar*)"},
    {"sig::l2::kSetRequestUrl", PalvonAuthManagerSDK::sig::l2::kSetRequestUrl,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::SetRequestUrl(PalvonAuthManagerSDK::AMHttpHandle, const AMChar*)"},
    {"sig::l2::kSetRequestReferenceUrl", PalvonAuthManagerSDK::sig::l2::kSetRequestReferenceUrl,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::SetRequestReferenceUrl(PalvonAuthManagerSDK::AMHttpHandle, const AMChar*)"},
    {"sig::l2::kSetRequestAuthenticationFlags", PalvonAuthManagerSDK::sig::l2::kSetRequestAuthenticationFlags,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::SetRequestAuthenticationFlags(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMAuthenticationFlags)"},
    {"sig::l2::kSetRequestTimeoutSeconds", PalvonAuthManagerSDK::sig::l2::kSetRequestTimeoutSeconds,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::SetRequestTimeoutSeconds(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMUint)"},
    {"sig::l2::kSetRequestUserAgentSuffix", PalvonAuthManagerSDK::sig::l2::kSetRequestUserAgentSuffix,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::SetRequestUserAgentSuffix(PalvonAuthManagerSDK::AMHttpHandle, const AMChar*)"},
    {"sig::l2::kSetRequestRoute", PalvonAuthManagerSDK::sig::l2::kSetRequestRoute,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::SetRequestRoute(PalvonAuthManagerSDK::AMHttpHandle, const AM_GATEWAY_INFO*)"},
    {"sig::l2::kAddRequestHeader", PalvonAuthManagerSDK::sig::l2::kAddRequestHeader,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::AddRequestHeader(PalvonAuthManagerSDK::AMHttpHandle, const AMChar*)"},
    {"sig::l2::kSetRequestData", PalvonAuthManagerSDK::sig::l2::kSetRequestData,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::SetRequestData(PalvonAuthManagerSDK::AMHttpHandle, const AMByte*, PalvonAuthManagerSDK::AMUint)"},
    {"sig::l2::kSendRequestAndReceiveResponse", PalvonAuthManagerSDK::sig::l2::kSendRequestAndReceiveResponse,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::SendRequestAndReceiveResponse(PalvonAuthManagerSDK::AMHttpHandle)"},
    {"sig::l2::kGetResponseStatusCode", PalvonAuthManagerSDK::sig::l2::kGetResponseStatusCode,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::GetResponseStatusCode(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMUint*)"},
    {"sig::l2::kGetResponseReasonPhrase", PalvonAuthManagerSDK::sig::l2::kGetResponseReasonPhrase,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::GetResponseReasonPhrase(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMChar**)"},
    {"sig::l2::kGetResponseHeaders", PalvonAuthManagerSDK::sig::l2::kGetResponseHeaders,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::GetResponseHeaders(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMChar***)"},
    {"sig::l2::kGetResponseServerCertificate", PalvonAuthManagerSDK::sig::l2::kGetResponseServerCertificate,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::GetResponseServerCertificate(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMCertificate*)"},
    {"sig::l2::kGetResponseTrustFailureFlags", PalvonAuthManagerSDK::sig::l2::kGetResponseTrustFailureFlags,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::GetResponseTrustFailureFlags(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMUint*)"},
    {"sig::l2::kGetServerCertificate", PalvonAuthManagerSDK::sig::l2::kGetServerCertificate,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::GetServerCertificate(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*, PalvonAuthManagerSDK::AMCertificate*, PalvonAuthManagerSDK::AMUint*)"},
    {"sig::l2::kFreeCertificate", PalvonAuthManagerSDK::sig::l2::kFreeCertificate,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::FreeCertificate(PalvonAuthManagerSDK::AMCertificate)"},
    {"sig::l2::kDuplicateCertificate", PalvonAuthManagerSDK::sig::l2::kDuplicateCertificate,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::DuplicateCertificate(PalvonAuthManagerSDK::AMCertificate, PalvonAuthManagerSDK::AMCertificate*)"},
    {"sig::l2::kReadResponseBodyStream", PalvonAuthManagerSDK::sig::l2::kReadResponseBodyStream,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::ReadResponseBodyStream(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMByte*, PalvonAuthManagerSDK::AMUint, PalvonAuthManagerSDK::AMUint*)"},
    {"sig::l2::kDestroyAMHttpRequest", PalvonAuthManagerSDK::sig::l2::kDestroyAMHttpRequest,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::DestroyAMHttpRequest(PalvonAuthManagerSDK::AMHttpHandle)"},
    {"sig::l2::kLaunchRZPFile", PalvonAuthManagerSDK::sig::l2::kLaunchRZPFile,
     "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::LaunchRZPFile(const AMUTF8Char*, PalvonAuthManagerSDK::AMUTF8Char**, PalvonAuthManagerSDK::AMUint*)"},
    {"sig::api::kCreateConnection", PalvonAuthManagerSDK::sig::api::kCreateConnection,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_CreateConnection(const AMChar*, PalvonAuthManagerSDK::StatusChangeCallback, void*, PalvonAuthManagerSDK::ConnectionHandle*)"},
    {"sig::api::kDestroyConnection", PalvonAuthManagerSDK::sig::api::kDestroyConnection,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_DestroyConnection(PalvonAuthManagerSDK::ConnectionHandle)"},
    {"sig::api::kClearAllCredentials", PalvonAuthManagerSDK::sig::api::kClearAllCredentials,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_ClearAllCredentials(PalvonAuthManagerSDK::ConnectionHandle)"},
    {"sig::api::kCancelAllCalls", PalvonAuthManagerSDK::sig::api::kCancelAllCalls,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_CancelAllCalls(PalvonAuthManagerSDK::ConnectionHandle)"},
    {"sig::api::kLogOff", PalvonAuthManagerSDK::sig::api::kLogOff,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_LogOff(PalvonAuthManagerSDK::ConnectionHandle)"},
    {"sig::api::kCreateVpnAuthContext", PalvonAuthManagerSDK::sig::api::kCreateVpnAuthContext,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_CreateVpnAuthContext(PalvonAuthManagerSDK::ConnectionHandle, const AM_GATEWAY_INFO*, PalvonAuthManagerSDK::AMAuthenticationFlags, PalvonAuthManagerSDK::VpnAuthContextHandle*)"},
    {"sig::api::kDestroyVpnAuthContext", PalvonAuthManagerSDK::sig::api::kDestroyVpnAuthContext,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_DestroyVpnAuthContext(PalvonAuthManagerSDK::VpnAuthContextHandle)"},
    {"sig::api::kGetVpnAuthorizationInfo", PalvonAuthManagerSDK::sig::api::kGetVpnAuthorizationInfo,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetVpnAuthorizationInfo(PalvonAuthManagerSDK::VpnAuthContextHandle, PalvonAuthManagerSDK::AM_VPN_AUTHORIZATION_INFO**)"},
    {"sig::api::kFreeVpnAuthorizationInfo", PalvonAuthManagerSDK::sig::api::kFreeVpnAuthorizationInfo,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_FreeVpnAuthorizationInfo(PalvonAuthManagerSDK::AM_VPN_AUTHORIZATION_INFO*)"},
    {"sig::api::kGenerateTrampolineUrl", PalvonAuthManagerSDK::sig::api::kGenerateTrampolineUrl,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GenerateTrampolineUrl(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*, PalvonAuthManagerSDK::AMAuthenticationFlags, const AMChar*, PalvonAuthManagerSDK::AMChar**, PalvonAuthManagerSDK::AMAuthenticationResult*)"},
    {"sig::api::kFreeString", PalvonAuthManagerSDK::sig::api::kFreeString,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_FreeString(PalvonAuthManagerSDK::AMChar*)"},
    {"sig::api::kGetVersion", PalvonAuthManagerSDK::sig::api::kGetVersion,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetVersion(PalvonAuthManagerSDK::ConnectionHandle, PalvonAuthManagerSDK::AMChar**)"},
    {"sig::api::kSetClientWindow", PalvonAuthManagerSDK::sig::api::kSetClientWindow,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SetClientWindow(PalvonAuthManagerSDK::ConnectionHandle, PalvonAuthManagerSDK::AMWindowId)"},
    {"sig::api::kDetermineServerType", PalvonAuthManagerSDK::sig::api::kDetermineServerType,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_DetermineServerType(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*, PalvonAuthManagerSDK::AM_SERVER_INFO**)"},
    {"sig::api::kFreeServerInfo", PalvonAuthManagerSDK::sig::api::kFreeServerInfo,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_FreeServerInfo(PalvonAuthManagerSDK::AM_SERVER_INFO*)"},
    {"sig::api::kRetrieveGatewayDiscoveryData", PalvonAuthManagerSDK::sig::api::kRetrieveGatewayDiscoveryData,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_RetrieveGatewayDiscoveryData(PalvonAuthManagerSDK::ConnectionHandle, const AM_GATEWAY_INFO*, PalvonAuthManagerSDK::AMAuthenticationFlags, PalvonAuthManagerSDK::AMChar**, PalvonAuthManagerSDK::AMAuthenticationResult*)"},
    {"sig::api::kLogOffGateway", PalvonAuthManagerSDK::sig::api::kLogOffGateway,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_LogOffGateway(PalvonAuthManagerSDK::ConnectionHandle, const AM_GATEWAY_INFO*)"},
    {"sig::api::kLogOffAuthService", PalvonAuthManagerSDK::sig::api::kLogOffAuthService,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_LogOffAuthService(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*)"},
    {"sig::api::kGetLogonStatus", PalvonAuthManagerSDK::sig::api::kGetLogonStatus,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetLogonStatus(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*, PalvonAuthManagerSDK::AMLogonStatus*)"},
    {"sig::api::kCreateAMHttpRequest", PalvonAuthManagerSDK::sig::api::kCreateAMHttpRequest,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_CreateAMHttpRequest(PalvonAuthManagerSDK::ConnectionHandle, PalvonAuthManagerSDK::AMHttpHandle*)"},
    {"sig::api::kSetRequestMethod", PalvonAuthManagerSDK::sig::api::kSetRequestMethod,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SetRequestMethod(PalvonAuthManagerSDK::AMHttpHandle, const AMChar*)"},
    {"sig::api::kSetRequestUrl", PalvonAuthManagerSDK::sig::api::kSetRequestUrl,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SetRequestUrl(PalvonAuthManagerSDK::AMHttpHandle, const AMChar*)"},
    {"sig::api::kSetRequestReferenceUrl", PalvonAuthManagerSDK::sig::api::kSetRequestReferenceUrl,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SetRequestReferenceUrl(PalvonAuthManagerSDK::AMHttpHandle, const AMChar*)"},
    {"sig::api::kSetRequestAuthenticationFlags", PalvonAuthManagerSDK::sig::api::kSetRequestAuthenticationFlags,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SetRequestAuthenticationFlags(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMAuthenticationFlags)"},
    {"sig::api::kSetRequestTimeoutSeconds", PalvonAuthManagerSDK::sig::api::kSetRequestTimeoutSeconds,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SetRequestTimeoutSeconds(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMUint)"},
    {"sig::api::kSetRequestUserAgentSuffix", PalvonAuthManagerSDK::sig::api::kSetRequestUserAgentSuffix,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SetRequestUserAgentSuffix(PalvonAuthManagerSDK::AMHttpHandle, const AMChar*)"},
    {"sig::api::kSetRequestRoute", PalvonAuthManagerSDK::sig::api::kSetRequestRoute,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SetRequestRoute(PalvonAuthManagerSDK::AMHttpHandle, const AM_GATEWAY_INFO*)"},
    {"sig::api::kAddRequestHeader", PalvonAuthManagerSDK::sig::api::kAddRequestHeader,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_AddRequestHeader(PalvonAuthManagerSDK::AMHttpHandle, const AMChar*)"},
    {"sig::api::kSetRequestData", PalvonAuthManagerSDK::sig::api::kSetRequestData,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SetRequestData(PalvonAuthManagerSDK::AMHttpHandle, const AMByte*, PalvonAuthManagerSDK::AMUint)"},
    {"sig::api::kSendRequestAndReceiveResponse", PalvonAuthManagerSDK::sig::api::kSendRequestAndReceiveResponse,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SendRequestAndReceiveResponse(PalvonAuthManagerSDK::AMHttpHandle)"},
    {"sig::api::kGetResponseStatusCode", PalvonAuthManagerSDK::sig::api::kGetResponseStatusCode,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetResponseStatusCode(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMUint*)"},
    {"sig::api::kGetResponseReasonPhrase", PalvonAuthManagerSDK::sig::api::kGetResponseReasonPhrase,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetResponseReasonPhrase(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMChar**)"},
    {"sig::api::kGetResponseHeaders", PalvonAuthManagerSDK::sig::api::kGetResponseHeaders,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetResponseHeaders(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMChar***)"},
    {"sig::api::kGetResponseServerCertificate", PalvonAuthManagerSDK::sig::api::kGetResponseServerCertificate,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetResponseServerCertificate(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMCertificate*)"},
    {"sig::api::kGetResponseTrustFailureFlags", PalvonAuthManagerSDK::sig::api::kGetResponseTrustFailureFlags,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetResponseTrustFailureFlags(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMUint*)"},
    {"sig::api::kGetServerCertificate", PalvonAuthManagerSDK::sig::api::kGetServerCertificate,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetServerCertificate(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*, PalvonAuthManagerSDK::AMCertificate*, PalvonAuthManagerSDK::AMUint*)"},
    {"sig::api::kFreeCertificate", PalvonAuthManagerSDK::sig::api::kFreeCertificate,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_FreeCertificate(PalvonAuthManagerSDK::AMCertificate)"},
    {"sig::api::kDuplicateCertificate", PalvonAuthManagerSDK::sig::api::kDuplicateCertificate,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_DuplicateCertificate(PalvonAuthManagerSDK::AMCertificate, PalvonAuthManagerSDK::AMCertificate*)"},
    {"sig::api::kReadResponseBodyStream", PalvonAuthManagerSDK::sig::api::kReadResponseBodyStream,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_ReadResponseBodyStream(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMByte*, PalvonAuthManagerSDK::AMUint, PalvonAuthManagerSDK::AMUint*)"},
    {"sig::api::kDestroyAMHttpRequest", PalvonAuthManagerSDK::sig::api::kDestroyAMHttpRequest,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_DestroyAMHttpRequest(PalvonAuthManagerSDK::AMHttpHandle)"},
    {"sig::api::kLaunchRZPFile", PalvonAuthManagerSDK::sig::api::kLaunchRZPFile,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_LaunchRZPFile(const AMUTF8Char*, PalvonAuthManagerSDK::AMUTF8Char**, PalvonAuthManagerSDK::AMUint*)"},
    {"sig::api::kCreateRequestContext", PalvonAuthManagerSDK::sig::api::kCreateRequestContext,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_CreateRequestContext(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*, PalvonAuthManagerSDK::AMAuthenticationFlags, PalvonAuthManagerSDK::RequestContextHandle*)"},
    {"sig::api::kDestroyContext", PalvonAuthManagerSDK::sig::api::kDestroyContext,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_DestroyContext(PalvonAuthManagerSDK::RequestContextHandle)"},
    {"sig::api::kPrepare", PalvonAuthManagerSDK::sig::api::kPrepare,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_Prepare(PalvonAuthManagerSDK::RequestContextHandle, PalvonAuthManagerSDK::AMChar**, PalvonAuthManagerSDK::AMAuthenticationResult*)"},
    {"sig::api::kGetHeaders", PalvonAuthManagerSDK::sig::api::kGetHeaders,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetHeaders(PalvonAuthManagerSDK::RequestContextHandle, PalvonAuthManagerSDK::AMChar***)"},
    {"sig::api::kFreeHeaders", PalvonAuthManagerSDK::sig::api::kFreeHeaders,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_FreeHeaders(PalvonAuthManagerSDK::AMChar**)"},
    {"sig::api::kGetTranslatedUrl", PalvonAuthManagerSDK::sig::api::kGetTranslatedUrl,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetTranslatedUrl(PalvonAuthManagerSDK::RequestContextHandle, PalvonAuthManagerSDK::AMChar**)"},
    {"sig::api::kFreeTranslatedUrl", PalvonAuthManagerSDK::sig::api::kFreeTranslatedUrl,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_FreeTranslatedUrl(PalvonAuthManagerSDK::AMChar*)"},
    {"sig::api::kPrepare2", PalvonAuthManagerSDK::sig::api::kPrepare2,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_Prepare2(PalvonAuthManagerSDK::RequestContextHandle, PalvonAuthManagerSDK::AMAuthenticationResult*)"},
    {"sig::api::kReportHttpResponse", PalvonAuthManagerSDK::sig::api::kReportHttpResponse,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_ReportHttpResponse(PalvonAuthManagerSDK::RequestContextHandle, PalvonAuthManagerSDK::AMHttpStatus, PalvonAuthManagerSDK::AMChar**)"},
    {"sig::api::kReportHttpFailure", PalvonAuthManagerSDK::sig::api::kReportHttpFailure,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_ReportHttpFailure(PalvonAuthManagerSDK::RequestContextHandle, PalvonAuthManagerSDK::AMHttpFailureReason)"},
    {"sig::api::kForceRoute", PalvonAuthManagerSDK::sig::api::kForceRoute,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_ForceRoute(PalvonAuthManagerSDK::RequestContextHandle, const AM_GATEWAY_INFO*)"},
    {"sig::api::kSetReferenceUrl", PalvonAuthManagerSDK::sig::api::kSetReferenceUrl,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SetReferenceUrl(PalvonAuthManagerSDK::RequestContextHandle, const AMChar*)"},
    {"sig::api::kGetApiLevel", PalvonAuthManagerSDK::sig::api::kGetApiLevel,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetApiLevel(PalvonAuthManagerSDK::AMUint*)"},
    {"sig::api::kFreeResponseHeaders", PalvonAuthManagerSDK::sig::api::kFreeResponseHeaders,
     "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_FreeResponseHeaders(PalvonAuthManagerSDK::AMChar**)"},
};
// clang-format on

TEST(SignatureTexts, EveryTextMatchesItsLiteral) {
  for (const PinnedText& pinned : kPinned) {
    EXPECT_STREQ(pinned.actual, pinned.expected) << pinned.name;
  }
}

TEST(SignatureTexts, OperationTextsAreTheExportTextsWithVirtualAndTheClass) {
  // Each exported level-1 or level-2 function traces the same parameter list
  // as the operation it forwards to.
  std::map<std::string, std::string> parameters;
  const std::regex exportText(
      R"(PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_(\w+)(\(.*\)))");
  const std::regex operationText(
      R"(virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation(?:V2)?::(\w+)(\(.*\)))");
  for (const PinnedText& pinned : kPinned) {
    std::cmatch match;
    if (std::regex_match(pinned.actual, match, exportText)) parameters[match[1].str()] = match[2].str();
  }
  size_t operations = 0;
  for (const PinnedText& pinned : kPinned) {
    std::cmatch match;
    if (!std::regex_match(pinned.actual, match, operationText)) continue;
    const std::string name = match[1].str();
    if (name == "Initialize" || name == "Uninitialize") continue;
    ++operations;
    ASSERT_EQ(parameters.count(name), 1u) << name;
    EXPECT_EQ(parameters[name], match[2].str()) << name;
  }
  EXPECT_EQ(operations, 19u + 22u);
}

// Reads the header's own list of constants, so that a text added there
// without being pinned here is noticed.
std::set<std::string> ConstantsDeclaredInHeader() {
  std::set<std::string> names;
  std::ifstream header(PAM_SIGNATURE_TEXTS_HEADER);
  std::vector<std::string> scopes;
  const std::regex open(R"(^namespace (\w+) \{)");
  const std::regex close(R"(^\}\s*// namespace (\w+))");
  const std::regex constant(R"(^constexpr const char\* (k\w+) =)");
  std::string line;
  while (std::getline(header, line)) {
    std::smatch match;
    if (std::regex_search(line, match, open)) {
      scopes.push_back(match[1].str());
    } else if (std::regex_search(line, match, close)) {
      if (!scopes.empty()) scopes.pop_back();
    } else if (std::regex_search(line, match, constant)) {
      std::string name;
      for (const std::string& scope : scopes) {
        if (scope != "PalvonAuthManagerSDK") name += scope + "::";
      }
      names.insert(name + match[1].str());
    }
  }
  return names;
}

TEST(SignatureTexts, EveryConstantOfTheHeaderIsPinned) {
  const std::set<std::string> declared = ConstantsDeclaredInHeader();
  ASSERT_FALSE(declared.empty()) << "cannot read " << PAM_SIGNATURE_TEXTS_HEADER;
  std::set<std::string> pinned;
  for (const PinnedText& entry : kPinned) {
    EXPECT_TRUE(pinned.insert(entry.name).second) << "pinned twice: " << entry.name;
  }
  EXPECT_EQ(declared, pinned);
  // One exported text per exported function that traces (all but
  // Initialize and Uninitialize), 21 level-1 and 22 level-2 operations, and
  // the version query.
  EXPECT_EQ(pinned.size(), 55u + 21u + 22u + 1u);
}

}  // namespace

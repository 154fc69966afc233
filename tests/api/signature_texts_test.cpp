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

#include "api/SignatureTexts.h"

namespace {

struct PinnedText {
  const char* name;
  const char* actual;
  const char* expected;
};

// One row per constant: its name, its value and the expected literal.
#define PIN(id, text) \
  { "sig::" #id, PalvonAuthManagerSDK::sig::id, text }
// clang-format off
const PinnedText kPinned[] = {
    PIN(kGetServerSDKVersion, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::GetServerSDKVersion(PalvonAuthManagerSDK::AMUint*)"),
    PIN(l1::kInitialize, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::Initialize()"),
    PIN(l1::kUninitialize, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::Uninitialize()"),
    PIN(l1::kCreateConnection, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::CreateConnection(const AMChar*, PalvonAuthManagerSDK::StatusChangeCallback, void*, PalvonAuthManagerSDK::ConnectionHandle*)"),
    PIN(l1::kDestroyConnection, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::DestroyConnection(PalvonAuthManagerSDK::ConnectionHandle)"),
    PIN(l1::kClearAllCredentials, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::ClearAllCredentials(PalvonAuthManagerSDK::ConnectionHandle)"),
    PIN(l1::kCancelAllCalls, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::CancelAllCalls(PalvonAuthManagerSDK::ConnectionHandle)"),
    PIN(l1::kLogOff, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::LogOff(PalvonAuthManagerSDK::ConnectionHandle)"),
    PIN(l1::kCreateVpnAuthContext, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::CreateVpnAuthContext(PalvonAuthManagerSDK::ConnectionHandle, const AM_GATEWAY_INFO*, PalvonAuthManagerSDK::AMAuthenticationFlags, PalvonAuthManagerSDK::VpnAuthContextHandle*)"),
    PIN(l1::kDestroyVpnAuthContext, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::DestroyVpnAuthContext(PalvonAuthManagerSDK::VpnAuthContextHandle)"),
    PIN(l1::kGetVpnAuthorizationInfo, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::GetVpnAuthorizationInfo(PalvonAuthManagerSDK::VpnAuthContextHandle, PalvonAuthManagerSDK::AM_VPN_AUTHORIZATION_INFO**)"),
    PIN(l1::kFreeVpnAuthorizationInfo, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::FreeVpnAuthorizationInfo(PalvonAuthManagerSDK::AM_VPN_AUTHORIZATION_INFO*)"),
    PIN(l1::kGenerateTrampolineUrl, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::GenerateTrampolineUrl(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*, PalvonAuthManagerSDK::AMAuthenticationFlags, const AMChar*, PalvonAuthManagerSDK::AMChar**, PalvonAuthManagerSDK::AMAuthenticationResult*)"),
    PIN(l1::kFreeString, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::FreeString(PalvonAuthManagerSDK::AMChar*)"),
    PIN(l1::kGetVersion, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::GetVersion(PalvonAuthManagerSDK::ConnectionHandle, PalvonAuthManagerSDK::AMChar**)"),
    PIN(l1::kSetClientWindow, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::SetClientWindow(PalvonAuthManagerSDK::ConnectionHandle, PalvonAuthManagerSDK::AMWindowId)"),
    PIN(l1::kDetermineServerType, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::DetermineServerType(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*, PalvonAuthManagerSDK::AM_SERVER_INFO**)"),
    PIN(l1::kFreeServerInfo, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::FreeServerInfo(PalvonAuthManagerSDK::AM_SERVER_INFO*)"),
    PIN(l1::kRetrieveGatewayDiscoveryData, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::RetrieveGatewayDiscoveryData(PalvonAuthManagerSDK::ConnectionHandle, const AM_GATEWAY_INFO*, PalvonAuthManagerSDK::AMAuthenticationFlags, PalvonAuthManagerSDK::AMChar**, PalvonAuthManagerSDK::AMAuthenticationResult*)"),
    PIN(l1::kLogOffGateway, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::LogOffGateway(PalvonAuthManagerSDK::ConnectionHandle, const AM_GATEWAY_INFO*)"),
    PIN(l1::kLogOffAuthService, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::LogOffAuthService(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*)"),
    PIN(l1::kGetLogonStatus, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementation::GetLogonStatus(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*, PalvonAuthManagerSDK::AMLogonStatus*)"),
    PIN(l2::kCreateAMHttpRequest, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::CreateAMHttpRequest(PalvonAuthManagerSDK::ConnectionHandle, PalvonAuthManagerSDK::AMHttpHandle*)"),
    PIN(l2::kSetRequestMethod, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::SetRequestMethod(PalvonAuthManagerSDK::AMHttpHandle, const AMChar*)"),
    PIN(l2::kSetRequestUrl, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::SetRequestUrl(PalvonAuthManagerSDK::AMHttpHandle, const AMChar*)"),
    PIN(l2::kSetRequestReferenceUrl, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::SetRequestReferenceUrl(PalvonAuthManagerSDK::AMHttpHandle, const AMChar*)"),
    PIN(l2::kSetRequestAuthenticationFlags, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::SetRequestAuthenticationFlags(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMAuthenticationFlags)"),
    PIN(l2::kSetRequestTimeoutSeconds, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::SetRequestTimeoutSeconds(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMUint)"),
    PIN(l2::kSetRequestUserAgentSuffix, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::SetRequestUserAgentSuffix(PalvonAuthManagerSDK::AMHttpHandle, const AMChar*)"),
    PIN(l2::kSetRequestRoute, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::SetRequestRoute(PalvonAuthManagerSDK::AMHttpHandle, const AM_GATEWAY_INFO*)"),
    PIN(l2::kAddRequestHeader, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::AddRequestHeader(PalvonAuthManagerSDK::AMHttpHandle, const AMChar*)"),
    PIN(l2::kSetRequestData, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::SetRequestData(PalvonAuthManagerSDK::AMHttpHandle, const AMByte*, PalvonAuthManagerSDK::AMUint)"),
    PIN(l2::kSendRequestAndReceiveResponse, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::SendRequestAndReceiveResponse(PalvonAuthManagerSDK::AMHttpHandle)"),
    PIN(l2::kGetResponseStatusCode, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::GetResponseStatusCode(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMUint*)"),
    PIN(l2::kGetResponseReasonPhrase, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::GetResponseReasonPhrase(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMChar**)"),
    PIN(l2::kGetResponseHeaders, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::GetResponseHeaders(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMChar***)"),
    PIN(l2::kGetResponseServerCertificate, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::GetResponseServerCertificate(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMCertificate*)"),
    PIN(l2::kGetResponseTrustFailureFlags, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::GetResponseTrustFailureFlags(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMUint*)"),
    PIN(l2::kGetServerCertificate, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::GetServerCertificate(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*, PalvonAuthManagerSDK::AMCertificate*, PalvonAuthManagerSDK::AMUint*)"),
    PIN(l2::kFreeCertificate, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::FreeCertificate(PalvonAuthManagerSDK::AMCertificate)"),
    PIN(l2::kDuplicateCertificate, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::DuplicateCertificate(PalvonAuthManagerSDK::AMCertificate, PalvonAuthManagerSDK::AMCertificate*)"),
    PIN(l2::kReadResponseBodyStream, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::ReadResponseBodyStream(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMByte*, PalvonAuthManagerSDK::AMUint, PalvonAuthManagerSDK::AMUint*)"),
    PIN(l2::kDestroyAMHttpRequest, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::DestroyAMHttpRequest(PalvonAuthManagerSDK::AMHttpHandle)"),
    PIN(l2::kLaunchRZPFile, "virtual PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::LinuxAMImplementationV2::LaunchRZPFile(const AMUTF8Char*, PalvonAuthManagerSDK::AMUTF8Char**, PalvonAuthManagerSDK::AMUint*)"),
    PIN(api::kCreateConnection, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_CreateConnection(const AMChar*, PalvonAuthManagerSDK::StatusChangeCallback, void*, PalvonAuthManagerSDK::ConnectionHandle*)"),
    PIN(api::kDestroyConnection, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_DestroyConnection(PalvonAuthManagerSDK::ConnectionHandle)"),
    PIN(api::kClearAllCredentials, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_ClearAllCredentials(PalvonAuthManagerSDK::ConnectionHandle)"),
    PIN(api::kCancelAllCalls, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_CancelAllCalls(PalvonAuthManagerSDK::ConnectionHandle)"),
    PIN(api::kLogOff, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_LogOff(PalvonAuthManagerSDK::ConnectionHandle)"),
    PIN(api::kCreateVpnAuthContext, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_CreateVpnAuthContext(PalvonAuthManagerSDK::ConnectionHandle, const AM_GATEWAY_INFO*, PalvonAuthManagerSDK::AMAuthenticationFlags, PalvonAuthManagerSDK::VpnAuthContextHandle*)"),
    PIN(api::kDestroyVpnAuthContext, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_DestroyVpnAuthContext(PalvonAuthManagerSDK::VpnAuthContextHandle)"),
    PIN(api::kGetVpnAuthorizationInfo, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetVpnAuthorizationInfo(PalvonAuthManagerSDK::VpnAuthContextHandle, PalvonAuthManagerSDK::AM_VPN_AUTHORIZATION_INFO**)"),
    PIN(api::kFreeVpnAuthorizationInfo, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_FreeVpnAuthorizationInfo(PalvonAuthManagerSDK::AM_VPN_AUTHORIZATION_INFO*)"),
    PIN(api::kGenerateTrampolineUrl, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GenerateTrampolineUrl(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*, PalvonAuthManagerSDK::AMAuthenticationFlags, const AMChar*, PalvonAuthManagerSDK::AMChar**, PalvonAuthManagerSDK::AMAuthenticationResult*)"),
    PIN(api::kFreeString, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_FreeString(PalvonAuthManagerSDK::AMChar*)"),
    PIN(api::kGetVersion, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetVersion(PalvonAuthManagerSDK::ConnectionHandle, PalvonAuthManagerSDK::AMChar**)"),
    PIN(api::kSetClientWindow, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SetClientWindow(PalvonAuthManagerSDK::ConnectionHandle, PalvonAuthManagerSDK::AMWindowId)"),
    PIN(api::kDetermineServerType, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_DetermineServerType(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*, PalvonAuthManagerSDK::AM_SERVER_INFO**)"),
    PIN(api::kFreeServerInfo, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_FreeServerInfo(PalvonAuthManagerSDK::AM_SERVER_INFO*)"),
    PIN(api::kRetrieveGatewayDiscoveryData, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_RetrieveGatewayDiscoveryData(PalvonAuthManagerSDK::ConnectionHandle, const AM_GATEWAY_INFO*, PalvonAuthManagerSDK::AMAuthenticationFlags, PalvonAuthManagerSDK::AMChar**, PalvonAuthManagerSDK::AMAuthenticationResult*)"),
    PIN(api::kLogOffGateway, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_LogOffGateway(PalvonAuthManagerSDK::ConnectionHandle, const AM_GATEWAY_INFO*)"),
    PIN(api::kLogOffAuthService, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_LogOffAuthService(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*)"),
    PIN(api::kGetLogonStatus, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetLogonStatus(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*, PalvonAuthManagerSDK::AMLogonStatus*)"),
    PIN(api::kCreateAMHttpRequest, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_CreateAMHttpRequest(PalvonAuthManagerSDK::ConnectionHandle, PalvonAuthManagerSDK::AMHttpHandle*)"),
    PIN(api::kSetRequestMethod, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SetRequestMethod(PalvonAuthManagerSDK::AMHttpHandle, const AMChar*)"),
    PIN(api::kSetRequestUrl, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SetRequestUrl(PalvonAuthManagerSDK::AMHttpHandle, const AMChar*)"),
    PIN(api::kSetRequestReferenceUrl, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SetRequestReferenceUrl(PalvonAuthManagerSDK::AMHttpHandle, const AMChar*)"),
    PIN(api::kSetRequestAuthenticationFlags, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SetRequestAuthenticationFlags(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMAuthenticationFlags)"),
    PIN(api::kSetRequestTimeoutSeconds, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SetRequestTimeoutSeconds(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMUint)"),
    PIN(api::kSetRequestUserAgentSuffix, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SetRequestUserAgentSuffix(PalvonAuthManagerSDK::AMHttpHandle, const AMChar*)"),
    PIN(api::kSetRequestRoute, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SetRequestRoute(PalvonAuthManagerSDK::AMHttpHandle, const AM_GATEWAY_INFO*)"),
    PIN(api::kAddRequestHeader, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_AddRequestHeader(PalvonAuthManagerSDK::AMHttpHandle, const AMChar*)"),
    PIN(api::kSetRequestData, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SetRequestData(PalvonAuthManagerSDK::AMHttpHandle, const AMByte*, PalvonAuthManagerSDK::AMUint)"),
    PIN(api::kSendRequestAndReceiveResponse, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SendRequestAndReceiveResponse(PalvonAuthManagerSDK::AMHttpHandle)"),
    PIN(api::kGetResponseStatusCode, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetResponseStatusCode(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMUint*)"),
    PIN(api::kGetResponseReasonPhrase, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetResponseReasonPhrase(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMChar**)"),
    PIN(api::kGetResponseHeaders, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetResponseHeaders(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMChar***)"),
    PIN(api::kGetResponseServerCertificate, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetResponseServerCertificate(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMCertificate*)"),
    PIN(api::kGetResponseTrustFailureFlags, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetResponseTrustFailureFlags(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMUint*)"),
    PIN(api::kGetServerCertificate, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetServerCertificate(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*, PalvonAuthManagerSDK::AMCertificate*, PalvonAuthManagerSDK::AMUint*)"),
    PIN(api::kFreeCertificate, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_FreeCertificate(PalvonAuthManagerSDK::AMCertificate)"),
    PIN(api::kDuplicateCertificate, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_DuplicateCertificate(PalvonAuthManagerSDK::AMCertificate, PalvonAuthManagerSDK::AMCertificate*)"),
    PIN(api::kReadResponseBodyStream, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_ReadResponseBodyStream(PalvonAuthManagerSDK::AMHttpHandle, PalvonAuthManagerSDK::AMByte*, PalvonAuthManagerSDK::AMUint, PalvonAuthManagerSDK::AMUint*)"),
    PIN(api::kDestroyAMHttpRequest, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_DestroyAMHttpRequest(PalvonAuthManagerSDK::AMHttpHandle)"),
    PIN(api::kLaunchRZPFile, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_LaunchRZPFile(const AMUTF8Char*, PalvonAuthManagerSDK::AMUTF8Char**, PalvonAuthManagerSDK::AMUint*)"),
    PIN(api::kCreateRequestContext, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_CreateRequestContext(PalvonAuthManagerSDK::ConnectionHandle, const AMChar*, PalvonAuthManagerSDK::AMAuthenticationFlags, PalvonAuthManagerSDK::RequestContextHandle*)"),
    PIN(api::kDestroyContext, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_DestroyContext(PalvonAuthManagerSDK::RequestContextHandle)"),
    PIN(api::kPrepare, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_Prepare(PalvonAuthManagerSDK::RequestContextHandle, PalvonAuthManagerSDK::AMChar**, PalvonAuthManagerSDK::AMAuthenticationResult*)"),
    PIN(api::kGetHeaders, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetHeaders(PalvonAuthManagerSDK::RequestContextHandle, PalvonAuthManagerSDK::AMChar***)"),
    PIN(api::kFreeHeaders, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_FreeHeaders(PalvonAuthManagerSDK::AMChar**)"),
    PIN(api::kGetTranslatedUrl, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetTranslatedUrl(PalvonAuthManagerSDK::RequestContextHandle, PalvonAuthManagerSDK::AMChar**)"),
    PIN(api::kFreeTranslatedUrl, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_FreeTranslatedUrl(PalvonAuthManagerSDK::AMChar*)"),
    PIN(api::kPrepare2, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_Prepare2(PalvonAuthManagerSDK::RequestContextHandle, PalvonAuthManagerSDK::AMAuthenticationResult*)"),
    PIN(api::kReportHttpResponse, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_ReportHttpResponse(PalvonAuthManagerSDK::RequestContextHandle, PalvonAuthManagerSDK::AMHttpStatus, PalvonAuthManagerSDK::AMChar**)"),
    PIN(api::kReportHttpFailure, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_ReportHttpFailure(PalvonAuthManagerSDK::RequestContextHandle, PalvonAuthManagerSDK::AMHttpFailureReason)"),
    PIN(api::kForceRoute, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_ForceRoute(PalvonAuthManagerSDK::RequestContextHandle, const AM_GATEWAY_INFO*)"),
    PIN(api::kSetReferenceUrl, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_SetReferenceUrl(PalvonAuthManagerSDK::RequestContextHandle, const AMChar*)"),
    PIN(api::kGetApiLevel, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_GetApiLevel(PalvonAuthManagerSDK::AMUint*)"),
    PIN(api::kFreeResponseHeaders, "PalvonAuthManagerSDK::AMResult PalvonAuthManagerSDK::PalvonAuthManager_FreeResponseHeaders(PalvonAuthManagerSDK::AMChar**)"),
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

// Every row names an existing constant (or this file would not compile) and
// no constant is pinned twice, so matching the number of constants the header
// declares means a text added there without being pinned here is noticed.
TEST(SignatureTexts, EveryConstantOfTheHeaderIsPinned) {
  std::ifstream header(PAM_SIGNATURE_TEXTS_HEADER);
  ASSERT_TRUE(header.is_open()) << "cannot read " << PAM_SIGNATURE_TEXTS_HEADER;
  const std::regex constant(R"(^constexpr const char\* k\w+ =)");
  size_t declared = 0;
  for (std::string line; std::getline(header, line);) declared += std::regex_search(line, constant) ? 1 : 0;
  std::set<std::string> pinned;
  for (const PinnedText& entry : kPinned) {
    EXPECT_TRUE(pinned.insert(entry.name).second) << "pinned twice: " << entry.name;
  }
  EXPECT_EQ(declared, pinned.size());
  // One exported text per exported function that traces (all but
  // Initialize and Uninitialize), 21 level-1 and 22 level-2 operations, and
  // the version query.
  EXPECT_EQ(pinned.size(), 55u + 21u + 22u + 1u);
}

}  // namespace

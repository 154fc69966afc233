#include "daemon/Operations.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>

#include "protocol/Operations.h"

namespace palvonauthd {

namespace msg = PalvonAuthManagerSDK::msg;

namespace {

struct Named {
  uint32_t type;
  const char* name;
};

constexpr Named kOperations[] = {
    {msg::kInitialize, "Initialize"},
    {msg::kUninitialize, "Uninitialize"},
    {msg::kCreateConnection, "CreateConnection"},
    {msg::kDestroyConnection, "DestroyConnection"},
    {msg::kClearAllCredentials, "ClearAllCredentials"},
    {msg::kCancelAllCalls, "CancelAllCalls"},
    {msg::kLogOff, "LogOff"},
    {msg::kLogOffGateway, "LogOffGateway"},
    {msg::kLogOffAuthService, "LogOffAuthService"},
    {msg::kGetLogonStatus, "GetLogonStatus"},
    {msg::kGenerateTrampolineUrl, "GenerateTrampolineUrl"},
    {msg::kCreateVpnAuthContext, "CreateVpnAuthContext"},
    {msg::kDestroyVpnAuthContext, "DestroyVpnAuthContext"},
    {msg::kGetVpnAuthorizationInfo, "GetVpnAuthorizationInfo"},
    {msg::kGetVersion, "GetVersion"},
    {msg::kSetClientWindow, "SetClientWindow"},
    {msg::kDetermineServerType, "DetermineServerType"},
    {msg::kRetrieveGatewayDiscoveryData, "RetrieveGatewayDiscoveryData"},
    {msg::kGetServerSDKVersion, "GetServerSDKVersion"},
    {msg::kLaunchRZPFile, "LaunchRZPFile"},
    {msg::kCreateAMHttpRequest, "CreateAMHttpRequest"},
    {msg::kAddRequestHeader, "AddRequestHeader"},
    {msg::kSetRequestMethod, "SetRequestMethod"},
    {msg::kSetRequestUrl, "SetRequestUrl"},
    {msg::kSetRequestReferenceUrl, "SetRequestReferenceUrl"},
    {msg::kSetRequestAuthenticationFlags, "SetRequestAuthenticationFlags"},
    {msg::kSetRequestUserAgentSuffix, "SetRequestUserAgentSuffix"},
    {msg::kSetRequestData, "SetRequestData"},
    {msg::kSetRequestRoute, "SetRequestRoute"},
    {msg::kSetRequestTimeoutSeconds, "SetRequestTimeoutSeconds"},
    {msg::kSendRequestAndReceiveResponse, "SendRequestAndReceiveResponse"},
    {msg::kGetResponseStatusCode, "GetResponseStatusCode"},
    {msg::kGetResponseReasonPhrase, "GetResponseReasonPhrase"},
    {msg::kGetResponseHeaders, "GetResponseHeaders"},
    {msg::kDestroyAMHttpRequest, "DestroyAMHttpRequest"},
    {msg::kReadResponseBodyStream, "ReadResponseBodyStream"},
    {msg::kGetResponseTrustFailureFlags, "GetResponseTrustFailureFlags"},
};

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

}  // namespace

std::string OperationName(uint32_t type) {
  for (const auto& op : kOperations) {
    if (op.type == type) return op.name;
  }
  return "Unknown" + std::to_string(type);
}

std::optional<uint32_t> ParseNumber(const std::string& text) {
  if (text.empty() || std::isdigit(static_cast<unsigned char>(text[0])) == 0) return std::nullopt;
  char* end = nullptr;
  errno = 0;
  // Base 10 or 0x-prefixed 16; a leading 0 does not mean octal here.
  const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  const unsigned long long value = std::strtoull(text.c_str(), &end, hex ? 16 : 10);
  if (errno != 0 || end == nullptr || *end != '\0' || value > 0xFFFFFFFFull) return std::nullopt;
  return static_cast<uint32_t>(value);
}

std::optional<uint32_t> ParseOperation(const std::string& text) {
  if (text.empty()) return std::nullopt;
  if (std::isdigit(static_cast<unsigned char>(text[0])) != 0) return ParseNumber(text);
  const std::string wanted = Lower(text);
  for (const auto& op : kOperations) {
    if (Lower(op.name) == wanted) return op.type;
  }
  return std::nullopt;
}

std::vector<uint32_t> KnownOperations() {
  std::vector<uint32_t> types;
  for (const auto& op : kOperations) types.push_back(op.type);
  std::sort(types.begin(), types.end());
  return types;
}

}  // namespace palvonauthd

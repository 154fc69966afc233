// Server type, gateway discovery, logon status and log-off.
#include <cstdlib>

#include "PalvonAuthManagerTracer.h"
#include "api/SignatureTexts.h"
#include "impl/LinuxAMImplementation.h"
#include "impl/ServiceOperation.h"
#include "message/MessageTypes.h"

namespace PalvonAuthManagerSDK {

namespace {
constexpr const wchar_t* kInvalidConnection = L"Invalid connection handle %u.";
// Deliberately the request-context wording, although a connection is meant.
constexpr const wchar_t* kInvalidContext = L"Invalid request context handle %u.";
constexpr uint32_t kGatewayServerType = 2;

template <typename T>
T* CallocOne() {
  void* memory = std::calloc(1, sizeof(T));
  if (memory == nullptr) throw std::bad_alloc();
  return static_cast<T*>(memory);
}
}  // namespace

AMResult LinuxAMImplementation::DetermineServerType(ConnectionHandle handle, const AMChar* serverUrl,
                                                    AM_SERVER_INFO** outServerInfo) {
  ServiceOperation op(sig::l1::kDetermineServerType, msg::kDetermineServerType);
  if (!ServiceOperation::Require(outServerInfo, "DetermineServerType", "outServerInfo") ||
      !ServiceOperation::Require(serverUrl, "DetermineServerType", "serverUrl")) {
    return rc::kBadParameter;
  }
  return op.InvalidHandleMessage(kInvalidConnection, handle)
      .Call(
          [&](LinuxDictionary& request) {
            request.SetUInt(L"AuthManagerHandle", handle);
            request.SetWideString(L"serviceUrl", serverUrl);
          },
          [&](const LinuxDictionary& reply) {
            // Handed out at once and zero-filled, so a record left partly
            // filled by a missing text is still safe to release.
            auto* info = CallocOne<AM_SERVER_INFO>();
            *outServerInfo = info;
            (void)reply.GetUInt(L"serverType", &info->serverType);
            if (info->serverType != kGatewayServerType) return;
            auto* gateway = CallocOne<AM_GATEWAY_INFO>();
            info->gatewayInfo = gateway;
            gateway->friendlyName = CopyReplyText(reply, L"friendlyName");
            gateway->logonPointUrl = CopyReplyText(reply, L"logonPointUrl");
            (void)reply.GetUInt(L"amGatewayEdition", &gateway->amGatewayEdition);
            (void)reply.GetUInt(L"amGatewayAuthType", &gateway->amGatewayAuthType);
          });
}

AMResult LinuxAMImplementation::FreeServerInfo(AM_SERVER_INFO* info) {
  CTracer::TraceMethodEntry(sig::l1::kFreeServerInfo);
  if (info == nullptr) return rc::kSuccess;
  if (AM_GATEWAY_INFO* gateway = info->gatewayInfo) {
    FreeString(const_cast<AMChar*>(gateway->friendlyName));
    FreeString(const_cast<AMChar*>(gateway->logonPointUrl));
    gateway->friendlyName = nullptr;
    gateway->logonPointUrl = nullptr;
    std::free(gateway);
    info->gatewayInfo = nullptr;
  }
  std::free(info);
  return rc::kSuccess;
}

AMResult LinuxAMImplementation::RetrieveGatewayDiscoveryData(ConnectionHandle handle,
                                                             const AM_GATEWAY_INFO* gatewayInfo,
                                                             AMAuthenticationFlags flags, AMChar** outDiscoveryData,
                                                             AMAuthenticationResult* outAuthenticationResult) {
  ServiceOperation op(sig::l1::kRetrieveGatewayDiscoveryData, msg::kRetrieveGatewayDiscoveryData);
  if (!ServiceOperation::Require(gatewayInfo, "RetrieveGatewayDiscoveryData", "gatewayInfo") ||
      !ServiceOperation::Require(outDiscoveryData, "RetrieveGatewayDiscoveryData", "outDiscoveryData") ||
      !ServiceOperation::Require(outAuthenticationResult, "RetrieveGatewayDiscoveryData",
                                 "outAuthenticationResult")) {
    return rc::kBadParameter;
  }
  return op.InvalidHandleMessage(kInvalidConnection, handle)
      .Call(
          [&](LinuxDictionary& request) {
            request.SetUInt(L"AuthManagerHandle", handle);
            request.SetUInt(L"authenticationFlags", flags);
            PutGateway(request, *gatewayInfo, true);
          },
          [&](const LinuxDictionary& reply) {
            *outDiscoveryData = CopyReplyText(reply, L"discoveryData");
            (void)reply.GetUInt(L"amAuthenticationResult", outAuthenticationResult);
          });
}

AMResult LinuxAMImplementation::LogOffGateway(ConnectionHandle handle, const AM_GATEWAY_INFO* gatewayInfo) {
  ServiceOperation op(sig::l1::kLogOffGateway, msg::kLogOffGateway);
  if (!ServiceOperation::Require(gatewayInfo, "LogOffGateway", "gatewayInfo")) return rc::kBadParameter;
  return op.InvalidHandleMessage(kInvalidConnection, handle).Call([&](LinuxDictionary& request) {
    request.SetUInt(L"AuthManagerHandle", handle);
    PutGateway(request, *gatewayInfo, false);
  });
}

AMResult LinuxAMImplementation::LogOffAuthService(ConnectionHandle handle, const AMChar* authServiceUrl) {
  ServiceOperation op(sig::l1::kLogOffAuthService, msg::kLogOffAuthService);
  if (!ServiceOperation::Require(authServiceUrl, "LogOffAuthService", "authServiceUrl")) return rc::kBadParameter;
  return op.InvalidHandleMessage(kInvalidContext, handle).Call([&](LinuxDictionary& request) {
    request.SetUInt(L"AuthManagerHandle", handle);
    request.SetWideString(L"serviceUrl", authServiceUrl);
  });
}

AMResult LinuxAMImplementation::GetLogonStatus(ConnectionHandle handle, const AMChar* authServiceUrl,
                                               AMLogonStatus* outLogonStatus) {
  ServiceOperation op(sig::l1::kGetLogonStatus, msg::kGetLogonStatus);
  if (!ServiceOperation::Require(authServiceUrl, "GetLogonStatus", "authServiceUrl") ||
      !ServiceOperation::Require(outLogonStatus, "GetLogonStatus", "outLogonStatus")) {
    return rc::kBadParameter;
  }
  return op.InvalidHandleMessage(kInvalidContext, handle)
      .Call(
          [&](LinuxDictionary& request) {
            request.SetUInt(L"AuthManagerHandle", handle);
            request.SetWideString(L"serviceUrl", authServiceUrl);
          },
          [&](const LinuxDictionary& reply) { (void)reply.GetUInt(L"logonStatus", outLogonStatus); });
}

}  // namespace PalvonAuthManagerSDK

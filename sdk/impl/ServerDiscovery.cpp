// Server type and gateway discovery.
#include <cstdlib>
#include <memory>

#include "PalvonAuthManagerTracer.h"
#include "api/SignatureTexts.h"
#include "impl/LinuxAMImplementation.h"
#include "impl/ServiceOperation.h"
#include "protocol/Operations.h"
#include "protocol/ResultCodes.h"

namespace PalvonAuthManagerSDK {

namespace {
constexpr uint32_t kGatewayServerType = 2;

template <typename T>
T* CallocOne() {
  void* memory = std::calloc(1, sizeof(T));
  if (memory == nullptr) throw std::bad_alloc();
  return static_cast<T*>(memory);
}

// Releases a server record and its gateway description, either of them
// possibly filled only in part.
struct ServerInfoRelease {
  void operator()(AM_SERVER_INFO* info) const {
    if (info == nullptr) return;
    if (AM_GATEWAY_INFO* gateway = info->gatewayInfo) {
      delete[] gateway->friendlyName;
      delete[] gateway->logonPointUrl;
      std::free(gateway);
    }
    std::free(info);
  }
};
}  // namespace

AMResult LinuxAMImplementation::DetermineServerType(ConnectionHandle handle, const AMChar* serverUrl,
                                                    AM_SERVER_INFO** outServerInfo) {
  ServiceOperation op(sig::l1::kDetermineServerType, msg::kDetermineServerType);
  if (!ServiceOperation::Require(outServerInfo, "DetermineServerType", "outServerInfo") ||
      !ServiceOperation::Require(serverUrl, "DetermineServerType", "serverUrl")) {
    return rc::kBadParameter;
  }
  return op.InvalidHandleMessage(text::kInvalidConnection, handle)
      .Call(
          [&](LinuxDictionary& request) {
            request.SetUInt(key::kAuthManagerHandle, handle);
            request.SetWideString(key::kServiceUrl, serverUrl);
          },
          [&](const LinuxDictionary& reply) {
            // Zero-filled and filled completely before it is handed out:
            // after a missing text the caller's pointer stays as it was.
            std::unique_ptr<AM_SERVER_INFO, ServerInfoRelease> info(CallocOne<AM_SERVER_INFO>());
            (void)reply.GetUInt(key::kServerType, &info->serverType);
            if (info->serverType == kGatewayServerType) {
              AM_GATEWAY_INFO* gateway = CallocOne<AM_GATEWAY_INFO>();
              info->gatewayInfo = gateway;
              gateway->friendlyName = CopyReplyText(reply, key::kFriendlyName);
              gateway->logonPointUrl = CopyReplyText(reply, key::kLogonPointUrl);
              (void)reply.GetUInt(key::kGatewayEdition, &gateway->amGatewayEdition);
              (void)reply.GetUInt(key::kGatewayAuthType, &gateway->amGatewayAuthType);
            }
            *outServerInfo = info.release();
          });
}

AMResult LinuxAMImplementation::FreeServerInfo(AM_SERVER_INFO* info) {
  CTracer::TraceMethodEntry(sig::l1::kFreeServerInfo);
  ServerInfoRelease()(info);
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
  return op.InvalidHandleMessage(text::kInvalidConnection, handle)
      .Call(
          [&](LinuxDictionary& request) {
            request.SetUInt(key::kAuthManagerHandle, handle);
            request.SetUInt(key::kAuthenticationFlags, flags);
            PutGateway(request, *gatewayInfo, true);
          },
          [&](const LinuxDictionary& reply) {
            *outDiscoveryData = CopyReplyText(reply, key::kDiscoveryData);
            (void)reply.GetUInt(key::kAuthenticationResult, outAuthenticationResult);
          });
}

}  // namespace PalvonAuthManagerSDK

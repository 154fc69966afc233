// Logging on to an authentication service (the trampoline URL), its status
// and logging off.
#include "api/SignatureTexts.h"
#include "impl/LinuxAMImplementation.h"
#include "impl/ServiceOperation.h"
#include "protocol/Operations.h"
#include "protocol/ResultCodes.h"

namespace PalvonAuthManagerSDK {

AMResult LinuxAMImplementation::GenerateTrampolineUrl(ConnectionHandle handle, const AMChar* serviceUrl,
                                                      AMAuthenticationFlags flags,
                                                      const AMChar* optionalReferenceUrl, AMChar** trampolineUrl,
                                                      AMAuthenticationResult* authenticationResult) {
  ServiceOperation op(sig::l1::kGenerateTrampolineUrl, msg::kGenerateTrampolineUrl);
  if (!ServiceOperation::Require(serviceUrl, "GenerateTrampolineUrl", "serviceUrl") ||
      !ServiceOperation::Require(trampolineUrl, "GenerateTrampolineUrl", "trampolineUrl") ||
      !ServiceOperation::Require(authenticationResult, "GenerateTrampolineUrl", "authenticationResult")) {
    return rc::kBadParameter;
  }
  return op.InvalidHandleMessage(text::kInvalidConnection, handle)
      .Call(
          [&](LinuxDictionary& request) {
            request.SetWideString(key::kServiceUrl, serviceUrl);
            request.SetUInt(key::kAuthManagerHandle, handle);
            request.SetUInt(key::kAuthenticationFlags, flags);
            if (optionalReferenceUrl != nullptr) {
              request.SetWideString(key::kOptionalReferenceUrl, optionalReferenceUrl);
            }
          },
          [&](const LinuxDictionary& reply) {
            *trampolineUrl = CopyReplyText(reply, key::kTrampolineUrl);
            (void)reply.GetUInt(key::kAuthenticationResult, authenticationResult);
          });
}

AMResult LinuxAMImplementation::GetLogonStatus(ConnectionHandle handle, const AMChar* authServiceUrl,
                                               AMLogonStatus* outLogonStatus) {
  ServiceOperation op(sig::l1::kGetLogonStatus, msg::kGetLogonStatus);
  if (!ServiceOperation::Require(authServiceUrl, "GetLogonStatus", "authServiceUrl") ||
      !ServiceOperation::Require(outLogonStatus, "GetLogonStatus", "outLogonStatus")) {
    return rc::kBadParameter;
  }
  // Deliberately the request-context wording, although a connection is meant.
  return op.InvalidHandleMessage(text::kInvalidContext, handle)
      .Call(
          [&](LinuxDictionary& request) {
            request.SetUInt(key::kAuthManagerHandle, handle);
            request.SetWideString(key::kServiceUrl, authServiceUrl);
          },
          [&](const LinuxDictionary& reply) { (void)reply.GetUInt(key::kLogonStatus, outLogonStatus); });
}

AMResult LinuxAMImplementation::LogOffGateway(ConnectionHandle handle, const AM_GATEWAY_INFO* gatewayInfo) {
  ServiceOperation op(sig::l1::kLogOffGateway, msg::kLogOffGateway);
  if (!ServiceOperation::Require(gatewayInfo, "LogOffGateway", "gatewayInfo")) return rc::kBadParameter;
  return op.InvalidHandleMessage(text::kInvalidConnection, handle).Call([&](LinuxDictionary& request) {
    request.SetUInt(key::kAuthManagerHandle, handle);
    PutGateway(request, *gatewayInfo, false);
  });
}

AMResult LinuxAMImplementation::LogOffAuthService(ConnectionHandle handle, const AMChar* authServiceUrl) {
  ServiceOperation op(sig::l1::kLogOffAuthService, msg::kLogOffAuthService);
  if (!ServiceOperation::Require(authServiceUrl, "LogOffAuthService", "authServiceUrl")) return rc::kBadParameter;
  // Deliberately the request-context wording, although a connection is meant.
  return op.InvalidHandleMessage(text::kInvalidContext, handle).Call([&](LinuxDictionary& request) {
    request.SetUInt(key::kAuthManagerHandle, handle);
    request.SetWideString(key::kServiceUrl, authServiceUrl);
  });
}

}  // namespace PalvonAuthManagerSDK

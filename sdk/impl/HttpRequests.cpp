// HTTP request handles and the settings of a request.
#include "PalvonAuthManagerTracer.h"
#include "api/SignatureTexts.h"
#include "impl/HttpOperation.h"
#include "impl/LinuxAMImplementationV2.h"
#include "protocol/Operations.h"
#include "protocol/ResultCodes.h"

namespace PalvonAuthManagerSDK {

namespace {

// A setter sends "httpHandle" and one text under `key`.
AMResult SetText(const char* signature, uint32_t type, AMHttpHandle handle, const char* operation,
                 const char* argument, const AMChar* text, const wchar_t* key) {
  ServiceOperation op = HttpOperation(signature, type, handle);
  if (!ServiceOperation::Require(text, operation, argument)) return rc::kBadParameter;
  return op.Call([&](LinuxDictionary& request) {
    request.SetUInt(key::kHttpHandle, handle);
    request.SetWideString(key, text);
  });
}

// A setter sends "httpHandle" and one number under `key`.
AMResult SetNumber(const char* signature, uint32_t type, AMHttpHandle handle, uint32_t value, const wchar_t* key) {
  return HttpOperation(signature, type, handle).Call([&](LinuxDictionary& request) {
    request.SetUInt(key::kHttpHandle, handle);
    request.SetUInt(key, value);
  });
}

}  // namespace

ServiceOperation HttpOperation(const char* signature, uint32_t type, AMHttpHandle handle) {
  ServiceOperation op(signature, type);
  op.InvalidHandleMessage(L"Http request handle %u is not valid.", handle)
      .ExceptionMessage(L"Unexpected exception caught for http handle %u.", handle);
  return op;
}

LinuxAMImplementationV2::~LinuxAMImplementationV2() = default;

AMResult LinuxAMImplementationV2::CreateAMHttpRequest(ConnectionHandle connection, AMHttpHandle* outHttpHandle) {
  ServiceOperation op(sig::l2::kCreateAMHttpRequest, msg::kCreateAMHttpRequest);
  if (!ServiceOperation::Require(outHttpHandle, "CreateAMHttpRequest", "outHttpHandle")) return rc::kBadParameter;
  *outHttpHandle = 0;
  return op.InvalidHandleMessage(L"Connection handle %u is not valid.", connection)
      .ExceptionMessage(L"Unexpected exception caught for connection handle %u.", connection)
      .AfterEachReply([](AMResult result) {
        if (result != rc::kSuccess && result != rc::kInvalidHandle) CTracer::Err(L"Unexpected result from IPC");
      })
      .Call([&](LinuxDictionary& request) { request.SetUInt(key::kAuthManagerHandle, connection); },
            [&](const LinuxDictionary& reply) {
              AMHttpHandle created = 0;  // the cleared value when the reply has none
              (void)reply.GetUInt(key::kHttpHandle, &created);
              CTracer::Msg(L"Created http request handle %u for connection handle %u.", created, connection);
              *outHttpHandle = created;
            });
}

AMResult LinuxAMImplementationV2::DestroyAMHttpRequest(AMHttpHandle handle) {
  return HttpOperation(sig::l2::kDestroyAMHttpRequest, msg::kDestroyAMHttpRequest, handle)
      .Call([&](LinuxDictionary& request) { request.SetUInt(key::kHttpHandle, handle); });
}

AMResult LinuxAMImplementationV2::AddRequestHeader(AMHttpHandle handle, const AMChar* header) {
  return SetText(sig::l2::kAddRequestHeader, msg::kAddRequestHeader, handle, "AddRequestHeader", "header", header,
                 key::kHttpHeader);
}

AMResult LinuxAMImplementationV2::SetRequestMethod(AMHttpHandle handle, const AMChar* method) {
  return SetText(sig::l2::kSetRequestMethod, msg::kSetRequestMethod, handle, "SetRequestMethod", "method", method,
                 key::kHttpMethod);
}

AMResult LinuxAMImplementationV2::SetRequestUrl(AMHttpHandle handle, const AMChar* url) {
  return SetText(sig::l2::kSetRequestUrl, msg::kSetRequestUrl, handle, "SetRequestUrl", "url", url, key::kHttpUrl);
}

AMResult LinuxAMImplementationV2::SetRequestReferenceUrl(AMHttpHandle handle, const AMChar* url) {
  // Same key as the URL itself: the service tells them apart by message type.
  return SetText(sig::l2::kSetRequestReferenceUrl, msg::kSetRequestReferenceUrl, handle, "SetRequestReferenceUrl",
                 "url", url, key::kHttpUrl);
}

AMResult LinuxAMImplementationV2::SetRequestUserAgentSuffix(AMHttpHandle handle, const AMChar* suffix) {
  return SetText(sig::l2::kSetRequestUserAgentSuffix, msg::kSetRequestUserAgentSuffix, handle,
                 "SetRequestUserAgentSuffix", "UserAgentSuffix", suffix, key::kUserAgentSuffix);
}

AMResult LinuxAMImplementationV2::SetRequestAuthenticationFlags(AMHttpHandle handle, AMAuthenticationFlags flags) {
  return SetNumber(sig::l2::kSetRequestAuthenticationFlags, msg::kSetRequestAuthenticationFlags, handle, flags,
                   key::kHttpAuthFlags);
}

AMResult LinuxAMImplementationV2::SetRequestTimeoutSeconds(AMHttpHandle handle, AMUint seconds) {
  return SetNumber(sig::l2::kSetRequestTimeoutSeconds, msg::kSetRequestTimeoutSeconds, handle, seconds, key::kTimeout);
}

AMResult LinuxAMImplementationV2::SetRequestData(AMHttpHandle handle, const AMByte* pBufferToSend, AMUint numBytes) {
  ServiceOperation op = HttpOperation(sig::l2::kSetRequestData, msg::kSetRequestData, handle);
  if (numBytes != 0 && pBufferToSend == nullptr) {
    CTracer::Err(L"BadParameter : pBufferToSend is NULL and a non-zero number of bytes were specified!");
    return rc::kBadParameter;
  }
  return op.Call([&](LinuxDictionary& request) {
    request.SetUInt(key::kHttpHandle, handle);
    request.SetBuffer(key::kByteData, pBufferToSend, numBytes);  // left out for an empty body
    request.SetUInt(key::kNumBytes, numBytes);
  });
}

AMResult LinuxAMImplementationV2::SetRequestRoute(AMHttpHandle handle, const AM_GATEWAY_INFO* gatewayInfo) {
  ServiceOperation op = HttpOperation(sig::l2::kSetRequestRoute, msg::kSetRequestRoute, handle);
  if (!ServiceOperation::Require(gatewayInfo, "SetRequestRoute", "gatewayInfo")) return rc::kBadParameter;
  return op.Call([&](LinuxDictionary& request) {
    request.SetUInt(key::kHttpHandle, handle);
    PutGateway(request, *gatewayInfo, false);
  });
}

}  // namespace PalvonAuthManagerSDK

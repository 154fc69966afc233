#include "impl/ServiceOperation.h"

#include <cwchar>
#include <stdexcept>

#include "PalvonAuthManagerTracer.h"
#include "client/ServiceCall.h"
#include "protocol/ResultCodes.h"
#include "protocol/Keys.h"

namespace PalvonAuthManagerSDK {

ServiceOperation::ServiceOperation(const char* signature, uint32_t messageType)
    : signature_(signature), messageType_(messageType) {
  CTracer::TraceMethodEntry(signature_);
}

ServiceOperation& ServiceOperation::InvalidHandleMessage(const wchar_t* format, uint32_t handle) {
  invalidHandleFormat_ = format;
  invalidHandle_ = handle;
  return *this;
}

ServiceOperation& ServiceOperation::ExceptionMessage(const wchar_t* format, uint32_t handle) {
  exceptionFormat_ = format;
  exceptionHandle_ = handle;
  return *this;
}

ServiceOperation& ServiceOperation::ExceptionAtMessageLevel() {
  exceptionAtMessageLevel_ = true;
  return *this;
}

ServiceOperation& ServiceOperation::AfterEachReply(OnReply onReply) {
  onReply_ = std::move(onReply);
  return *this;
}

bool ServiceOperation::Require(const void* argument, const char* operation, const char* name) {
  if (argument != nullptr) return true;
  CTracer::TraceNullArgument(operation, name);
  return false;
}

AMResult ServiceOperation::Call(const Fill& fill, const ReadOut& readOut) {
  AMResult result = rc::kSuccess;
  try {
    LinuxDictionary request(MessageCommon(messageType_, CurrentProcessId()));
    if (fill) fill(request);
    const LinuxDictionary reply = CallUntilNotBusy(request, result, onReply_);
    if (result == rc::kInvalidHandle && invalidHandleFormat_ != nullptr) {
      CTracer::Err(invalidHandleFormat_, invalidHandle_);
    }
    if (result == rc::kSuccess && readOut) readOut(reply);
  } catch (...) {
    if (exceptionAtMessageLevel_) {
      CTracer::Msg(exceptionFormat_, exceptionHandle_);
    } else {
      CTracer::Err(exceptionFormat_, exceptionHandle_);
    }
    result = rc::kCommunicationFailure;
  }
  CTracer::TraceMethodExit(signature_, result);
  return result;
}

AMChar* CopyText(const wchar_t* text) {
  if (text == nullptr) throw std::logic_error("text value missing");
  const size_t length = std::wcslen(text);
  auto* copy = new AMChar[length + 1];
  std::wmemcpy(copy, text, length + 1);
  return copy;
}

AMChar* CopyReplyText(const LinuxDictionary& reply, const wchar_t* key) { return CopyText(reply.GetString(key)); }

void PutGateway(LinuxDictionary& request, const AM_GATEWAY_INFO& gateway, bool withRewriteRule) {
  if (gateway.friendlyName != nullptr) request.SetWideString(key::kFriendlyName, gateway.friendlyName);
  if (gateway.logonPointUrl != nullptr) request.SetWideString(key::kLogonPointUrl, gateway.logonPointUrl);
  request.SetUInt(key::kGatewayEdition, gateway.amGatewayEdition);
  request.SetUInt(key::kGatewayAuthType, gateway.amGatewayAuthType);
  if (withRewriteRule) request.SetUInt(key::kGatewayRewriteRule, gateway.amGatewayReWriteRule);
}

}  // namespace PalvonAuthManagerSDK

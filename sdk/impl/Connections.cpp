// Connections: create, destroy, clear credentials, cancel calls, log off;
// the service's version text, the client window and the release of texts
// handed out.
#include <stdexcept>

#include "api/SignatureTexts.h"
#include "impl/LinuxAMImplementation.h"
#include "impl/ServiceOperation.h"
#include "protocol/Operations.h"
#include "protocol/ResultCodes.h"

namespace PalvonAuthManagerSDK {

namespace {


// The four connection actions differ only in message type and signature.
AMResult ConnectionAction(const char* signature, uint32_t type, ConnectionHandle handle) {
  return ServiceOperation(signature, type)
      .InvalidHandleMessage(text::kInvalidConnection, handle)
      .Call([&](LinuxDictionary& request) { request.SetUInt(key::kAuthManagerHandle, handle); });
}

}  // namespace

AMResult LinuxAMImplementation::CreateConnection(const AMChar* connectionName, StatusChangeCallback /*callback*/,
                                                 void* /*context*/, ConnectionHandle* outHandle) {
  ServiceOperation op(sig::l1::kCreateConnection, msg::kCreateConnection);
  if (!ServiceOperation::Require(outHandle, "CreateConnection", "outHandle")) return rc::kBadParameter;
  // The status callback and its context are neither sent nor kept: no
  // notification is ever delivered.
  return op.Call(
      [&](LinuxDictionary& request) {
        if (connectionName != nullptr) request.SetWideString(key::kConnectionName, connectionName);
        request.SetWideString(key::kStatusCallbackFunction, L"");
        request.SetWideString(key::kStatusCallbackContext, L"");
      },
      [&](const LinuxDictionary& reply) { (void)reply.GetUInt(key::kAuthManagerHandle, outHandle); });
}

AMResult LinuxAMImplementation::DestroyConnection(ConnectionHandle handle) {
  return ConnectionAction(sig::l1::kDestroyConnection, msg::kDestroyConnection, handle);
}

AMResult LinuxAMImplementation::ClearAllCredentials(ConnectionHandle handle) {
  return ConnectionAction(sig::l1::kClearAllCredentials, msg::kClearAllCredentials, handle);
}

AMResult LinuxAMImplementation::CancelAllCalls(ConnectionHandle handle) {
  return ConnectionAction(sig::l1::kCancelAllCalls, msg::kCancelAllCalls, handle);
}

AMResult LinuxAMImplementation::LogOff(ConnectionHandle handle) {
  return ConnectionAction(sig::l1::kLogOff, msg::kLogOff, handle);
}

AMResult LinuxAMImplementation::GetVersion(ConnectionHandle handle, AMChar** version) {
  ServiceOperation op(sig::l1::kGetVersion, msg::kGetVersion);
  if (!ServiceOperation::Require(version, "GetVersion", "version")) return rc::kBadParameter;
  return op.InvalidHandleMessage(text::kInvalidConnection, handle)
      .Call([&](LinuxDictionary& request) { request.SetUInt(key::kAuthManagerHandle, handle); },
            [&](const LinuxDictionary& reply) { *version = CopyReplyText(reply, key::kVersion); });
}

AMResult LinuxAMImplementation::SetClientWindow(ConnectionHandle handle, AMWindowId window) {
  ServiceOperation op(sig::l1::kSetClientWindow, msg::kSetClientWindow);
  op.InvalidHandleMessage(text::kInvalidConnection, handle).ExceptionMessage(L"Unexpected exception caught.");
  // A null record would be read through; it is reported as a failed call
  // instead.
  return op.Call([&](LinuxDictionary& request) {
    if (window == nullptr) throw std::invalid_argument("no window record");
    request.SetUInt(key::kAuthManagerHandle, handle);
    request.SetUInt(key::kWindowBottom, static_cast<uint32_t>(window->winbottom));
    request.SetUInt(key::kWindowLeft, static_cast<uint32_t>(window->winleft));
    request.SetUInt(key::kWindowWidth, static_cast<uint32_t>(window->winwidth));
    request.SetUInt(key::kWindowHeight, static_cast<uint32_t>(window->winheight));
    if (window->winname != nullptr) request.SetWideString(key::kWindowName, window->winname);
    if (window->winid != nullptr) request.SetWideString(key::kWindowId, window->winid);
    if (window->winamName != nullptr) request.SetWideString(key::kWindowAmName, window->winamName);
  });
}

AMResult LinuxAMImplementation::FreeString(AMChar* text) {
  delete[] text;
  return rc::kSuccess;
}

}  // namespace PalvonAuthManagerSDK

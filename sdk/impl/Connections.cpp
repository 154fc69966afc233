// Connections: create, destroy, clear credentials, cancel calls, log off.
#include "api/SignatureTexts.h"
#include "impl/LinuxAMImplementation.h"
#include "impl/ServiceOperation.h"
#include "protocol/Operations.h"
#include "protocol/ResultCodes.h"

namespace PalvonAuthManagerSDK {

namespace {

constexpr const wchar_t* kInvalidConnection = L"Invalid connection handle %u.";

// The four connection actions differ only in message type and signature.
AMResult ConnectionAction(const char* signature, uint32_t type, ConnectionHandle handle) {
  return ServiceOperation(signature, type)
      .InvalidHandleMessage(kInvalidConnection, handle)
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

}  // namespace PalvonAuthManagerSDK

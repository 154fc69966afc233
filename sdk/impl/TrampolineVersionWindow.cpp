// Trampoline URLs, the service's version text, the client window, and the
// release of texts handed out.
#include <stdexcept>

#include "api/SignatureTexts.h"
#include "impl/LinuxAMImplementation.h"
#include "impl/ServiceOperation.h"
#include "protocol/Operations.h"
#include "protocol/ResultCodes.h"

namespace PalvonAuthManagerSDK {

namespace {
constexpr const wchar_t* kInvalidConnection = L"Invalid connection handle %u.";
}  // namespace

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
  return op.InvalidHandleMessage(kInvalidConnection, handle)
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

AMResult LinuxAMImplementation::FreeString(AMChar* text) {
  delete[] text;
  return rc::kSuccess;
}

AMResult LinuxAMImplementation::GetVersion(ConnectionHandle handle, AMChar** version) {
  ServiceOperation op(sig::l1::kGetVersion, msg::kGetVersion);
  if (!ServiceOperation::Require(version, "GetVersion", "version")) return rc::kBadParameter;
  return op.InvalidHandleMessage(kInvalidConnection, handle)
      .Call([&](LinuxDictionary& request) { request.SetUInt(key::kAuthManagerHandle, handle); },
            [&](const LinuxDictionary& reply) { *version = CopyReplyText(reply, key::kVersion); });
}

AMResult LinuxAMImplementation::SetClientWindow(ConnectionHandle handle, AMWindowId window) {
  ServiceOperation op(sig::l1::kSetClientWindow, msg::kSetClientWindow);
  op.InvalidHandleMessage(kInvalidConnection, handle).ExceptionMessage(L"Unexpected exception caught.");
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

}  // namespace PalvonAuthManagerSDK

// Trampoline URLs, the service's version text, the client window, and the
// release of texts handed out.
#include <stdexcept>

#include "api/SignatureTexts.h"
#include "impl/LinuxAMImplementation.h"
#include "impl/ServiceOperation.h"
#include "message/MessageTypes.h"

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
            request.SetWideString(L"serviceUrl", serviceUrl);
            request.SetUInt(L"AuthManagerHandle", handle);
            request.SetUInt(L"authenticationFlags", flags);
            if (optionalReferenceUrl != nullptr) {
              // "optionale" is the key services read; kept on purpose.
              request.SetWideString(L"optionaleReferenceUrl", optionalReferenceUrl);
            }
          },
          [&](const LinuxDictionary& reply) {
            *trampolineUrl = CopyReplyText(reply, L"trampolineUrl");
            (void)reply.GetUInt(L"amAuthenticationResult", authenticationResult);
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
      .Call([&](LinuxDictionary& request) { request.SetUInt(L"AuthManagerHandle", handle); },
            [&](const LinuxDictionary& reply) { *version = CopyReplyText(reply, L"version"); });
}

AMResult LinuxAMImplementation::SetClientWindow(ConnectionHandle handle, AMWindowId window) {
  ServiceOperation op(sig::l1::kSetClientWindow, msg::kSetClientWindow);
  op.InvalidHandleMessage(kInvalidConnection, handle).ExceptionMessage(L"Unexpected exception caught.");
  // A null record would be read through; it is reported as a failed call
  // instead.
  return op.Call([&](LinuxDictionary& request) {
    if (window == nullptr) throw std::invalid_argument("no window record");
    request.SetUInt(L"AuthManagerHandle", handle);
    request.SetUInt(L"winbottom", static_cast<uint32_t>(window->winbottom));
    request.SetUInt(L"winleft", static_cast<uint32_t>(window->winleft));
    request.SetUInt(L"winwidth", static_cast<uint32_t>(window->winwidth));
    request.SetUInt(L"winheight", static_cast<uint32_t>(window->winheight));
    if (window->winname != nullptr) request.SetWideString(L"winname", window->winname);
    if (window->winid != nullptr) request.SetWideString(L"winid", window->winid);
    if (window->winamName != nullptr) request.SetWideString(L"winamName", window->winamName);
  });
}

}  // namespace PalvonAuthManagerSDK

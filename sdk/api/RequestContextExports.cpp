// Request-context functions: present for compatibility, never implemented.
// They trace their entry, read no argument and write no output.
#include "PalvonAuthManager.h"
#include "api/ExportFrame.h"
#include "api/SignatureTexts.h"

namespace PalvonAuthManagerSDK {

extern "C" {

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_CreateRequestContext(ConnectionHandle, const AMChar*,
                                                                         AMAuthenticationFlags,
                                                                         RequestContextHandle*) {
  return NotImplemented(sig::api::kCreateRequestContext);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_DestroyContext(RequestContextHandle) {
  return NotImplemented(sig::api::kDestroyContext);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_Prepare(RequestContextHandle, AMChar**, AMAuthenticationResult*) {
  return NotImplemented(sig::api::kPrepare);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_GetHeaders(RequestContextHandle, AMChar***) {
  return NotImplemented(sig::api::kGetHeaders);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_FreeHeaders(AMChar**) {
  return NotImplemented(sig::api::kFreeHeaders);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_GetTranslatedUrl(RequestContextHandle, AMChar**) {
  return NotImplemented(sig::api::kGetTranslatedUrl);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_FreeTranslatedUrl(AMChar*) {
  return NotImplemented(sig::api::kFreeTranslatedUrl);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_Prepare2(RequestContextHandle, AMAuthenticationResult*) {
  return NotImplemented(sig::api::kPrepare2);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_ReportHttpResponse(RequestContextHandle, AMHttpStatus, AMChar**) {
  return NotImplemented(sig::api::kReportHttpResponse);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_ReportHttpFailure(RequestContextHandle, AMHttpFailureReason) {
  return NotImplemented(sig::api::kReportHttpFailure);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_ForceRoute(RequestContextHandle, const AM_GATEWAY_INFO*) {
  return NotImplemented(sig::api::kForceRoute);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_SetReferenceUrl(RequestContextHandle, const AMChar*) {
  return NotImplemented(sig::api::kSetReferenceUrl);
}

}  // extern "C"

}  // namespace PalvonAuthManagerSDK

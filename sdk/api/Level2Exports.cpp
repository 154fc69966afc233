// Exported API level 2 functions.
#include "PalvonAuthManager.h"
#include "api/ExportFrame.h"
#include "api/SignatureTexts.h"

namespace PalvonAuthManagerSDK {

using L2 = LinuxAMImplementationV2;

extern "C" {

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_CreateAMHttpRequest(ConnectionHandle connection,
                                                                        AMHttpHandle* outHttpHandle) {
  return ForwardToLevel2(sig::api::kCreateAMHttpRequest, &L2::CreateAMHttpRequest, connection, outHttpHandle);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_SetRequestMethod(AMHttpHandle request, const AMChar* method) {
  return ForwardToLevel2(sig::api::kSetRequestMethod, &L2::SetRequestMethod, request, method);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_SetRequestUrl(AMHttpHandle request, const AMChar* url) {
  return ForwardToLevel2(sig::api::kSetRequestUrl, &L2::SetRequestUrl, request, url);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_SetRequestReferenceUrl(AMHttpHandle request, const AMChar* url) {
  return ForwardToLevel2(sig::api::kSetRequestReferenceUrl, &L2::SetRequestReferenceUrl, request, url);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_SetRequestAuthenticationFlags(AMHttpHandle request,
                                                                                  AMAuthenticationFlags flags) {
  return ForwardToLevel2(sig::api::kSetRequestAuthenticationFlags, &L2::SetRequestAuthenticationFlags, request, flags);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_SetRequestTimeoutSeconds(AMHttpHandle request, AMUint seconds) {
  return ForwardToLevel2(sig::api::kSetRequestTimeoutSeconds, &L2::SetRequestTimeoutSeconds, request, seconds);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_SetRequestUserAgentSuffix(AMHttpHandle request,
                                                                              const AMChar* suffix) {
  return ForwardToLevel2(sig::api::kSetRequestUserAgentSuffix, &L2::SetRequestUserAgentSuffix, request, suffix);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_SetRequestRoute(AMHttpHandle request,
                                                                    const AM_GATEWAY_INFO* gatewayInfo) {
  return ForwardToLevel2(sig::api::kSetRequestRoute, &L2::SetRequestRoute, request, gatewayInfo);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_AddRequestHeader(AMHttpHandle request, const AMChar* header) {
  return ForwardToLevel2(sig::api::kAddRequestHeader, &L2::AddRequestHeader, request, header);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_SetRequestData(AMHttpHandle request, const AMByte* data,
                                                                   AMUint numBytes) {
  return ForwardToLevel2(sig::api::kSetRequestData, &L2::SetRequestData, request, data, numBytes);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_SendRequestAndReceiveResponse(AMHttpHandle request) {
  return ForwardToLevel2(sig::api::kSendRequestAndReceiveResponse, &L2::SendRequestAndReceiveResponse, request);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_GetResponseStatusCode(AMHttpHandle request,
                                                                          AMUint* httpStatusCode) {
  return ForwardToLevel2(sig::api::kGetResponseStatusCode, &L2::GetResponseStatusCode, request, httpStatusCode);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_GetResponseReasonPhrase(AMHttpHandle request,
                                                                            AMChar** outReasonPhrase) {
  return ForwardToLevel2(sig::api::kGetResponseReasonPhrase, &L2::GetResponseReasonPhrase, request, outReasonPhrase);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_GetResponseHeaders(AMHttpHandle request, AMChar*** headers) {
  return ForwardToLevel2(sig::api::kGetResponseHeaders, &L2::GetResponseHeaders, request, headers);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_FreeResponseHeaders(AMChar** headers) {
  // Releasing needs no service: it works in any state of the library.
  try {
    CTracer::TraceEntry(sig::api::kFreeResponseHeaders);
  } catch (...) {
  }
  FreeHeaderArray(headers);
  return rc::kSuccess;
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_GetResponseServerCertificate(AMHttpHandle request,
                                                                                 AMCertificate* certificate) {
  return ForwardToLevel2(sig::api::kGetResponseServerCertificate, &L2::GetResponseServerCertificate, request,
                         certificate);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_GetResponseTrustFailureFlags(AMHttpHandle request,
                                                                                 AMUint* outTrustFailureFlags) {
  return ForwardToLevel2(sig::api::kGetResponseTrustFailureFlags, &L2::GetResponseTrustFailureFlags, request,
                         outTrustFailureFlags);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_GetServerCertificate(ConnectionHandle connection,
                                                                         const AMChar* url,
                                                                         AMCertificate* certificate, AMUint* flags) {
  return ForwardToLevel2(sig::api::kGetServerCertificate, &L2::GetServerCertificate, connection, url, certificate,
                         flags);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_FreeCertificate(AMCertificate certificate) {
  return ForwardToLevel2(sig::api::kFreeCertificate, &L2::FreeCertificate, certificate);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_DuplicateCertificate(AMCertificate certificate,
                                                                         AMCertificate* duplicate) {
  return ForwardToLevel2(sig::api::kDuplicateCertificate, &L2::DuplicateCertificate, certificate, duplicate);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_ReadResponseBodyStream(AMHttpHandle request, AMByte* buffer,
                                                                           AMUint maxNumberOfBytesToRead,
                                                                           AMUint* numBytesRead) {
  return ForwardToLevel2(sig::api::kReadResponseBodyStream, &L2::ReadResponseBodyStream, request, buffer,
                         maxNumberOfBytesToRead, numBytesRead);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_DestroyAMHttpRequest(AMHttpHandle request) {
  return ForwardToLevel2(sig::api::kDestroyAMHttpRequest, &L2::DestroyAMHttpRequest, request);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_LaunchRZPFile(const AMUTF8Char* launchUrl, AMUTF8Char** args,
                                                                  AMUint* status) {
  return ForwardToLevel2(sig::api::kLaunchRZPFile, &L2::LaunchRZPFile, launchUrl, args, status);
}

}  // extern "C"

}  // namespace PalvonAuthManagerSDK

#ifndef PALVON_SDK_IMPL_LINUXAMIMPLEMENTATIONV2_H
#define PALVON_SDK_IMPL_LINUXAMIMPLEMENTATIONV2_H

#include "PalvonAuthManager.h"

namespace PalvonAuthManagerSDK {

/** API level 2 operations: HTTP requests performed by the service, launch-file hand-off. */
class LinuxAMImplementationV2 {
 public:
  LinuxAMImplementationV2() = default;
  virtual ~LinuxAMImplementationV2();
  LinuxAMImplementationV2(const LinuxAMImplementationV2&) = delete;
  LinuxAMImplementationV2& operator=(const LinuxAMImplementationV2&) = delete;

  virtual AMResult CreateAMHttpRequest(ConnectionHandle connection, AMHttpHandle* outHttpHandle);
  virtual AMResult AddRequestHeader(AMHttpHandle handle, const AMChar* header);
  virtual AMResult SetRequestMethod(AMHttpHandle handle, const AMChar* method);
  virtual AMResult SetRequestUrl(AMHttpHandle handle, const AMChar* url);
  virtual AMResult SetRequestReferenceUrl(AMHttpHandle handle, const AMChar* url);
  virtual AMResult SetRequestAuthenticationFlags(AMHttpHandle handle, AMAuthenticationFlags flags);
  virtual AMResult SetRequestUserAgentSuffix(AMHttpHandle handle, const AMChar* suffix);
  virtual AMResult SetRequestData(AMHttpHandle handle, const AMByte* pBufferToSend, AMUint numBytes);
  virtual AMResult SetRequestRoute(AMHttpHandle handle, const AM_GATEWAY_INFO* gatewayInfo);
  virtual AMResult SetRequestTimeoutSeconds(AMHttpHandle handle, AMUint seconds);
  virtual AMResult SendRequestAndReceiveResponse(AMHttpHandle handle);
  virtual AMResult GetResponseStatusCode(AMHttpHandle handle, AMUint* httpStatusCode);
  /** Hands out a copy of the phrase, released with FreeString (null when the service sent none). */
  virtual AMResult GetResponseReasonPhrase(AMHttpHandle handle, AMChar** outReasonPhrase);
  /** Hands out a null-terminated array, released with FreeResponseHeaders(). */
  virtual AMResult GetResponseHeaders(AMHttpHandle handle, AMChar*** headers);
  virtual AMResult GetResponseServerCertificate(AMHttpHandle handle, AMCertificate* certificate);
  virtual AMResult GetResponseTrustFailureFlags(AMHttpHandle handle, AMUint* outTrustFailureFlags);
  virtual AMResult GetServerCertificate(ConnectionHandle connection, const AMChar* url, AMCertificate* certificate,
                                        AMUint* flags);
  virtual AMResult FreeCertificate(AMCertificate certificate);
  virtual AMResult DuplicateCertificate(AMCertificate certificate, AMCertificate* duplicate);
  /** Copies at most maxNumberOfBytesToRead bytes; a longer chunk from the service is answered with 65528. */
  virtual AMResult ReadResponseBodyStream(AMHttpHandle handle, AMByte* buffer, AMUint maxNumberOfBytesToRead,
                                          AMUint* numBytesRead);
  virtual AMResult DestroyAMHttpRequest(AMHttpHandle handle);
  virtual AMResult LaunchRZPFile(const AMUTF8Char* launchUrl, AMUTF8Char** args, AMUint* status);
};

/** Releases a header array of GetResponseHeaders: every entry up to the null one, then the array. */
void FreeHeaderArray(AMChar** headers);

}  // namespace PalvonAuthManagerSDK

#endif

#ifndef PALVONAUTHD_SERVICECODES_H
#define PALVONAUTHD_SERVICECODES_H

// Numbers the service defines itself: its own result codes, the bits of
// the trust-failure flags, logon states and launch statuses. docs/service.md
// lists them for application developers.

#include <cstdint>

namespace palvonauthd {

/** Result codes ("return") beyond the library's own table. */
namespace code {
/** The HTTP request could not be sent: the server refused or never answered the connection. */
constexpr uint32_t kHttpConnectFailed = 0x8001;
/** The HTTP request did not complete within its time-out. */
constexpr uint32_t kHttpTimedOut = 0x8002;
/** The TLS handshake failed or the server was not trusted; see the trust-failure flags. */
constexpr uint32_t kHttpTlsFailure = 0x8003;
/** A response was asked for before a request on the handle succeeded. */
constexpr uint32_t kHttpNoResponse = 0x8004;
/** Any other transfer failure, including a response larger than the configured limit. */
constexpr uint32_t kHttpTransferFailed = 0x8005;
/** The request was cancelled because the client went away or the service is stopping. */
constexpr uint32_t kHttpCancelled = 0x8006;
/** The host name of the URL (or of the proxy) could not be resolved. */
constexpr uint32_t kHttpHostUnknown = 0x8007;
}  // namespace code

/** Bits of "trustFailureFlags". */
namespace trust {
/** The certificate chain does not lead to a trusted root (unknown issuer, self-signed). */
constexpr uint32_t kUntrustedRoot = 0x01;
/** A certificate of the chain has expired or is not yet valid. */
constexpr uint32_t kExpiredOrNotYetValid = 0x02;
/** The certificate does not name the host that was asked for. */
constexpr uint32_t kHostNameMismatch = 0x04;
/** A certificate of the chain has been revoked. */
constexpr uint32_t kRevoked = 0x08;
/** A signature of the chain is invalid or a certificate is malformed. */
constexpr uint32_t kInvalidSignature = 0x10;
/** The certificate was rejected for any other reason. */
constexpr uint32_t kOtherVerificationFailure = 0x20;
/** The TLS handshake failed before the certificate could be judged. */
constexpr uint32_t kHandshakeFailed = 0x40;
/** Verification is switched off by the configuration; nothing was checked. */
constexpr uint32_t kVerificationDisabled = 0x80;
}  // namespace trust

/** Values of "logonStatus". */
namespace logon {
constexpr uint32_t kLoggedOff = 0;
constexpr uint32_t kLoggedOn = 1;
}  // namespace logon

/** Values of "currentStatus" answering a launch-file hand-off. */
namespace launch {
/** The configured launcher was started. */
constexpr uint32_t kStarted = 0;
/** No launcher is configured: the launch was only recorded in the launch log. */
constexpr uint32_t kRecorded = 1;
/** The launcher could not be started (not found, not executable, ...). */
constexpr uint32_t kStartFailed = 2;
/** No launcher is configured and the launch log could not be written. */
constexpr uint32_t kRecordFailed = 3;
}  // namespace launch

}  // namespace palvonauthd

#endif

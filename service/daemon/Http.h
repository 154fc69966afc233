#ifndef PALVONAUTHD_HTTP_H
#define PALVONAUTHD_HTTP_H

// HTTP requests performed on a client's behalf, with libcurl.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "daemon/Gateway.h"

namespace palvonauthd {

/** Service-wide HTTP settings from the configuration. */
struct HttpSettings {
  std::string userAgent;
  uint32_t connectTimeoutSeconds = 10;
  uint32_t timeoutSeconds = 60;
  /** Largest body a response may have; 0 for no limit. */
  uint64_t maxResponseBytes = 0;
  /** Bytes of a body the service holds per transfer while the client has not read them. */
  size_t bodyBufferBytes = 4u * 1024u * 1024u;
  bool followRedirects = false;
  bool verifyTls = true;
  std::string caFile;
};

class BodyStream;
class HttpTransfer;

/** What came back for the last request sent on a handle. */
struct HttpResponse {
  uint32_t status = 0;
  std::string reason;
  /** Header lines "Name: value" of the final response, in arrival order. */
  std::vector<std::string> headers;
  /** A body held whole (a response made without a transfer), and how much of it was read. */
  std::vector<uint8_t> body;
  size_t readOffset = 0;
  /** The transfer still bringing the body; it ends when the last owner goes. */
  std::shared_ptr<HttpTransfer> transfer;
  /** Takes what the client may read now (see BodyStream::Take); `code` is 0 or why the body broke off. */
  size_t ReadBody(uint8_t* out, size_t max, uint32_t& code);
};

/** One request object behind an HTTP handle. */
struct HttpRequest {
  uint32_t connection = 0;
  std::string method = "GET";
  std::string url;
  std::string referenceUrl;
  std::vector<std::string> headers;
  uint32_t authFlags = 0;
  std::string userAgentSuffix;
  std::vector<uint8_t> body;
  std::optional<Gateway> route;
  /** 0: the configured default. */
  uint32_t timeoutSeconds = 0;

  /** True once a send has been attempted (trust flags are known from then on). */
  bool attempted = false;
  uint32_t trustFailureFlags = 0;
  std::optional<HttpResponse> response;
};

/** Result of a send: the result code for the client and a description for the log. */
struct HttpOutcome {
  uint32_t code = 0;
  std::string detail;
};

/** Must be called once before any thread performs a request. */
void InitializeHttp();
void ShutdownHttp();

/** The user agent sent for a request: the service's own, then the client's suffix. */
std::string UserAgentFor(const HttpSettings& settings, const std::string& suffix);

/**
 * Sends the request and returns once the final response's status line and
 * headers are in, storing the response (or clearing it on failure); the
 * body follows through HttpResponse::ReadBody while the client reads.
 * `cancel` turning true stops the transfer (code::kHttpCancelled).
 */
HttpOutcome Perform(HttpRequest& request, const HttpSettings& settings, const std::atomic<bool>& cancel);

/** Checks one header line given by a client; returns a problem description or nothing. */
std::optional<std::string> CheckHeaderLine(const std::string& line);
/** Checks a method name (an HTTP token); returns a problem description or nothing. */
std::optional<std::string> CheckMethod(const std::string& method);

}  // namespace palvonauthd

#endif

#ifndef PALVONAUTH_TOOLS_HTTP_HTTPEXCHANGE_H
#define PALVONAUTH_TOOLS_HTTP_HTTPEXCHANGE_H

// One HTTP request performed by the service through the library's level-2
// calls: what to send, the response head, and the body read as it arrives.
// Shared by the `http` subcommand and the local proxy.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "PalvonAuthManager.h"
#include "commands/Gateway.h"

namespace palvonauth {

using PalvonAuthManagerSDK::AMByte;
using PalvonAuthManagerSDK::AMHttpHandle;
using PalvonAuthManagerSDK::AMUint;
using PalvonAuthManagerSDK::ConnectionHandle;

/** What the request carries; unset members are left to the service. */
struct OutgoingRequest {
  std::string method = "GET";
  std::string url;
  /** "Name: value" lines. */
  std::vector<std::string> headers;
  std::optional<std::vector<AMByte>> body;
  std::optional<std::string> referenceUrl;
  std::optional<uint32_t> authenticationFlags;
  std::optional<uint32_t> timeoutSeconds;
  std::optional<std::string> userAgentSuffix;
  /** Routed through this gateway when its logon point is set. */
  GatewayOptions route;
};

/** The response as far as the headers. */
struct HttpResponseHead {
  AMUint status = 0;
  std::string reason;
  /** "Name: value" lines as the service returned them. */
  std::vector<std::string> headers;
  AMUint trustFailureFlags = 0;
};

/**
 * "HTTP/1.1 200 OK". The library does not report which protocol version the
 * service spoke with the server, so the line always says HTTP/1.1; the
 * reason phrase is the service's (it supplies the standard one when the
 * server sent none, as HTTP/2 servers never do).
 */
std::string StatusLine(const HttpResponseHead& head);

/**
 * A request object of the library, destroyed again at the end. Every failed
 * call throws LibraryError naming the function.
 */
class HttpExchange {
 public:
  explicit HttpExchange(ConnectionHandle connection);
  ~HttpExchange();
  HttpExchange(const HttpExchange&) = delete;
  HttpExchange& operator=(const HttpExchange&) = delete;

  AMHttpHandle Handle() const { return handle_; }
  /** Sets everything the request carries and sends it; returns at the response's headers. */
  void Send(const OutgoingRequest& request);
  /** Status, reason phrase, headers and, unless asked not to, the trust-failure flags. */
  HttpResponseHead ReadHead(bool trustFailureFlags = true);
  /** Reads what has arrived of the body, at most `capacity` bytes; 0 at its end. */
  AMUint ReadBody(AMByte* buffer, AMUint capacity);
  /** Destroys the request, reporting a failure. */
  void Close();

 private:
  AMHttpHandle handle_ = 0;
  bool open_ = false;
};

}  // namespace palvonauth

#endif

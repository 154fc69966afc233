#ifndef PALVONAUTH_TOOLS_PROXY_REQUESTFORWARDER_H
#define PALVONAUTH_TOOLS_PROXY_REQUESTFORWARDER_H

// One request received by the proxy, performed by the service through the
// library and answered to the client, with its access-log line.

#include <cstdint>
#include <functional>
#include <string>

#include "proxy/ClientSocket.h"
#include "proxy/RequestParser.h"
#include "proxy/ServiceLink.h"

namespace palvonauth {

struct ProxySettings {
  /** Empty: forward proxy; else the URL request paths are appended to. */
  std::string upstream;
  uint64_t maxBody = 0;
  bool quiet = false;
};

struct ForwardHooks {
  /** Asked while a body streams: true abandons it (the proxy is stopping and the grace time is over). */
  std::function<bool()> abandon;
  /** Called before a body that may take long (unknown length or over 1 MiB) is passed on. */
  std::function<void()> beforeLongBody;
};

/**
 * Serves the request whose head was taken from the socket's buffer. Returns
 * whether the connection may carry another request.
 */
bool ForwardRequest(ClientSocket& socket, const RequestHead& head, bool keepAlive, ServiceLink& link,
                    const ProxySettings& settings, const ForwardHooks& hooks);

/** Writes one access-log line on standard error unless `quiet`. */
void LogAccess(const ProxySettings& settings, const ClientSocket& socket, const std::string& method,
               const std::string& url, int status, uint64_t bytes, double milliseconds, const char* note = "");

}  // namespace palvonauth

#endif

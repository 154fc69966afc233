#ifndef PALVONAUTH_TOOLS_PROXY_LISTENADDRESS_H
#define PALVONAUTH_TOOLS_PROXY_LISTENADDRESS_H

// The proxy's listening socket: HOST:PORT parsed, loopback checked, bound.

#include <sys/socket.h>

#include <string>

namespace palvonauth {

struct Listener {
  int fd = -1;
  /** "http://127.0.0.1:3128", with the port the system chose for port 0. */
  std::string url;
  bool loopback = true;
};

/**
 * Binds and listens (non-blocking) on "HOST:PORT" or "[IPv6]:PORT". A
 * non-loopback address is refused (LocalError, usage) unless `allowRemote`.
 */
Listener OpenListener(const std::string& address, bool allowRemote);

/** "127.0.0.1:3128" or "[::1]:3128". */
std::string AddressText(const struct sockaddr_storage& address);

}  // namespace palvonauth

#endif

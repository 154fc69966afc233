#ifndef PALVONAUTH_TOOLS_PROXY_PEEROWNER_H
#define PALVONAUTH_TOOLS_PROXY_PEEROWNER_H

// Who is on the other end of a loopback TCP connection. Every local user can
// reach a loopback port; the proxy acts with its user's credentials, so it
// serves only connections whose socket belongs to that user.

#include <sys/socket.h>
#include <sys/types.h>

#include <optional>
#include <string>

namespace palvonauth {

/** True for 127.0.0.0/8, ::1 and ::ffff:127.0.0.0/104. */
bool IsLoopback(const struct sockaddr* address);

/**
 * The user owning the client's socket of an accepted loopback connection,
 * from the kernel's TCP tables (`tables` is the folder holding "tcp" and
 * "tcp6"); none when the connection is not found there (already closed).
 */
std::optional<uid_t> LoopbackPeerOwner(int connection, const std::string& tables = "/proc/net");

}  // namespace palvonauth

#endif

#include "proxy/PeerOwner.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <sstream>

namespace palvonauth {

namespace {

// An address as the TCP tables print it: the address's 32-bit words as
// stored, in hexadecimal, then the port in host order.
std::string TableAddress(const struct sockaddr_storage& address) {
  char text[64] = {};
  if (address.ss_family == AF_INET) {
    const auto& v4 = reinterpret_cast<const struct sockaddr_in&>(address);
    std::snprintf(text, sizeof text, "%08X:%04X", v4.sin_addr.s_addr, ntohs(v4.sin_port));
  } else if (address.ss_family == AF_INET6) {
    const auto& v6 = reinterpret_cast<const struct sockaddr_in6&>(address);
    uint32_t words[4];
    std::memcpy(words, v6.sin6_addr.s6_addr, sizeof words);
    std::snprintf(text, sizeof text, "%08X%08X%08X%08X:%04X", words[0], words[1], words[2], words[3],
                  ntohs(v6.sin6_port));
  }
  return text;
}

// The whole of a small kernel table, read without following links.
std::string ReadTable(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return {};
  std::string text;
  struct stat status {};
  if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) {
    char buffer[16384];
    for (ssize_t got; (got = read(fd, buffer, sizeof buffer)) > 0;) text.append(buffer, static_cast<size_t>(got));
  }
  close(fd);
  return text;
}

}  // namespace

bool IsLoopback(const struct sockaddr* address) {
  if (address->sa_family == AF_INET) {
    return (ntohl(reinterpret_cast<const struct sockaddr_in*>(address)->sin_addr.s_addr) >> 24) == 127;
  }
  if (address->sa_family != AF_INET6) return false;
  const struct in6_addr& v6 = reinterpret_cast<const struct sockaddr_in6*>(address)->sin6_addr;
  return IN6_IS_ADDR_LOOPBACK(&v6) || (IN6_IS_ADDR_V4MAPPED(&v6) && v6.s6_addr[12] == 127);
}

std::optional<uid_t> LoopbackPeerOwner(int connection, const std::string& tables) {
  struct sockaddr_storage local {}, peer {};
  socklen_t localSize = sizeof local, peerSize = sizeof peer;
  if (getsockname(connection, reinterpret_cast<struct sockaddr*>(&local), &localSize) != 0 ||
      getpeername(connection, reinterpret_cast<struct sockaddr*>(&peer), &peerSize) != 0) {
    return std::nullopt;
  }
  // The client's end of the connection: its local address is our peer, its
  // remote address is us.
  const std::string clientEnd = TableAddress(peer), serverEnd = TableAddress(local);
  if (clientEnd.empty()) return std::nullopt;
  std::istringstream lines(ReadTable(tables + (peer.ss_family == AF_INET6 ? "/tcp6" : "/tcp")));
  std::string line;
  std::getline(lines, line);  // column titles
  while (std::getline(lines, line)) {
    std::istringstream fields(line);
    std::string slot, localAddress, remoteAddress, state, queues, timer, retransmits;
    unsigned long uid = 0;
    if (fields >> slot >> localAddress >> remoteAddress >> state >> queues >> timer >> retransmits >> uid &&
        localAddress == clientEnd && remoteAddress == serverEnd) {
      return static_cast<uid_t>(uid);
    }
  }
  return std::nullopt;
}

}  // namespace palvonauth

#include "proxy/ListenAddress.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "Errors.h"
#include "proxy/PeerOwner.h"

namespace palvonauth {

std::string AddressText(const struct sockaddr_storage& address) {
  char host[INET6_ADDRSTRLEN] = "?";
  if (address.ss_family == AF_INET) {
    const auto& v4 = reinterpret_cast<const struct sockaddr_in&>(address);
    inet_ntop(AF_INET, &v4.sin_addr, host, sizeof host);
    return std::string(host) + ":" + std::to_string(ntohs(v4.sin_port));
  }
  const auto& v6 = reinterpret_cast<const struct sockaddr_in6&>(address);
  inet_ntop(AF_INET6, &v6.sin6_addr, host, sizeof host);
  return "[" + std::string(host) + "]:" + std::to_string(ntohs(v6.sin6_port));
}

Listener OpenListener(const std::string& address, bool allowRemote) {
  const size_t colon = address.rfind(':');
  std::string host = colon == std::string::npos ? std::string() : address.substr(0, colon);
  const std::string port = colon == std::string::npos ? std::string() : address.substr(colon + 1);
  if (host.size() >= 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
  if (host.empty() || port.empty() || port.find_first_not_of("0123456789") != std::string::npos || port.size() > 5 ||
      std::stoul(port) > 65535) {
    throw LocalError("--listen " + address + ": expected HOST:PORT, e.g. 127.0.0.1:3128", kExitUsage);
  }
  struct addrinfo hints {};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
  struct addrinfo* found = nullptr;
  const int lookup = getaddrinfo(host.c_str(), port.c_str(), &hints, &found);
  if (lookup != 0) throw LocalError("--listen " + address + ": " + gai_strerror(lookup), kExitUsage);
  Listener listener;
  listener.loopback = IsLoopback(found->ai_addr);
  if (!listener.loopback && !allowRemote) {
    freeaddrinfo(found);
    throw LocalError("--listen " + address +
                         ": not a loopback address; anyone who can reach it would make requests as you. "
                         "Add --allow-remote to listen there anyway",
                     kExitUsage);
  }
  listener.fd = socket(found->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  const int on = 1;
  const bool bound = listener.fd >= 0 && setsockopt(listener.fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
                     bind(listener.fd, found->ai_addr, found->ai_addrlen) == 0 && listen(listener.fd, 128) == 0;
  const int error = errno;
  freeaddrinfo(found);
  if (!bound) {
    if (listener.fd >= 0) close(listener.fd);
    throw LocalError("cannot listen on " + address + ": " + std::strerror(error));
  }
  struct sockaddr_storage local {};
  socklen_t size = sizeof local;
  (void)getsockname(listener.fd, reinterpret_cast<struct sockaddr*>(&local), &size);
  listener.url = "http://" + AddressText(local);
  return listener;
}

}  // namespace palvonauth

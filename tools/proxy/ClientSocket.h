#ifndef PALVONAUTH_TOOLS_PROXY_CLIENTSOCKET_H
#define PALVONAUTH_TOOLS_PROXY_CLIENTSOCKET_H

// One accepted client connection: a non-blocking socket with the bytes
// received and not yet used, read and written with a limit on silence.

#include <chrono>
#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>

namespace palvonauth {

enum class ReadOutcome { kData, kNothing, kEnd, kTimeout, kError };

class ClientSocket {
 public:
  /** Takes ownership of a connected socket. */
  ClientSocket(int fd, std::string peer);
  ~ClientSocket();
  ClientSocket(const ClientSocket&) = delete;
  ClientSocket& operator=(const ClientSocket&) = delete;

  int Fd() const { return fd_; }
  const std::string& Peer() const { return peer_; }
  /** Received bytes not consumed yet. */
  std::string& Buffer() { return buffer_; }

  /** Appends what has arrived without waiting, at most `limit` bytes in all: kData, kNothing, kEnd or kError. */
  ReadOutcome ReadAvailable(size_t limit);
  /** Waits up to `silence` for more bytes and appends them. */
  ReadOutcome ReadMore(std::chrono::milliseconds silence);
  /** Writes all parts in order; false when the client went away or took nothing for `silence`. */
  bool Write(std::initializer_list<std::string_view> parts,
             std::chrono::milliseconds silence = std::chrono::seconds(60));

 private:
  int fd_;
  std::string peer_;
  std::string buffer_;
};

}  // namespace palvonauth

#endif
